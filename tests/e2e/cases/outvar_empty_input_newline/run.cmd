INPUT in.txt;
OUTPUT out.dat;
OUTTYP F;
INVAR DELIMIT(\N) a b c;
OUTVAR c b;

INPUT in.txt;
OUTPUT out.dat;
OUTTYP D;
INVAR DELIMIT(\N) a b c d;
OUTVAR c a c;

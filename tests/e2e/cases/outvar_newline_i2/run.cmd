INPUT in.txt;
OUTPUT out.dat;
OUTTYP I;
INVAR DELIMIT(\N) a b c d;
OUTVAR c a c;

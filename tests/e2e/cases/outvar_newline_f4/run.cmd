INPUT in.txt;
OUTPUT out.dat;
OUTTYP F;
INVAR DELIMIT(\N,N) a b c d;
OUTVAR c a c;

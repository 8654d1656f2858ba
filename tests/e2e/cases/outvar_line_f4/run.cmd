INPUT in.txt;
OUTPUT out.dat;
OUTTYP F;
INVAR DELIMIT(\R) a b c d;
OUTVAR d a b;

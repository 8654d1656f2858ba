INPUT in.txt;
OUTPUT out.dat;
INVAR DELIMIT(\R) a b c d;
OUTVAR d a b;

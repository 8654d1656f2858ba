INPUT in.txt;
OUTPUT out.dat;
OUTTYP I;
INVAR DELIMIT(\R) a b c d;
OUTVAR d a b;

INPUT in.txt;
OUTPUT out.dat;
OUTTYP 4;
INVAR DELIMIT(\R) a b;

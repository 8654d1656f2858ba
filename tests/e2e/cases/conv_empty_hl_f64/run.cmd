INPUT in.txt;
OUTPUT out.dat;
OUTTYP 8;
INVAR DELIMIT(\R) a b;

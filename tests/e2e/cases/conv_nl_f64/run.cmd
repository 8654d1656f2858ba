INPUT in.txt;
OUTPUT out.dat;
OUTTYP D;
INVAR DELIMIT(\n,n) x y z;

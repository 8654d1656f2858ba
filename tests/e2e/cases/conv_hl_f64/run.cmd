INPUT in.txt;
OUTPUT out.dat;
OUTTYP D;
INVAR DELIMIT(\R) x y z;

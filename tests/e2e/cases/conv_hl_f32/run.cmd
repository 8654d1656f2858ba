INPUT in.txt;
OUTPUT out.dat;
OUTTYP F;
INVAR DELIMIT(\r) x y z;

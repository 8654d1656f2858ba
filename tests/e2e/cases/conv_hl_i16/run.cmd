INPUT in.txt;
OUTPUT out.dat;
OUTTYP I;
INVAR DELIMIT(\R) x y z;

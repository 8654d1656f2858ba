INPUT in.txt;
OUTPUT out.dat;
OUTTYP I;
INVAR DELIMIT(\N,N) x y z;

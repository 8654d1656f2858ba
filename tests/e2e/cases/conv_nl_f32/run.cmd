INPUT in.txt;
OUTPUT out.dat;
OUTTYP F;
INVAR DELIMIT(\N) x y z;

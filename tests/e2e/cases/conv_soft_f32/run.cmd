INPUT in.txt;
OUTPUT out.dat;
OUTTYP F;
INVAR x y z;

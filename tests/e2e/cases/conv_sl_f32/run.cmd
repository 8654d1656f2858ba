INPUT in.txt;
OUTPUT out.dat;
OUTTYP F;
INVAR DELIMIT(:) x y z;

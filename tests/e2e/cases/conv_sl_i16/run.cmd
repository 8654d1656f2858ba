INPUT in.txt;
OUTPUT out.dat;
OUTTYP I;
INVAR DELIMIT x y z;

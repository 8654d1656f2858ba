INPUT in.txt;
OUTPUT out.dat;
OUTTYP I;
INVAR x y z;

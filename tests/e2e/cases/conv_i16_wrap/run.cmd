INPUT in.txt;
OUTPUT out.dat;
OUTTYP I;
INVAR v;

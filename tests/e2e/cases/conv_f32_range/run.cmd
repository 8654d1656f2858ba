INPUT in.txt;
OUTPUT out.dat;
OUTTYP F;
INVAR v;

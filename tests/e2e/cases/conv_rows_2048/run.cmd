INPUT in.txt;
OUTPUT out.dat;
INVAR v[8];

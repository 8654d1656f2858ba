INPUT in.txt;
OUTPUT out.dat;
INVAR x[3];
OUTVAR x[1:2 b;

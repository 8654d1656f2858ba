INPUT in.txt;
OUTPUT out.dat;
INVAR x[3];
OUTVAR x[a];

INPUT in.txt;
OUTPUT out.dat;
INVAR x[3];
OUTVAR x[2:3] x1;

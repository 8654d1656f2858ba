INPUT in.txt;
OUTPUT out.dat;
INVAR x[3:1] y;

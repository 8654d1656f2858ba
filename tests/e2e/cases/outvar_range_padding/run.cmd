INPUT in.txt;
OUTPUT out.dat;
INVAR y[8-10];
OUTVAR y[09-10] y08;

INPUT in.txt;
OUTPUT out.dat;
INVAR a x[3];
OUTVAR Zz a x[2:4];

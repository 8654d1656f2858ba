INPUT in.txt;
OUTPUT out.dat;
COMPLEX;
INVAR x y;

INPUT in.txt;
OUTPUT out.dat;
COMPLEX;
INVAR a b c;
OUTVAR c a;

INPUT in.txt;
OUTPUT out.dat;
INVAR a b c;
OUTVAR c a;

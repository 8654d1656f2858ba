INPUT in.txt;
OUTPUT out;
REAL;
INVAR a b;

INPUT in.txt;
OUTPUT out.dat;
APPEND;
INVAR a b;

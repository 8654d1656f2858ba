INPUT in.txt;
OUTPUT out.dat;
APPEND;
INVAR x y;

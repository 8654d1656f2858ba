INPUT in.txt;
OUTPUT out.dat;
INVAR record x y;

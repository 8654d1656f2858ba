INPUT in.txt;
OUTPUT out.dat;
INVAR x y x;
OUTVAR y x x;

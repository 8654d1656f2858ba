INPUT in.txt;
OUTPUT out.dat;
INVAR DELIMIT(\T a b;

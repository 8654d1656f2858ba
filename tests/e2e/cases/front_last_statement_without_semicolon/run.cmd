INPUT in.txt;
INVAR a b;
OUTPUT out

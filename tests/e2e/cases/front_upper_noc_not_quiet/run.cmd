INPUT in.txt;
OUTPUT out;
INVAR a b;

INPUT in.txt;
OUTPUT out;
V96;
INVAR a b;

INPUT in.txt;
OUTPUT out;
APPEND;
INVAR a b;

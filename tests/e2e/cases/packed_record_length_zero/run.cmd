INPUT in.txt;
OUTPUT out;
INVAR RECORD = 0 x;

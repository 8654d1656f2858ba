INPUT in.txt;
OUTPUT out;
INVAR RECORD = 10 (1,2) a 1b (3,2) c;

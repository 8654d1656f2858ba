INPUT in.txt;
OUTPUT out;
INVAR RECORD = 10 (1,10) x;

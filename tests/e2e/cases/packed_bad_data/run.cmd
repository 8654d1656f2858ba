INPUT in.txt;
OUTPUT out;
INVAR RECORD = 10 (1,5.2) a (6,5) b;

INPUT in.txt;
OUTPUT out;
INVAR RECORD = 4 (1,2) a (3,4) b (10,3) c $(4,3) s (20,2) t;

INPUT in.txt;
OUTPUT out.dat;
INVAR DELIMIT(,N) a b;

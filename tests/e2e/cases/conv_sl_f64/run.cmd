INPUT in.txt;
OUTPUT out.dat;
INVAR DELIMIT(,N) x y z;

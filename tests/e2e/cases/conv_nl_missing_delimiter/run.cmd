INPUT in.txt;
OUTPUT out.dat;
INVAR DELIMIT(\N,N) a b;

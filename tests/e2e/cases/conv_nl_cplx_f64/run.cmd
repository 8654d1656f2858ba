INPUT in.txt;
OUTPUT out.dat;
COMPLEX;
INVAR DELIMIT(\N,N) p q r;

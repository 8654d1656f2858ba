INPUT in.txt;
OUTPUT out.dat;
COMPLEX;
INVAR DELIMIT(\\) p q r;

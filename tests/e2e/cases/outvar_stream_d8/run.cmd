INPUT in.txt;
OUTPUT out.dat;
INVAR DELIMIT(,N) a b c;
OUTVAR b c a b;

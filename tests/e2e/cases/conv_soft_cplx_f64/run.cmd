INPUT in.txt;
OUTPUT out.dat;
COMPLEX;
INVAR p q r;

INPUT in.txt;
OUTPUT out.dat;
INVAR DELIMIT(\R) a;

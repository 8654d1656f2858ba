INPUT in.txt;
OUTPUT out.dat;
INVAR DELIMIT(\R) $ s # n;
OUTVAR n s;

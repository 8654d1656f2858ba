INPUT in.txt;
OUTPUT out.dat;
INVAR RECORD = 4 (1,2) a b;
OUTVAR b zz;

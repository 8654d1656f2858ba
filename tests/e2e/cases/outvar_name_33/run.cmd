INPUT in.txt;
OUTPUT out.dat;
INVAR b abcdefghijklmnopqrstuvwxyz012345;
OUTVAR abcdefghijklmnopqrstuvwxyz0123456 b;

INPUT in.txt;
OUTPUT out.dat;
PRESERVECASE;
INVAR $ Name # Age wt;

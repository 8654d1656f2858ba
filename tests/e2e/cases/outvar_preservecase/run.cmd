INPUT in.txt;
OUTPUT out.dat;
PRESERVECASE;
INVAR $ Name # age;
OUTVAR AGE nAmE;

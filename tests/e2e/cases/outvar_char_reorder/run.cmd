INPUT in.txt;
OUTPUT out.dat;
INVAR $ name # age;
OUTVAR age NAME;

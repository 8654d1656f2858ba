INPUT in.txt;
OUTPUT out.dat;
INVAR $ name # age wt;

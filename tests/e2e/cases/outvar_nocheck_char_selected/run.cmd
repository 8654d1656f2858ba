INPUT in.txt;
OUTPUT out.dat;
OUTTYP I;
NOCHECK;
INVAR $ name # age;
OUTVAR name age;

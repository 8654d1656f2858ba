INPUT in.txt;
OUTPUT out.dat;
OUTTYP I;
INVAR $ name # age;
OUTVAR name age;

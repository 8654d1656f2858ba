INPUT in.txt;
OUTPUT out.dat;
MSYM -;
OUTTYP I;
INVAR a;

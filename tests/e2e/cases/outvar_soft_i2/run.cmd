INPUT in.txt;
OUTPUT out.dat;
OUTTYP I;
INVAR a b c d;
OUTVAR d b c d a;

INPUT in.txt;
OUTPUT out.dat;
OUTTYP D;
INVAR a b c d;
OUTVAR d b c d a;

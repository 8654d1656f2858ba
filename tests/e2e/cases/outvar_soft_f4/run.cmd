INPUT in.txt;
OUTPUT out.dat;
OUTTYP F;
INVAR a b c d;
OUTVAR d b c d a;

INPUT in.txt;
OUTPUT out.dat;
INVAR a b;
OUTVAR $ a;

INPUT in.txt;
OUTPUT out.dat;
INVAR a b c;
OUTVAR a b c a b c a b c;
OUTVAR c b;

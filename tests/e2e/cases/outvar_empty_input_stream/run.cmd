INPUT in.txt;
OUTPUT out.dat;
INVAR DELIMIT a b c;
OUTVAR c b;

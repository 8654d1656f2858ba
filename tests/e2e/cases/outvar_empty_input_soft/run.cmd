INPUT in.txt;
OUTPUT out.dat;
OUTTYP I;
INVAR a b c;
OUTVAR c b;

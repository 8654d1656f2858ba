INPUT in.txt;
OUTPUT out.dat;
OUTTYP I;
INVAR a b c d e f;
OUTVAR f e d c b;

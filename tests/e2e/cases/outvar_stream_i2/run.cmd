INPUT in.txt;
OUTPUT out.dat;
OUTTYP I;
INVAR DELIMIT a b c;
OUTVAR b c a b;

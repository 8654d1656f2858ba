INPUT in.txt;
OUTPUT out.dat;
OUTTYP I;
COMPLEX;
INVAR p q r;

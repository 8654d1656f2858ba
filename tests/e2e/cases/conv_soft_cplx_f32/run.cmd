INPUT in.txt;
OUTPUT out.dat;
OUTTYP F;
COMPLEX;
INVAR p q r;

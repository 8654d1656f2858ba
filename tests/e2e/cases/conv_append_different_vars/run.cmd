INPUT in.txt;
OUTPUT out.dat;
APPEND;
OUTTYP F;
INVAR p q;

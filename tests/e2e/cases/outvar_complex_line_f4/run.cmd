INPUT in.txt;
OUTPUT out.dat;
COMPLEX;
OUTTYP F;
INVAR DELIMIT(\R) a b c;
OUTVAR b c b;

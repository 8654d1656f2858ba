INPUT in.txt;
OUTPUT out.dat;
OUTTYP F;
INVAR DELIMIT(|) a b c;
OUTVAR b c a b;

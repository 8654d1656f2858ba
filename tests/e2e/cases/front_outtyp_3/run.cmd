INPUT in.txt;
OUTPUT out;
OUTTYP 3;
INVAR a b;

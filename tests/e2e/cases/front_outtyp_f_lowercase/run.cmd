INPUT in.txt;
OUTPUT out;
OUTTYP f;
INVAR a b;

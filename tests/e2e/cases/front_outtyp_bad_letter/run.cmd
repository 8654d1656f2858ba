INPUT in.txt;
OUTPUT out;
OUTTYP q;

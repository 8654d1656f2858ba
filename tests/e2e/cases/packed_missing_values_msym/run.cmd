INPUT in.txt;
OUTPUT out;
OUTTYP I;
MSYM *;
INVAR RECORD = 6 (1,2) a b c;

INPUT in.txt;
OUTPUT out;
OUTTYP I;
INVAR RECORD = 4 $(1,2) s #(3,2) n;

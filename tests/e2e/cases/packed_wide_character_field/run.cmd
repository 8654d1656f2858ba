INPUT in.txt;
OUTPUT out;
INVAR RECORD = 12 $(1,12) name;

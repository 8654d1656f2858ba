INPUT in.txt;
OUTPUT out.dat;
MSYM *;
INVAR # a b $ c;

INPUT in.txt;
OUTPUT out;
MSYM ,,  * ;
INVAR a b;

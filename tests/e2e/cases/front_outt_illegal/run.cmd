INPUT in.txt;
OUTPUT out;
OUTT D;

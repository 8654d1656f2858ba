INPUT in.txt;
OUTPUT out.dat;
INVAR # a $ s;

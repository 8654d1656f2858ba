INPUT in.txt;
OUTPUT out.dat;
INVAR abcdefghijklmnopqrstuvwxyz0123456 b;

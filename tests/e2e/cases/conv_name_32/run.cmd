INPUT in.txt;
OUTPUT out.dat;
INVAR abcdefghijklmnopqrstuvwxyz012345 b;

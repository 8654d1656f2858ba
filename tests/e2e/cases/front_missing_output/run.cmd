INPUT in.txt;
INVAR a;

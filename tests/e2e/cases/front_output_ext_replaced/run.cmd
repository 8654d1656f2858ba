INPUT in.txt;
OUTPUT results.old;
INVAR a b;

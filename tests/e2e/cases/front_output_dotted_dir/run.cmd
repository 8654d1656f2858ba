INPUT in.txt;
OUTPUT dir.v2/results;
INVAR a b;

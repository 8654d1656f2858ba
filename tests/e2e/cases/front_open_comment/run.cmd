INPUT in.txt;
OUTPUT out;
@ this comment has no end;
INVAR a;

INPUT in.txt;
OUTPUT out;
NOCHECK;
INVAR RECORD = 80 $(1,1) sex #(*,8.2) vol[4] (60,10) total;

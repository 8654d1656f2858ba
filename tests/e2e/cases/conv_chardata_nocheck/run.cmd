INPUT in.txt;
OUTPUT out.dat;
OUTTYP I;
NOCHECK;
INVAR # n $ s;

INPUT in.txt;
OUTPUT out;
@ note @ OUTTYP D ;

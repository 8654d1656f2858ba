INPUT in.txt;
OUTPUT out;
OUTTYP F;
INVAR RECORD = 20 (1,6.2) a (*,6.2) b (*,5.2) c (*,3.5) d;

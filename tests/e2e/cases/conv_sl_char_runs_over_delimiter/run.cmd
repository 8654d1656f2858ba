INPUT in.txt;
OUTPUT out.dat;
INVAR DELIMIT(:) $ s # x;

INPUT in.txt;
OUTPUT out.dat;
INVAR a b c;
OUTVARb c;

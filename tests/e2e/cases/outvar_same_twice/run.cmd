INPUT in.txt;
OUTPUT out.dat;
INVAR a b c;
OUTVAR b,
  a , b
b;

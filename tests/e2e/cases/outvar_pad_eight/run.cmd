INPUT in.txt;
OUTPUT out.dat;
OUTTYP F;
INVAR a b c d e f g h i;
OUTVAR i h g f e d c b;

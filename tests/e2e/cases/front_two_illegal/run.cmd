INPUT in.txt;
OUTPUT out;
FROB 1;
INVAR a;
WIBBLE
  wobble;



  BOGUS
;
INPUT in.txt;
OUTPUT out;

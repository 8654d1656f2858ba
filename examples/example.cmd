@ A soft-delimited survey extract: an id, a region code (text), three
  measurements and a weight. "." marks a missing value. @
INPUT survey.txt;
OUTPUT survey;
OUTTYP D;
INVAR id $region #height weight score[2];

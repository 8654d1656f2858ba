INPUT in.txt;
OUTPUT out;
outtyp d;

input in.txt;
output x.asc;

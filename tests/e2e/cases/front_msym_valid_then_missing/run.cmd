INPUT in.txt;
OUTPUT out;
MSYM *;
MSYM ,
;

INPUT in.txt;
OUTPUT out;
@ note @ OUTT D ;
FOO@ a comment; with a semicolon @BAR;

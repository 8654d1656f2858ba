INPUT in.txt;
FOO;

INPUT in.txt;
OUTPUT out;
X	Y
	Z
12		W;

INPUT in.txt;
OUTPUT out.dat;
NOVPAD;
INVAR x[3] x[005] w[01:3] y[8-10] z[0:2];

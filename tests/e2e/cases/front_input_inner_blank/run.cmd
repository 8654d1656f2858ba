INPUT my data.asc;
OUTPUT out;
INVAR a b;

INPUT in.dly;
OUTPUT out;
INVAR RECORD = 269 $(1,3) net #(7,5) num;

@ February's ridership, added to the ridership.dat that 1-january.cmd
  made.  APPEND writes the new rows after the old ones and updates the
  row count in the header.  The variables and the element type must be
  those of the first run: kolv does not compare them. @

INPUT february.csv;
OUTPUT ridership;
APPEND;
INVAR DELIMIT(\R) $route #day boardings trips late;

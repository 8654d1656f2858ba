@ Water samples from three lakes, as the field team typed them in.

  The input is soft-delimited: values are separated by any number of
  blanks, tabs, commas or line ends, and a record is simply the next six
  values, wherever the lines break (sample 106 runs over two lines).

  A "." standing alone is a missing value; MSYM makes a lone "-" one too.
  The lake name is character data: its variable is declared after "$",
  and "#" switches back to numbers.  temp[2] declares TEMP1 and TEMP2.

  OUTVAR keeps five of the six variables, in a new order.  Numeric names
  are stored in upper case and character names in lower case. @

INPUT samples.txt;
OUTPUT lakes;                         @ written as lakes.dat @
MSYM -;
INVAR sample $lake #depth temp[2] ph;
OUTVAR lake sample temp[1:2] ph;

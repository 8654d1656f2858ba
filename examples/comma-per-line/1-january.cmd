@ Daily ridership of three bus routes, exported from a spreadsheet as
  comma-separated lines (the heading line removed): route, day of the
  month, boardings, trips run, trips late.

  DELIMIT(\R) reads one record per line, its fields separated by commas.
  An empty field (two commas in a row, or a comma at the end of a line)
  is a missing value, and a line with too few fields is completed with
  missing values; kolv then warns once, on standard error.

  The route code is character data, so the data set holds 8-byte
  elements.  2-february.cmd appends the next month to the same data set. @

INPUT january.csv;
OUTPUT ridership;
INVAR DELIMIT(\R) $route #day boardings trips late;

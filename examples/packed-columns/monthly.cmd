@ Monthly summaries of two mountain weather stations, in fixed columns:

      columns  1-6   station code
               7-10  year
              11-12  month
              13-17  mean daily maximum, tenths of a degree C
              18-22  mean daily minimum, tenths of a degree C
              23-28  precipitation, tenths of a millimetre

  Each record is a 28-byte line.  kolv finds the line end after each
  record and sets the record length to 29 itself.

  A group (column, width.decimals) places the names after it side by
  side; "*" keeps the column or the width of the group before.  The ".1"
  is an implied decimal: "  -15" in a maximum column reads as -1.5.  A
  blank numeric field is a missing value.  With packed records every
  variable is written to the data set. @

INPUT monthly.txt;
OUTPUT climate;
INVAR RECORD = 28 $(1,6) station
                  #(7,4) year (11,2) month
                  (13,5.1) tmax tmin (*,6.*) precip;

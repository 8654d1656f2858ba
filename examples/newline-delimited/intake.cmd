@ Answers from a clinic's intake form, exported one answer per line:
  patient number, initials, age, weight (kg) and height (cm), then the
  next patient.  An empty line is a question left unanswered.

  DELIMIT(\N, N): the line end is the delimiter, and the N option says
  that a line end also follows the last field of every record, as it
  does in a file whose last line is ended.

  OUTVAR leaves the initials out, so only numbers remain, and OUTTYP I
  stores them as 2-byte integers, rounded: 72.5 kg becomes 73. @

INPUT intake.txt;
OUTPUT intake;
OUTTYP I;
INVAR DELIMIT(\N, N) patient $initials #age weight height;
OUTVAR patient age weight height;

// Every message of the command language, once. Statement errors print one of
// these through run.io.out; fatal ones end the run with it through getout.
#pragma once

namespace kolv {

// Reading statements.
inline constexpr char kStatementTooLong[] = "KOLV - Statement too long\n";
inline constexpr char kOpenComment[] = "KOLV - Open comment\n";

// The passes.
inline constexpr char kIllegalCommand[] = "KOLV - Illegal command: %s\n";
inline constexpr char kNoInputFile[] = "KOLV - No input file\n";
inline constexpr char kNoOutputFile[] = "KOLV - No output file\n";
inline constexpr char kNodataNotSupported[] = "KOLV - NODATA command not supported.\n";
inline constexpr char kNoInputVariables[] = "KOLV - No input variables\n";

// Settings.
inline constexpr char kInvalidOutputType[] =
    "KOLV - Invalid output type %c\n\n"
    "       Use: I or 2 - for 2 byte integer\n"
    "            F or 4 - for 4 byte floating point\n"
    "            D or 8 - for 8 byte floating point\n\n"
    "       Defaulting to 8 byte floating point...\n";
inline constexpr char kMissingValueSymbolNotFound[] = "KOLV - Missing value symbol not found\n";

// Names and the variable tables.
inline constexpr char kSyntaxError[] = "KOLV - Syntax error at: %s\n";
inline constexpr char kTooManyInputVariables[] = "KOLV - Too many input variables\n";

// INVAR and DELIMIT.
inline constexpr char kInvalidDelimiter[] = "KOLV - Invalid delimiter\n";
inline constexpr char kMissingParenthesis[] = "KOLV WARNING: missing ' )' at: %s\n";
inline constexpr char kPackedWithComplex[] = "KOLV - Can't read packed ASCII (COMPLEX specified)\n";
inline constexpr char kOutOfMemory5[] = "KOLV - Out of memory 5\n";

// The packed record description.
inline constexpr char kOutOfMemory4[] = "KOLV - Out of memory 4\n";
inline constexpr char kRecordLengthRange[] = "KOLV - Record length must be 1-%d bytes\n";
inline constexpr char kTooManyVariables1[] = "KOLV - Too many variables (1)\n";
inline constexpr char kTooManyVariables2[] = "KOLV - Too many variables (2)\n";

// OUTVAR.
inline constexpr char kOutOfMemory770[] = "KOLV - Out of memory 770\n";
inline constexpr char kUndefinedVariable[] = "KOLV - Undefined variable %s\n";
inline constexpr char kIgnoring[] = "IGNORING: %s\n";
inline constexpr char kNoMemoryForOutputNames[] =
    "KOLV - Can't malloc memory for output variable names\n";
inline constexpr char kNoMemoryForOutputTypes[] =
    "KOLV - Can't malloc memory for output variable types\n";
inline constexpr char kCantOpenTemporaryFile6[] = "KOLV - Can't open temporary file 6\n";
inline constexpr char kCantWriteNames2[] = "KOLV - Can't write variable names to header (2)\n";
inline constexpr char kCantWriteTypes2[] = "KOLV - Can't write variable types to header (2)\n";
inline constexpr char kCantWriteTypes2a[] = "KOLV - Can't write variable types to header (2a)\n";

}  // namespace kolv

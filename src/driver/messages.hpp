// Every message of the driver, once: the run's set-up, its end and its
// summary, and what the format layer found wrong with a data set to append to.
#pragma once

#include "build_info.hpp"

namespace kolv {

// The banner of every run without "-noc": the version and the build date.
inline constexpr char kBanner[] = "\nKOLV Version " KOLV_VERSION
                                  "  ( %s )\n"
                                  "ASCII Conversion Utility\n"
                                  "Converts ASCII text files into VELDA data sets.\n"
                                  "Copyright (c) 2026 the kolv developers.\n\n";

// The command file and memory.
inline constexpr char kCommandFileNotFound[] = "KOLV - Command file <%s> not found\n";
inline constexpr char kInsufficientMemory1[] = "KOLV - Insufficient memory (1)\n";
inline constexpr char kInsufficientMemory2[] = "KOLV - Insufficient memory (2)\n";

// The output and the data set appended to.
inline constexpr char kCantOpenTemporaryOutput[] = "KOLV - Can't open temporary output file\n";
inline constexpr char kCantCreateTemporaryOutput[] = "KOLV - Can't create temporary output file\n";
inline constexpr char kCantOpenTemporaryFile760[] = "KOLV - Can't open temporary file 760\n";
inline constexpr char kCantWriteNames1[] = "KOLV - Can't write variable names to header (1)\n";
inline constexpr char kCantWriteTypes1[] = "KOLV - Can't write variable types to header (1)\n";
inline constexpr char kCantWriteTypes1a[] = "KOLV - Can't write variable types to header (1a)\n";
inline constexpr char kInternalError802[] = "KOLV - Internal error 802\n";
inline constexpr char kInternalError921[] = "kolv - internal error 921\n";
inline constexpr char kInternalError5023[] = "KOLV - Internal error 502.3\n";
inline constexpr char kUnrecognisedAppendTarget[] =
    "kolv -- unrecognized output file type, cannot append\n";
inline constexpr char kVersion92AppendTarget[] =
    "kolv -- v92 file format, use morvelix before appending\n";
inline constexpr char kReversedAppendTarget[] =
    "kolv -- byte order reversed, use morvelix before appending\n";

// The conversion.
inline constexpr char kCantOpenInputFile[] = "KOLV - Can't open input file\n";
inline constexpr char kInternalError301[] = "KOLV - Internal error 301\n";
inline constexpr char kOutOfMemory2[] = "KOLV - Out of memory 2\n";
inline constexpr char kDiskFull[] = "KOLV - Disk full - conversion incomplete\n";

// Character data and the element type.
inline constexpr char kCharacterDataLost[] =
    "KOLV - OUTput TYPe D required for character data\n"
    "       Character data in output file will be lost\n";
inline constexpr char kSettingDoublePrecision[] =
    "KOLV - Character data in output file\n"
    "       Setting output file to double precision\n";
inline constexpr char kCharacterDataInNumericField[] =
    "KOLV - Found character data in numeric field\n";
inline constexpr char kCharacterDataTruncated[] =
    "KOLV - Character data longer than 8 bytes were truncated\n";

// The summary of a finished run.
inline constexpr char kSummary[] =
    "Command file:  %s\n"
    "Input file:    %s\n"
    "Output file:   %s\n";

}  // namespace kolv

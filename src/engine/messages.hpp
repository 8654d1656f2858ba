// Every message of the conversion, once: the bad-data reports, the packed
// record notes and the partial-record warning.
#pragma once

namespace kolv {

// Reports of delimited input (file name, line, offset twice).
inline constexpr char kMissingDelimiterReport[] =
    "Missing delimiter - file %s,  line %1.0f,  file offset %1.0f hex,  %1.0f decimal:\n";
inline constexpr char kUnexpectedDelimiterReport[] =
    "Unexpected delimiter - file %s,  line %1.0f,  file offset %1.0f hex,  %1.0f decimal:\n";
inline constexpr char kBadDataReport[] =
    "Bad data - file %s,  line %1.0f,  file offset %1.0f hex,  %1.0f decimal:\n";
inline constexpr char kEndOfFile[] = "End of file %s\n";
inline constexpr char kLastRowIncompleteReport[] =
    "Last row incomplete - line %1.0f,  file offset %1.0f hex,  %1.0f decimal\n";
inline constexpr char kInternalError303[] = "KOLV - Internal error 303\n";

// The dump of the bytes a report points at.
inline constexpr char kDumpHex[] = "   Hex:    ";
inline constexpr char kDumpAscii[] = "\n   ASCII: \"";
inline constexpr char kDumpAsciiEnd[] = "\"\n";

// Packed records.
inline constexpr char kPackedBadDataReport[] =
    "Bad data - file %s,  line %1.0f,  file offset %1.0f hex, %1.0f decimal:\n";
inline constexpr char kExtraBytesReport[] = "%u extra bytes at end of file %s:\n";
inline constexpr char kRecordsBeginWithCrLf[] = "Records beginning with CR/LF...";
inline constexpr char kRecordsBeginWithNewline[] = "Records beginning with newline...";
inline constexpr char kSettingRecordLength[] = " Setting record length to %d\n";
inline constexpr char kSomeRecordsBeginWithCrLf[] = "KOLV WARNING: some records begin with CR/LF\n";
inline constexpr char kSomeRecordsBeginWithNewlines[] =
    "KOLV WARNING: some records begin with newlines\n";

// Line per row.
inline constexpr char kPartialRecords[] =
    "WARNING:  Partial record(s) found, completed with missing values.\n";

}  // namespace kolv

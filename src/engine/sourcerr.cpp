#include "engine/sourcerr.hpp"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "base/fatal.hpp"
#include "engine/messages.hpp"

namespace kolv {

void dump_bytes(FILE* out, const char* position, size_t limit, bool with_closing_quote) {
  size_t count = 0;
  while (count < limit && count < 16 && position[count] != '\0') ++count;
  std::fputs(kDumpHex, out);
  // Bytes are widened as signed chars: 0x80 and above print as ffffff80.
  for (size_t i = 0; i < count; ++i)
    std::fprintf(out, "%02x ", static_cast<int>(static_cast<signed char>(position[i])));
  std::fputs(kDumpAscii, out);
  for (size_t i = 0; i < count; ++i) {
    unsigned char c = static_cast<unsigned char>(position[i]);
    std::fputc(std::isprint(c) ? c : 4, out);
  }
  if (with_closing_quote) std::fputs(kDumpAsciiEnd, out);
}

int32_t sourcerr(Engine& engine, int32_t kind, const char* position, int32_t line) {
  if (kind < 1 || kind > 4) getout(kInternalError303);
  FILE* out = engine.io.out;
  double offset = static_cast<int32_t>(position - engine.rb.inbuff.get());
  double at_line = line;
  const char* infile = engine.input_name.c_str();
  switch (kind) {
    case kMissingDelimiter:
      std::fprintf(out, kMissingDelimiterReport, infile, at_line, offset, offset);
      break;
    case kLastRowIncomplete:
      std::fprintf(out, kEndOfFile, infile);
      std::fprintf(out, kLastRowIncompleteReport, at_line, offset, offset);
      return kind;
    case kBadData:
      std::fprintf(out, kBadDataReport, infile, at_line, offset, offset);
      break;
    default:
      std::fprintf(out, kUnexpectedDelimiterReport, infile, at_line, offset, offset);
      break;
  }
  dump_bytes(out, position, 16, true);
  return kind;
}

void report_packed_bad_data(Engine& engine, int64_t record_number, int64_t offset,
                            const char* text) {
  FILE* out = engine.io.out;
  // Both offsets print in decimal, the one labelled hex too.
  const double line = static_cast<double>(record_number);
  const double at = static_cast<double>(offset);
  std::fprintf(out, kPackedBadDataReport, engine.input_name.c_str(), line, at, at);
  dump_bytes(out, text, 16, true);
}

void report_extra_bytes(Engine& engine, const char* bytes, size_t available, int64_t extra) {
  if (available == 0 || *bytes == '\n' || *bytes == '\r') return;
  std::fprintf(engine.io.out, kExtraBytesReport, static_cast<unsigned>(extra),
               engine.input_name.c_str());
  // The ASCII line of this report has no closing quote.
  dump_bytes(engine.io.out, bytes, std::min<size_t>(available, static_cast<size_t>(extra)), false);
}

}  // namespace kolv

#include "command/packed_record.hpp"

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include "base/fatal.hpp"
#include "base/text.hpp"
#include "command/messages.hpp"
#include "command/names.hpp"
#include "command/statement.hpp"
#include "command/vartable.hpp"

namespace kolv {

namespace {

// Longest record a description may declare (one full read of the buffer).
constexpr long kMaxRecord = kReadSize;

// Columns, widths and decimals are read saturating here: far beyond any
// record, yet start plus width still fits comfortably in 64 bits.
constexpr long kNumberCap = INT32_MAX;

long read_number(const char*& p) {
  return kolv::read_number(p, kNumberCap);
}

// Printed and counted as a failed description: the run then stops for want
// of input variables.
int syntax_error(Run& run, const char* at) {
  std::fprintf(run.io.out, kSyntaxError, at);
  return 0;
}

// The running layout that a column group sets for the names after it.
struct Cursor {
  long start = 0;
  long width = 8;
  long decimals = 0;
};

// Reads "( pos , width [.dec] )" with p just after the "("; returns nullptr
// and leaves p after the ")", or returns where the syntax error lies.
const char* read_group(Run& run, const char*& p, Cursor& cur) {
  p = skip_blanks(p);
  if (*p == '*') {
    ++p;
  } else if (is_digit(*p)) {
    const char* number = p;
    long column = read_number(p);
    // Columns count from 1; a column 0 would start before the record.
    if (column == 0) return number;
    cur.start = column - 1;
  } else {
    return p;
  }

  p = skip_blanks(p);
  if (*p != ',') return p;
  p = skip_blanks(p + 1);
  if (*p == '*') {
    ++p;
  } else if (is_digit(*p)) {
    cur.width = read_number(p);
  } else {
    return p;
  }
  // Character values keep at most 8 bytes: the run reports the truncation.
  if (run.vars.numeric_data == 0 && cur.width >= 9) run.vars.chartrunc = 1;

  if (*p == '.') {
    ++p;
    if (*p == '*') {
      ++p;
    } else if (is_digit(*p)) {
      const char* number = p;
      long decimals = read_number(p);
      // A layout entry holds the decimals in one byte.
      if (decimals > 255) return number;
      cur.decimals = decimals;
    } else {
      return p;
    }
  } else {
    cur.decimals = 0;
  }
  p = skip_blanks(p);
  if (*p != ')') return p;
  ++p;
  return nullptr;
}

// Starts the variable tables and the layout table afresh, room for 1000.
void reset_tables(Run& run) {
  reset_input_tables(run, kOutOfMemory4);
  std::vector<PackedField>& fmv = run.vars.fmv;
  fmv.clear();
  fmv.shrink_to_fit();
  try {
    fmv.resize(static_cast<size_t>(run.vars.varlimit));
  } catch (const std::bad_alloc&) {
    getout(kOutOfMemory4);
  }
}

// Makes room for `capacity` variables in all three tables.
bool grow_tables(Run& run, long capacity) {
  if (capacity <= run.vars.varlimit) return true;
  if (!grow_input_tables(run, capacity)) return false;
  try {
    run.vars.fmv.resize(static_cast<size_t>(capacity));
  } catch (const std::bad_alloc&) {
    return false;
  } catch (const std::length_error&) {
    return false;
  }
  return true;
}

// Adds vname with the cursor's layout; the next field follows it directly.
void add_field(Run& run, Cursor& cur) {
  Variables& v = run.vars;
  PackedField& f = v.fmv[static_cast<size_t>(v.varin)];
  f.type = static_cast<uint8_t>(v.numeric_data);
  f.decimals = static_cast<uint8_t>(cur.decimals);
  // Positions past any record all read as blanks, so they may saturate.
  f.start = static_cast<int32_t>(cur.start);
  f.width = static_cast<int32_t>(cur.width);
  makeivar(run, v.varlimit);
  cur.start += cur.width;
  if (cur.start > kNumberCap) cur.start = kNumberCap;
}

}  // namespace

int scanformat(Run& run, const char* p) {
  Variables& v = run.vars;
  v.numeric_data = 1;
  run.lay.varformat = 2;
  long record = read_number(p);
  if (record == 0 || record > kMaxRecord) {
    std::fprintf(run.io.out, kRecordLengthRange, static_cast<int>(kMaxRecord));
    return 0;
  }
  v.record = static_cast<int>(record);
  // Each description starts afresh; character fields set it again.
  v.chardata = 0;
  reset_tables(run);

  Cursor cur;
  for (;;) {
    p = skip_separators(p);
    if (*p == '\0') break;
    if (*p == '#' || *p == '$') {
      v.numeric_data = *p == '#';
      ++p;
      continue;
    }
    if (*p == '(') {
      ++p;
      if (const char* at = read_group(run, p, cur)) return syntax_error(run, at);
      continue;
    }
    // A name starts with a letter or "_"; anything else (a digit, a stray
    // bracket) has no meaning here and is reported where it stands.
    unsigned char first = static_cast<unsigned char>(*p);
    if (!(std::isalpha(first) || first == '_')) return syntax_error(run, p);
    read_name(run, p);
    if (is_name_char(*p)) return syntax_error(run, p);  // a 33rd name character
    fold_name(run, v.numeric_data != 0);
    if (*p == '[') {
      NameRange range;
      if (const char* at = parse_range(p, range, run.set.vpad)) return syntax_error(run, at);
      long count = range.last - range.first + 1;
      if (count > kMaxRangeCount || !grow_tables(run, v.varin + count)) getout(kTooManyVariables1);
      char stem[kNameSize + 1];
      std::memcpy(stem, v.vname, sizeof stem);
      for (long i = range.first; i <= range.last; ++i) {
        range_name(stem, range.width, i, v.vname);
        add_field(run, cur);
      }
    } else {
      if (v.varin >= v.varlimit && !grow_tables(run, static_cast<long>(v.varlimit) + 1))
        getout(kTooManyVariables2);
      add_field(run, cur);
    }
  }
  return v.varin;
}

}  // namespace kolv

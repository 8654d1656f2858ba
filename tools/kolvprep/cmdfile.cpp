#include "cmdfile.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "rewrite.hpp"

namespace kolvprep {

namespace {

std::string num(uint64_t n) {
  return std::to_string(n);
}

// Comment text may hold anything but "@", which would end the comment.
std::string clean(std::string_view s) {
  std::string out;
  for (char c : s) {
    const unsigned char u = static_cast<unsigned char>(c);
    out.push_back(c == '@' ? '?' : (u < 32 || u == 127) ? ' ' : c);
  }
  return out;
}

bool is_date_like(ColumnType t) {
  return t == ColumnType::kDate || t == ColumnType::kTime || t == ColumnType::kDateTime;
}

const char* type_word(ColumnType t) {
  switch (t) {
    case ColumnType::kNumeric:
      return "numeric";
    case ColumnType::kCharacter:
      return "character";
    case ColumnType::kDate:
      return "dates";
    case ColumnType::kTime:
      return "times";
    case ColumnType::kDateTime:
      return "dates with times";
  }
  return "numeric";
}

std::string where(uint64_t line) {
  return line ? "line " + num(line) : "in the sample";
}

// The single-character missing tokens other than "." (MSYM can name one).
bool single_msym(const Detection& d, char* msym, bool* others) {
  *msym = 0;
  *others = false;
  for (const Column& c : d.columns) {
    for (const std::string& t : c.missing_tokens) {
      if (t == ".") continue;
      if (t.size() == 1 && t != ";" && t != "@" && (*msym == 0 || *msym == t[0])) {
        *msym = t[0];
      } else {
        *others = true;
      }
    }
  }
  return !*others;
}

bool can_read_as_is(const Detection& d, char* msym) {
  *msym = 0;
  bool others = false;
  // Only a file read whole, every record of it seen to fit, may reach kolv
  // as it is: a misfit in a part not seen would stop kolv.
  if (!d.whole_file || d.compression != Compression::kNone) return false;
  if (d.bom || d.skip != 0 || d.quotes || d.misfits != 0 || d.comment_lines != 0) return false;
  if (d.cr_records || d.decimal_comma || !d.missing.empty() || d.pad || d.data_lines == 0 ||
      (d.layout != Layout::kFixed && (d.quoting.quote != '"' || d.quoting.backslash)))
    return false;
  for (const Column& c : d.columns) {
    // A type given on the command line is held to by the rewrite alone.
    if (is_date_like(c.type) || c.given_type || c.keep_tokens) return false;
  }
  switch (d.layout) {
    case Layout::kComma:
      // One record a line: a blank line would be a record of missing values,
      // and a blank inside a value ends the field.
      if (d.blank_lines != 0) return false;
      for (const Column& c : d.columns) {
        if (c.text_with_separators) return false;
        for (const std::string& t : c.missing_tokens)
          if (!t.empty() && t != ".") return false;
      }
      return true;
    case Layout::kBlank:
      // Values follow one another whatever the lines: only a whole file
      // whose every line was seen to hold the table's width is safe.
      if (!d.whole_file || d.commas_in_blank_values) return false;
      return single_msym(d, msym, &others);
    case Layout::kFixed:
      if (!d.whole_file || d.record_length == 0 || !d.final_newline || d.tabs_in_data ||
          d.blank_lines != 0 || d.mixed_line_ends)
        return false;
      for (const Column& c : d.columns) {
        for (const std::string& t : c.missing_tokens)
          if (!t.empty() && t != ".") return false;
      }
      return true;
    default:
      return false;
  }
}

bool plain_shell_byte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '_' || c == '-' || c == '/' || c == '+' || c == '=' || c == ',' || c == ':';
}

}  // namespace

std::string shell_quote(std::string_view word) {
  bool plain = !word.empty();
  for (char c : word) plain = plain && plain_shell_byte(c);
  if (plain) return std::string(word);
  std::string out = "'";
  for (char c : word) {
    if (c == '\'')
      out += "'\\''";
    else
      out.push_back(c);
  }
  return out + "'";
}

std::string layout_summary(const Detection& d) {
  std::string s;
  switch (d.layout) {
    case Layout::kComma:
      s = "comma-separated";
      break;
    case Layout::kTab:
      s = "tab-separated";
      break;
    case Layout::kSemicolon:
      s = "semicolon-separated";
      break;
    case Layout::kPipe:
      s = "separated by \"|\"";
      break;
    case Layout::kBlank:
      s = "values separated by blanks";
      break;
    case Layout::kFixed:
      s = "fixed columns without a delimiter";
      break;
    case Layout::kOther:
      s = std::string("separated by \"") + d.delimiter + "\"";
      break;
  }
  if (d.quotes) s += ", quoted fields";
  s += d.cr_records ? ", CR line ends" : d.crlf ? ", CRLF line ends" : ", LF line ends";
  if (d.bom) s += ", byte-order mark";
  return s;
}

Plan make_plan(const Detection& d, const std::string& file, const std::string& name) {
  Plan p;
  const std::string cmd = shell_quote(name + ".cmd");
  // The data set is checked against its header after kolv: a run that left
  // it short of the rows its header counts fails.
  std::string check = " && kolvdump --check ";
  check.append(shell_quote(name + ".dat"));
  p.direct = can_read_as_is(d, &p.msym);
  if (p.direct) {
    // INPUT takes the rest of its statement as the name, so a name with
    // ";" or blanks at its ends reaches kolv on standard input instead.
    const bool awkward = file.find(';') != std::string::npos || file.front() == ' ' ||
                         file.back() == ' ' || file.find('\n') != std::string::npos;
    p.input_redirect = awkward;
    p.input = awkward ? "/dev/stdin" : file;
    p.command = "kolv " + cmd + (awkward ? " < " + shell_quote(file) : "");
    p.command.append(check);
  } else {
    p.input = "/dev/stdin";
    p.text_options = text_options_for(d);
    std::string rejects = "--rejects=";
    rejects.append(name).append(".rejects");
    p.text_options.push_back(rejects);
    p.command = "kolvprep --text";
    for (const std::string& o : p.text_options) p.command.append(" ").append(shell_quote(o));
    p.command += std::string(" ") + shell_quote(file) + " | kolv " + cmd;
    p.command.append(check);
  }
  return p;
}

namespace {

std::string plural(uint64_t n, const char* one, const char* many) {
  return num(n) + " " + (n == 1 ? one : many);
}

// Findings about columns, each a line in column order; one kind found in
// more than three columns is one line naming them.
class ColumnFindings {
 public:
  void add(size_t column, const std::string& kind, const std::string& name,
           const std::string& detail) {
    items_.push_back({column, kind, name, detail});
  }
  void put(std::vector<std::string>& out) const {
    std::vector<std::pair<size_t, std::string>> lines;
    std::vector<std::string> grouped;
    for (const Item& it : items_) {
      size_t count = 0;
      for (const Item& o : items_) count += o.kind == it.kind;
      if (count <= 3) {
        lines.push_back({it.column, "column " + it.name + ": " + it.detail});
        continue;
      }
      if (std::find(grouped.begin(), grouped.end(), it.kind) != grouped.end()) continue;
      grouped.push_back(it.kind);
      std::string names;
      size_t listed = 0;
      for (const Item& o : items_) {
        if (o.kind != it.kind) continue;
        if (listed == 5) {
          names += ", ...";
          break;
        }
        names += (listed++ ? ", " : "") + o.name;
      }
      lines.push_back({it.column, num(count) + " columns (" + names + "): " + it.kind});
    }
    std::stable_sort(lines.begin(), lines.end(),
                     [](const auto& x, const auto& y) { return x.first < y.first; });
    for (const auto& l : lines) out.push_back(l.second);
  }

 private:
  struct Item {
    size_t column;
    std::string kind, name, detail;
  };
  std::vector<Item> items_;
};

// A number as the report writes it: without needless digits.
std::string value_text(double v) {
  char b[32];
  std::snprintf(b, sizeof b, "%.6g", v);
  return b;
}

}  // namespace

std::vector<std::string> report_warnings(const Detection& d, const Plan& plan) {
  std::vector<std::string> w;
  for (const std::string& doubt : d.doubts) w.push_back(doubt);
  if (d.misfits != 0) {
    std::string line = plural(d.misfits, "record", "records") +
                       (d.whole_file ? "" : " of the sample") + " do not fit the table";
    if (d.misfits == 1) line.replace(line.find(" do not fit"), 11, " does not fit");
    line += d.pad            ? "; padded (--misfits=pad)"
            : d.misfits == 1 ? "; the command sets it aside"
                             : "; the command sets them aside";
    w.push_back(line);
    for (size_t i = 0; i < d.misfit_notes.size() && i < 3; ++i) w.push_back(d.misfit_notes[i]);
  }
  ColumnFindings cf;
  for (size_t j = 0; j < d.columns.size(); ++j) {
    const Column& c = d.columns[j];
    if (c.type == ColumnType::kCharacter && c.distinct_cut < c.distinct)
      cf.add(j, "distinct values merge in the 8 bytes kolv keeps", c.name,
             num(c.distinct) + " distinct values become " + num(c.distinct_cut) +
                 " in the 8 bytes kolv keeps");
    else if (c.type == ColumnType::kCharacter && c.widest > 8)
      cf.add(j, "text longer than 8 bytes; kolv keeps the first 8", c.name,
             "text up to " + num(c.widest) + " bytes (" + shown_value(c.widest_text) +
                 "); kolv keeps the first 8");
    if (c.type == ColumnType::kCharacter && c.ambiguous_dates > 0)
      cf.add(j, "dates that may be day/month or month/day; kept as text", c.name,
             "dates like " + shown_value(c.ambiguous_example) +
                 " may be day/month or month/day; kept as text");
    else if (c.type == ColumnType::kCharacter && c.numbers > 0 && c.texts > 0 && !c.given_type)
      cf.add(j, "numbers and text; read as character", c.name,
             plural(c.numbers, "number", "numbers") + " and " +
                 plural(c.texts, "text value", "text values") + " (" + shown_value(c.first_text) +
                 ", " + where(c.first_text_line) + "): read as character");
    if (c.keep_tokens) {
      std::string token;
      for (const std::string& t : c.missing_tokens)
        if (token.empty()) token = t;
      cf.add(j, "codes that look like missing tokens, kept as text", c.name,
             shown_value(token) + " has the shape of the other codes: kept as text");
    }
    if (c.type == ColumnType::kCharacter && c.texts == 0 && c.zero_codes > 0 && !c.given_type)
      cf.add(j, "codes with leading zeros, kept as text (--numeric-columns reads numbers)", c.name,
             "codes with leading zeros (" +
                 shown_value(c.first_text.empty() ? c.widest_text : c.first_text) +
                 ") kept as text; --numeric-columns reads numbers");
    if (c.type == ColumnType::kCharacter && c.text_with_separators && !plan.direct)
      cf.add(j, "blanks, tabs or commas inside values become \"_\"", c.name,
             "blanks, tabs or commas inside values become \"_\" (" +
                 shown_value(c.separator_example) + ")");
    if (c.far_code())
      cf.add(j, "a value far outside the others, like a missing-value code", c.name,
             c.code + " (" + plural(c.code_count, "time", "times") + ") lies far outside " +
                 value_text(c.other_min) + " to " + value_text(c.other_max) + "; --missing " +
                 c.code + " makes it missing");
  }
  cf.put(w);
  if (!d.whole_file)
    w.push_back(
        "only a sample was read (the start and blocks through the file); --full reads it all");
  return w;
}

std::vector<std::string> report_notes(const Detection& d, const Plan& plan) {
  std::vector<std::string> n;
  if (d.header) {
    n.push_back(d.header_rows > 1
                    ? "lines " + num(d.header_line) + "-" + num(d.header_line + d.header_rows - 1) +
                          " are header lines: their fields give the names"
                    : "line " + num(d.header_line) +
                          " is a header line: its fields give the names");
  }
  if (d.names_from_comment) n.push_back("the comment line before the data gives the names");
  const uint64_t before = d.header ? d.header_line - 1 : d.skip;
  if (before == 1) n.push_back("line 1, before the table, is dropped");
  if (before > 1) n.push_back("lines 1-" + num(before) + ", before the table, are dropped");
  if (d.table_end != 0)
    n.push_back("the lines from line " + num(d.table_end) +
                " on (notes or another table) are left out");
  if (d.joined_records != 0)
    n.push_back(plural(d.joined_records, "record holds", "records hold") +
                " line ends inside quoted values; each becomes \"_\"");
  // The names that had to change, in one note.
  if (!d.name_notes.empty()) {
    std::string line = "names changed: ";
    size_t listed = 0;
    for (const std::string& s : d.name_notes) {
      if (line.size() + s.size() > 90) break;
      line += (listed++ ? ", " : "") + s;
    }
    if (listed < d.name_notes.size())
      line += " (and " + num(d.name_notes.size() - listed) + " more)";
    n.push_back(line);
  }
  if (d.decimal_comma) n.push_back("numbers are written with a decimal comma (1.234,5)");
  std::string wide;
  for (const Column& c : d.columns) {
    if (c.type == ColumnType::kNumeric && c.numbers > 0 && c.integers &&
        (c.max > 32767 || c.min < -32767))
      wide += (wide.empty() ? "" : ", ") + c.name;
    if (c.date_order != DateOrder::kNone)
      n.push_back("column " + c.name + ": " +
                  (c.date_order == DateOrder::kDayFirst ? "day/month" : "month/day") +
                  " dates, as a value over 12 shows");
    if (is_date_like(c.type))
      n.push_back("column " + c.name + ": " + type_word(c.type) + ", written as numbers " +
                  (c.type == ColumnType::kDate   ? "yyyymmdd"
                   : c.type == ColumnType::kTime ? "hhmmss"
                                                 : "yyyymmddhhmmss"));
  }
  // Missing-value tokens, with how many values and columns hold them.
  std::vector<std::string> tokens;
  uint64_t missing = 0;
  size_t columns = 0;
  for (const Column& c : d.columns) {
    // A column whose tokens are codes is said on its own.
    if (c.missing == 0 || c.keep_tokens) continue;
    missing += c.missing;
    ++columns;
    for (const std::string& t : c.missing_tokens) {
      const std::string token = t.empty() ? "empty" : "\"" + t + "\"";
      if (std::find(tokens.begin(), tokens.end(), token) == tokens.end()) tokens.push_back(token);
    }
  }
  if (missing != 0) {
    std::string list;
    for (const std::string& t : tokens) list += (list.empty() ? "" : ", ") + t;
    n.push_back("missing values: " + num(missing) + " in " + num(columns) + " column" +
                (columns == 1 ? "" : "s") + " (" + list + ")");
  }
  if (!wide.empty()) n.push_back("integers too large for 2-byte output (OUTTYP I) in " + wide);
  if (plan.msym != 0) n.push_back(std::string("\"") + plan.msym + "\" marks missing values (MSYM)");
  return n;
}

std::string command_file_text(const Detection& d, const Plan& plan, const std::string& file,
                              const std::string& name, const char* version) {
  std::string t;
  t += "@ run: " + clean(plan.command) + " @\n";
  t += "@ written by kolvprep " + std::string(version) + " from " + clean(file) + ": " +
       clean(layout_summary(d)) + "; " + num(d.columns.size()) + " columns @\n";
  if (plan.direct) {
    t += "INPUT " + plan.input + ";" +
         (plan.input_redirect ? "  @ the file comes on standard input @" : "") + "\n";
  } else {
    t += "INPUT /dev/stdin;  @ the text comes through the pipe from kolvprep --text, which drops";
    if (d.skip == 1) t += " the first line,";
    if (d.skip > 1) t += " the first " + num(d.skip) + " lines,";
    t += " blank and comment lines, removes quotes, makes missing tokens empty fields and";
    t += " writes blanks and commas inside values as _ @\n";
  }
  t += "OUTPUT " + name + ".dat;\n";
  bool text = false;
  for (const Column& c : d.columns) text = text || c.type == ColumnType::kCharacter;
  t += std::string("OUTTYP D;  @ 8-byte doubles") +
       (text ? ": character values need them" : ": every number kept exactly as read") + " @\n";
  if (plan.msym != 0)
    t += std::string("MSYM ") + plan.msym + ";  @ \"" + clean(std::string(1, plan.msym)) +
         "\" marks a missing value, as \".\" does @\n";

  if (d.layout == Layout::kFixed && plan.direct) {
    t += "INVAR RECORD = " + num(d.record_length) +
         "  @ fixed columns; kolv notices the line end after each record; a blank numeric field is "
         "missing @\n";
  } else if (plan.direct && d.layout == Layout::kBlank) {
    t += "INVAR  @ values separated by blanks: a record is the next " + num(d.columns.size()) +
         " values @\n";
  } else {
    t += "INVAR DELIMIT(\\R)  @ one record a line, fields separated by commas; an empty field is "
         "missing @\n";
  }
  int mode = -1;
  for (size_t j = 0; j < d.columns.size(); ++j) {
    const Column& c = d.columns[j];
    const int m = c.type == ColumnType::kCharacter ? 0 : 1;
    std::string item = "  ";
    if (m != mode) item += m ? "#" : "$";
    mode = m;
    if (d.layout == Layout::kFixed && plan.direct)
      item += std::string("(") + num(c.fixed.start + 1) + "," + num(c.fixed.width) + ") ";
    item += c.name;
    std::string why;
    if (!c.header.empty() && c.header != c.name)
      why += std::string("\"") + c.header.substr(0, 40) + "\"";
    if (d.layout == Layout::kFixed && !plan.direct)
      why += (why.empty() ? "" : "; ") + std::string("columns ") + num(c.fixed.start + 1) + "-" +
             num(c.fixed.start + c.fixed.width);
    if (is_date_like(c.type))
      why += (why.empty() ? "" : "; ") + std::string(type_word(c.type)) + " written as " +
             (c.type == ColumnType::kDate   ? "yyyymmdd"
              : c.type == ColumnType::kTime ? "hhmmss"
                                            : "yyyymmddhhmmss");
    if (c.type == ColumnType::kCharacter && c.widest > 8)
      why += (why.empty() ? "" : "; ") + std::string("text up to ") + num(c.widest) +
             " bytes: kolv keeps 8";
    if (c.type == ColumnType::kCharacter && c.numbers > 0)
      why += (why.empty() ? "" : "; ") + std::string("numbers and text: read as character");
    if (c.far_code())
      why += (why.empty() ? "" : "; ") + c.code + " far outside the other values: a missing code?";
    if (c.missing > 0 && !c.missing_tokens.empty()) {
      std::string tokens;
      for (const std::string& tok : c.missing_tokens)
        tokens += std::string(tokens.empty() ? "" : " ") +
                  (tok.empty() ? std::string("empty") : std::string("\"") + tok + "\"");
      why += (why.empty() ? "" : "; ") + std::string("missing: ") + tokens;
    }
    if (!why.empty()) item += "  @ " + clean(why) + " @";
    t += item + (j + 1 == d.columns.size() ? ";" : "") + "\n";
  }
  return t;
}

}  // namespace kolvprep

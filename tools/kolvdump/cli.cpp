#include "cli.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <memory>

#include "base/journal.hpp"
#include "base/paths.hpp"
#include "journal_view.hpp"
#include "npy.hpp"
#include "output.hpp"
#include "render.hpp"
#include "summary.hpp"

#ifndef KOLVDUMP_VERSION
#define KOLVDUMP_VERSION "unknown"
#endif

namespace kolvdump {

namespace {

constexpr const char* kUsage = "usage: kolvdump [OPTION]... FILE\n";

constexpr const char* kHelp =
    "usage: kolvdump [OPTION]... FILE\n"
    "Shows a VELDA data set written by kolv. FILE without an extension means\n"
    "FILE.dat when that file exists.\n"
    "\n"
    "What to write (the text view when none is given):\n"
    "  --csv              the rows as CSV (RFC 4180), after a line of names\n"
    "  --npy OUT          the rows as a NumPy .npy file OUT; nothing on standard output\n"
    "  --summary          one line per column: count, missing, text in a numeric\n"
    "                     column, min, max, mean, sd and a histogram, or distinct\n"
    "                     and most frequent values; with --csv as CSV\n"
    "  --ascii            the summary's histograms in ASCII (the default where the\n"
    "                     locale is not UTF-8)\n"
    "  --check            read nothing out: exit 0 when FILE is a finished data set\n"
    "                     whose size agrees with its header and no append is\n"
    "                     pending in its journal, else 1 and one line why\n"
    "\n"
    "Which rows and columns:\n"
    "  --columns LIST     these columns in this order: variable names (any case)\n"
    "                     or numbers from 1, separated by commas\n"
    "  --rows FIRST:LAST  rows FIRST to LAST, counted from 1 (FIRST: to the end)\n"
    "  --head N           at most N rows\n"
    "  --header-only      no rows: the header and the variables (the names line)\n"
    "\n"
    "How to write values:\n"
    "  --na TEXT          missing values as TEXT (default: \".\" in the text view,\n"
    "                     an empty field in CSV)\n"
    "  --no-header        CSV without its line of names\n"
    "\n"
    "  --help             this text\n"
    "  --version          the version\n"
    "\n"
    "Exit status: 0 all well; 1 the rows disagree with the header (or --check\n"
    "found a fault); 2 not a data set, unreadable, or wrong arguments.\n";

// Rows read and rendered at a time: about a megabyte, at least one row.
constexpr size_t kBlockBytes = 1 << 20;

[[gnu::format(printf, 2, 3)]] void say(FILE* err, const char* format, ...) {
  std::fputs("kolvdump: ", err);
  va_list args;
  va_start(args, format);
  std::vfprintf(err, format, args);
  va_end(args);
  std::fputc('\n', err);
}

unsigned long long ull(uint64_t v) {
  return static_cast<unsigned long long>(v);
}

// One line for what is wrong with the file.
void report(const Problem& p, const char* name, FILE* err) {
  switch (p.fault) {
    case Fault::kNone:
      break;
    case Fault::kCannotRead:
      say(err, "cannot read %s: %s", name, std::strerror(p.error));
      break;
    case Fault::kTooShort:
      say(err, "%s is too short for a data set header (%llu bytes)", name, ull(p.a));
      break;
    case Fault::kUnfinished:
      say(err, "%s is an unfinished data set: its header was never written", name);
      break;
    case Fault::kNotDataSet:
      say(err, "%s is not a data set", name);
      break;
    case Fault::kVersion92:
      say(err, "%s is a version-92 data set, not version 96", name);
      break;
    case Fault::kOtherOrder:
      say(err, "%s was written in the other byte order", name);
      break;
    case Fault::kBadOrderMark:
      say(err, "%s has an unrecognised byte-order mark", name);
      break;
    case Fault::kElementType:
      say(err, "%s has an unknown element type (code %llu, size %llu)", name, ull(p.a), ull(p.b));
      break;
    case Fault::kComplexFlag:
      say(err, "%s has an unknown complex flag (%llu)", name, ull(p.a));
      break;
    case Fault::kDataOffset:
      say(err, "%s gives data offset %llu, but %llu columns put the data at %llu", name, ull(p.a),
          ull(p.b), ull(p.c));
      break;
    case Fault::kShortBlock:
      say(err, "%s is too short for its block of %llu variables", name, ull(p.a));
      break;
    case Fault::kTypeByte:
      say(err, "%s gives type byte %llu to variable %llu", name, ull(p.a), ull(p.b));
      break;
  }
}

void report_rows_claimed(uint32_t claimed, uint64_t held, FILE* err) {
  say(err, "header claims %u rows but the file holds %llu", claimed, ull(held));
}

void report_trailing(const char* name, uint64_t bytes, FILE* err) {
  say(err, "%s ends with %llu bytes that do not make a whole row", name, ull(bytes));
}

bool report_column_choice(const ColumnChoice& choice, const DataSet& ds, const char* name,
                          FILE* err) {
  const char* item = choice.item.c_str();
  switch (choice.error) {
    case ColumnChoice::Error::kNone:
      return true;
    case ColumnChoice::Error::kEmptyItem:
      say(err, "--columns has an empty item: %s", item);
      break;
    case ColumnChoice::Error::kNoSuchName:
      say(err, "%s has no variable named %s", name, item);
      break;
    case ColumnChoice::Error::kNumberOutOfRange:
      say(err, "%s has no variable %s (its variables are numbered 1 to %zu)", name, item,
          ds.variables.size());
      break;
    case ColumnChoice::Error::kTwice:
      say(err, "--columns names variable %s twice", item);
      break;
  }
  return false;
}

bool iequal(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'a' && x <= 'z') x = static_cast<char>(x - 'a' + 'A');
    if (y >= 'a' && y <= 'z') y = static_cast<char>(y - 'a' + 'A');
    if (x != y) return false;
  }
  return true;
}

bool parse_count(std::string_view text, uint64_t& value) {
  if (text.empty() || text.size() > 19) return false;
  value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + static_cast<uint64_t>(c - '0');
  }
  return true;
}

// The rows to show: from row `first` (from 0), at most `count`.
struct RowSpan {
  uint64_t first = 0;
  uint64_t count = 0;
};

RowSpan row_span(const Options& o) {
  RowSpan span;
  span.first = o.first - 1;
  span.count = std::min(o.head, o.last == UINT64_MAX ? UINT64_MAX : o.last - o.first + 1);
  if (o.header_only) span.count = 0;
  return span;
}

// Streams the span's rows block by block into `render`, after `start` has
// seen the first block; stops early when `out` fails. Returns the rows read.
template <typename Start, typename Render>
uint64_t stream_rows(RowReader& reader, const DataSet& ds, RowSpan span, Output& out, Start start,
                     Render render) {
  size_t block_rows = std::max<size_t>(1, kBlockBytes / std::max<uint64_t>(1, ds.row_bytes));
  std::vector<uint8_t> block;
  uint64_t done = 0;
  bool first_block = true;
  if (span.count > 0 && ds.row_bytes > 0 && reader.skip_to(span.first)) {
    block.resize(block_rows * static_cast<size_t>(ds.row_bytes));
    while (done < span.count && !out.failed()) {
      size_t want = static_cast<size_t>(std::min<uint64_t>(block_rows, span.count - done));
      size_t got = reader.read(block.data(), want);
      if (first_block) start(block.data(), got);
      first_block = false;
      render(block.data(), got, span.first + done + 1);
      done += got;
      if (got < want) break;
    }
  }
  if (first_block) start(block.data(), 0);
  return done;
}

// Ends the output: flushes it and says why it failed, unless the reader of
// a pipe went away (then quietly). Returns false when the output failed.
bool finish_output(Output& out, const char* what, FILE* err, int& status) {
  out.flush();
  if (!out.failed()) return true;
  if (out.error() == EPIPE) {
    status = kExitOk;
  } else {
    say(err, "cannot write %s: %s", what, std::strerror(out.error()));
    status = kExitNotDataSet;
  }
  return false;
}

// The closing check of every view: the rows the file holds against the
// header's count, and bytes that make no whole row.
int check_rows(RowReader& reader, const DataSet& ds, const char* name, FILE* err, bool one_line) {
  RowCount c = reader.count();
  if (c.error != 0) {
    say(err, "cannot read %s: %s", name, std::strerror(c.error));
    return one_line ? kExitRowMismatch : kExitNotDataSet;
  }
  int status = kExitOk;
  if (c.rows != ds.header.rows) {
    report_rows_claimed(ds.header.rows, c.rows, err);
    status = kExitRowMismatch;
    if (one_line) return status;
  }
  if (c.trailing != 0) {
    report_trailing(name, c.trailing, err);
    status = kExitRowMismatch;
  }
  return status;
}

int dump_text(RowReader& reader, const DataSet& ds, const std::vector<uint32_t>& columns,
              const std::string& name, const Options& o, FILE* out_stream, FILE* err) {
  Output out(out_stream);
  write_header(ds, name, out);
  write_variables(ds, out);
  RowSpan span = row_span(o);
  uint64_t held = ds.size_known ? reader.count().rows : ds.header.rows;
  TextLayout layout;
  stream_rows(
      reader, ds, span, out,
      [&](const uint8_t* sample, size_t n) {
        if (o.header_only) return;
        uint64_t last = std::max<uint64_t>(span.first + n, std::min(held, span.first + span.count));
        layout = plan_text(ds, columns, sample, n, last, o.na.value_or("."));
        write_labels(ds, layout, out);
      },
      [&](const uint8_t* rows, size_t n, uint64_t number) {
        write_text_rows(ds, layout, rows, n, number, out);
      });
  int status = kExitOk;
  if (!finish_output(out, "standard output", err, status)) return status;
  return check_rows(reader, ds, name.c_str(), err, false);
}

int dump_csv(RowReader& reader, const DataSet& ds, const std::vector<uint32_t>& columns,
             const std::string& name, const Options& o, FILE* out_stream, FILE* err) {
  Output out(out_stream);
  CsvLayout layout = plan_csv(columns, o.na.value_or(""));
  if (o.names) write_csv_names(ds, layout, out);
  stream_rows(
      reader, ds, row_span(o), out, [](const uint8_t*, size_t) {},
      [&](const uint8_t* rows, size_t n, uint64_t) { write_csv_rows(ds, layout, rows, n, out); });
  int status = kExitOk;
  if (!finish_output(out, "standard output", err, status)) return status;
  return check_rows(reader, ds, name.c_str(), err, false);
}

int dump_summary(RowReader& reader, const DataSet& ds, const std::vector<uint32_t>& columns,
                 const std::string& name, const Options& o, FILE* out_stream, FILE* err) {
  Output out(out_stream);
  Summary summary(ds, columns);
  stream_rows(
      reader, ds, row_span(o), out, [](const uint8_t*, size_t) {},
      [&](const uint8_t* rows, size_t n, uint64_t) { summary.add(rows, n); });
  Drawing drawing = o.ascii || !locale_is_utf8() ? Drawing::kAscii : Drawing::kBlocks;
  if (o.mode == Mode::kCsv) {
    summary.write_csv(o.names, drawing, out);
  } else {
    summary.write_text(name, drawing, out);
  }
  int status = kExitOk;
  if (!finish_output(out, "standard output", err, status)) return status;
  return check_rows(reader, ds, name.c_str(), err, false);
}

int dump_npy(RowReader& reader, const DataSet& ds, const std::vector<uint32_t>& columns,
             const std::string& name, const Options& o, FILE* err) {
  RowSpan span = row_span(o);
  // The row count goes in the header: known from the file's size, else
  // counted while writing and put in a header padded to the same room.
  uint64_t expected = UINT64_MAX;
  if (ds.size_known) {
    uint64_t held = reader.count().rows;
    expected = held > span.first ? std::min(held - span.first, span.count) : 0;
    if (ds.row_bytes == 0) expected = 0;
  }
  std::string header = npy_header(ds, columns, expected);
  if (header.size() - 10 > 0xFFFF) {
    say(err, "%s has too many columns for a .npy header; choose fewer with --columns",
        name.c_str());
    return kExitNotDataSet;
  }
  FILE* file = std::fopen(o.npy.c_str(), "wb");
  if (file == nullptr) {
    say(err, "cannot create %s: %s", o.npy.c_str(), std::strerror(errno));
    return kExitNotDataSet;
  }
  std::unique_ptr<FILE, int (*)(FILE*)> closer(file, &std::fclose);
  int status = kExitOk;
  uint64_t written = 0;
  {
    Output out(file);
    out.put(header);
    written = stream_rows(
        reader, ds, span, out, [](const uint8_t*, size_t) {},
        [&](const uint8_t* rows, size_t n, uint64_t) {
          write_npy_rows(ds, columns, rows, n, out);
        });
    if (!finish_output(out, o.npy.c_str(), err, status)) return kExitNotDataSet;
  }
  if (written != expected) {
    std::string actual = npy_header(ds, columns, written, header.size());
    if (std::fseek(file, 0, SEEK_SET) != 0 ||
        std::fwrite(actual.data(), 1, actual.size(), file) != actual.size() ||
        std::fflush(file) != 0) {
      say(err, "cannot write %s: %s", o.npy.c_str(), std::strerror(errno));
      return kExitNotDataSet;
    }
  }
  if (std::fclose(closer.release()) != 0) {
    say(err, "cannot write %s: %s", o.npy.c_str(), std::strerror(errno));
    return kExitNotDataSet;
  }
  return check_rows(reader, ds, name.c_str(), err, false);
}

// The value of an option: "--opt VALUE" or "--opt=VALUE".
bool option_value(int argc, const char* const* argv, int& i, std::string_view option,
                  std::string& value, bool& matched) {
  std::string_view arg = argv[i];
  matched = false;
  if (arg == option) {
    matched = true;
    if (i + 1 >= argc) return false;
    value = argv[++i];
    return true;
  }
  if (arg.size() > option.size() && arg.substr(0, option.size()) == option &&
      arg[option.size()] == '=') {
    matched = true;
    value = arg.substr(option.size() + 1);
    return true;
  }
  return false;
}

int usage_error(FILE* err) {
  std::fputs(kUsage, err);
  return kExitNotDataSet;
}

}  // namespace

ColumnChoice choose_columns(const DataSet& ds, std::string_view list) {
  ColumnChoice choice;
  std::vector<bool> taken(ds.variables.size(), false);
  size_t start = 0;
  while (true) {
    size_t comma = list.find(',', start);
    std::string_view item = list.substr(
        start, comma == std::string_view::npos ? std::string_view::npos : comma - start);
    choice.item = item;
    if (item.empty()) {
      choice.item = list;
      choice.error = ColumnChoice::Error::kEmptyItem;
      return choice;
    }
    size_t variable = ds.variables.size();
    uint64_t number = 0;
    if (item.find_first_not_of("0123456789") == std::string_view::npos) {
      if (!parse_count(item, number) || number == 0 || number > ds.variables.size()) {
        choice.error = ColumnChoice::Error::kNumberOutOfRange;
        return choice;
      }
      variable = static_cast<size_t>(number - 1);
    } else {
      for (size_t v = 0; v < ds.variables.size(); ++v) {
        if (iequal(ds.variables[v].name, item)) {
          variable = v;
          break;
        }
      }
      if (variable == ds.variables.size()) {
        choice.error = ColumnChoice::Error::kNoSuchName;
        return choice;
      }
    }
    if (taken[variable]) {
      choice.error = ColumnChoice::Error::kTwice;
      return choice;
    }
    taken[variable] = true;
    uint32_t v = static_cast<uint32_t>(variable);
    if (ds.complex) {
      choice.columns.push_back(2 * v);
      choice.columns.push_back(2 * v + 1);
    } else {
      choice.columns.push_back(v);
    }
    if (comma == std::string_view::npos) break;
    start = comma + 1;
  }
  choice.item.clear();
  return choice;
}

bool parse_row_range(std::string_view text, uint64_t& first, uint64_t& last) {
  size_t colon = text.find(':');
  if (colon == std::string_view::npos) return false;
  if (!parse_count(text.substr(0, colon), first) || first == 0) return false;
  std::string_view tail = text.substr(colon + 1);
  if (tail.empty()) {
    last = UINT64_MAX;
    return true;
  }
  return parse_count(tail, last) && last >= first;
}

std::string data_set_path(const std::string& name) {
  if (name.empty() || kolv::hasext(name.c_str()) != 0) return name;
  std::string with_dat = name + ".dat";
  struct stat st;
  if (stat(with_dat.c_str(), &st) != 0 && stat(name.c_str(), &st) == 0) return name;
  return with_dat;
}

int dump(FILE* in, const std::string& name, const Options& o, FILE* out, FILE* err) {
  const bool check = o.mode == Mode::kCheck;
  DataSet ds;
  Problem problem = open_data_set(in, ds);
  if (problem.fault != Fault::kNone) {
    report(problem, name.c_str(), err);
    return check ? kExitRowMismatch : kExitNotDataSet;
  }
  RowReader reader(in, ds);
  if (check) return check_rows(reader, ds, name.c_str(), err, true);

  std::vector<uint32_t> columns;
  if (o.columns) {
    ColumnChoice choice = choose_columns(ds, *o.columns);
    if (!report_column_choice(choice, ds, name.c_str(), err)) return kExitNotDataSet;
    columns = std::move(choice.columns);
  } else {
    for (uint32_t c = 0; c < ds.columns.size(); ++c) columns.push_back(c);
  }
  if (o.summary) return dump_summary(reader, ds, columns, name, o, out, err);
  switch (o.mode) {
    case Mode::kCsv:
      return dump_csv(reader, ds, columns, name, o, out, err);
    case Mode::kNpy:
      return dump_npy(reader, ds, columns, name, o, err);
    default:
      return dump_text(reader, ds, columns, name, o, out, err);
  }
}

// A journal beside the data set: an append that has not finished (still
// running, or stopped by a kill or a crash). The data set is shown as the
// journal says it was before that append; --check reports it pending.
int dump_through_journal(FILE* in, const std::string& path, const Options& o, FILE* out,
                         FILE* err) {
  kolv::JournalImage image;
  const std::string journal = kolv::journal_path(path.c_str());
  switch (kolv::read_journal(path.c_str(), ::fileno(in), image)) {
    case kolv::JournalState::kNone:
      return dump(in, path, o, out, err);
    case kolv::JournalState::kDamaged:
      say(err, "%s: journal %s fails its checksum: the data set may hold an unfinished append",
          path.c_str(), journal.c_str());
      if (o.mode == Mode::kCheck) return kExitRowMismatch;
      return dump(in, path, o, out, err);
    case kolv::JournalState::kHot:
      break;
  }
  if (o.mode == Mode::kCheck) {
    say(err,
        "%s: an interrupted append is pending (%s); the next kolv APPEND onto it rolls it back",
        path.c_str(), journal.c_str());
    return kExitRowMismatch;
  }
  FILE* view = open_journal_view(in, image);
  if (view == nullptr) {
    say(err, "%s: an interrupted append is pending (%s) and cannot be read around", path.c_str(),
        journal.c_str());
    return kExitNotDataSet;
  }
  say(err, "%s: an interrupted append is pending (%s); shown as it was before it", path.c_str(),
      journal.c_str());
  const int status = dump(view, path, o, out, err);
  std::fclose(view);
  return status;
}

namespace {

// The options taken together, after each was read: false after saying what
// does not go together (or that no data set was named).
bool options_agree(Options& o, bool no_header, const char* text_only, const char* mode_option,
                   bool have_file, FILE* err) {
  if (no_header) {
    if (o.mode != Mode::kCsv) {
      say(err, "--no-header needs --csv");
      return false;
    }
    o.names = false;
  }
  if (text_only != nullptr && (o.mode == Mode::kNpy || o.mode == Mode::kCheck)) {
    say(err, "%s cannot be used with %s", text_only, mode_option);
    return false;
  }
  if (o.summary && (o.mode == Mode::kNpy || o.mode == Mode::kCheck || text_only != nullptr)) {
    say(err, "--summary cannot be used with %s", text_only != nullptr ? text_only : mode_option);
    return false;
  }
  if (o.ascii && !o.summary) {
    say(err, "--ascii needs --summary");
    return false;
  }
  if (o.mode == Mode::kCheck &&
      (o.columns || o.head != UINT64_MAX || o.first != 1 || o.last != UINT64_MAX)) {
    say(err, "--check reads no rows out: --columns, --rows and --head do not apply");
    return false;
  }
  if (!have_file) {
    say(err, "no data set named");
    return false;
  }
  return true;
}

// Opens the data set that `file` names and shows it as the options ask.
int open_and_dump(const std::string& file, const Options& o, FILE* out, FILE* err) {
  std::string path = data_set_path(file);
  FILE* in = std::fopen(path.c_str(), "rb");
  if (in == nullptr) {
    say(err, "cannot open %s: %s", path.c_str(), std::strerror(errno));
    return o.mode == Mode::kCheck ? kExitRowMismatch : kExitNotDataSet;
  }
  int status = dump_through_journal(in, path, o, out, err);
  std::fclose(in);
  return status;
}

}  // namespace

int run(int argc, const char* const* argv, FILE* out, FILE* err) {
  Options o;
  std::string file;
  bool have_file = false;
  bool options_done = false;
  const char* mode_option = nullptr;
  const char* text_only = nullptr;  // an option that needs the text view or CSV
  bool no_header = false;
  auto set_mode = [&](Mode mode, const char* option) {
    if (mode_option != nullptr && o.mode != mode) {
      say(err, "%s cannot be used with %s", option, mode_option);
      return false;
    }
    o.mode = mode;
    mode_option = option;
    return true;
  };
  for (int i = 1; i < argc; ++i) {
    std::string_view arg = argv[i];
    if (options_done || arg.size() < 2 || arg[0] != '-') {
      if (have_file) {
        say(err, "one file only: %s and %s", file.c_str(), argv[i]);
        return usage_error(err);
      }
      file = argv[i];
      have_file = true;
      continue;
    }
    std::string value;
    bool matched = false;
    bool ok = true;
    if (arg == "--") {
      options_done = true;
    } else if (arg == "--help" || arg == "-h") {
      std::fputs(kHelp, out);
      return kExitOk;
    } else if (arg == "--version") {
      std::fputs("kolvdump (kolv) " KOLVDUMP_VERSION "\n", out);
      return kExitOk;
    } else if (arg == "--csv") {
      ok = set_mode(Mode::kCsv, "--csv");
    } else if (arg == "--check") {
      ok = set_mode(Mode::kCheck, "--check");
    } else if (arg == "--summary") {
      o.summary = true;
    } else if (arg == "--ascii") {
      o.ascii = true;
    } else if (arg == "--header-only") {
      o.header_only = true;
      text_only = "--header-only";
    } else if (arg == "--no-header") {
      no_header = true;
    } else if (ok = option_value(argc, argv, i, "--npy", value, matched); matched) {
      if (ok) {
        o.npy = value;
        ok = set_mode(Mode::kNpy, "--npy");
      }
    } else if (ok = option_value(argc, argv, i, "--na", value, matched); matched) {
      if (ok) o.na = value;
      text_only = "--na";
    } else if (ok = option_value(argc, argv, i, "--columns", value, matched); matched) {
      if (ok) o.columns = value;
    } else if (ok = option_value(argc, argv, i, "--head", value, matched); matched) {
      if (ok && !parse_count(value, o.head)) {
        say(err, "--head needs a number of rows, not %s", value.c_str());
        return usage_error(err);
      }
    } else if (ok = option_value(argc, argv, i, "--rows", value, matched); matched) {
      if (ok && !parse_row_range(value, o.first, o.last)) {
        say(err, "--rows needs FIRST:LAST, rows from 1 with FIRST <= LAST, not %s", value.c_str());
        return usage_error(err);
      }
    } else {
      say(err, "unknown option %s", argv[i]);
      return usage_error(err);
    }
    if (!ok) {
      if (matched) say(err, "%s needs a value", argv[i]);
      return usage_error(err);
    }
  }
  if (!options_agree(o, no_header, text_only, mode_option, have_file, err)) return usage_error(err);
  return open_and_dump(file, o, out, err);
}

}  // namespace kolvdump

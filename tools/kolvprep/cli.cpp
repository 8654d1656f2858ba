#include "cli.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "cmdfile.hpp"
#include "detect.hpp"
#include "rewrite.hpp"
#include "source.hpp"

#ifndef KOLVPREP_VERSION
#define KOLVPREP_VERSION "0"
#endif

namespace kolvprep {

namespace {

constexpr const char* kUsage =
    "usage: kolvprep [--name NAME] [--force] [--full] [--delimiter C] [--quote C]\n"
    "                [--header N | --no-header] [--skip N] [--cuts A-B,...]\n"
    "                [--text-columns LIST] [--numeric-columns LIST]\n"
    "                [--missing TOKEN,...] [--misfits=reject|pad] FILE\n"
    "       kolvprep --text OPTIONS FILE\n"
    "       kolvprep --help | --version\n";

constexpr const char* kHelp =
    "kolvprep looks at a text file of values and writes NAME.cmd, a kolv command\n"
    "file that converts it into NAME.dat; the last line it prints is the shell\n"
    "command that does the conversion and checks the data set. Every choice it\n"
    "guesses can be given instead, as \"--skip 2\" or \"--skip=2\":\n"
    "\n"
    "  --name NAME          name of NAME.cmd, NAME.dat and NAME.rejects (default:\n"
    "                       FILE's base name without its extension)\n"
    "  --force              replace an existing NAME.cmd\n"
    "  --full               read the whole file (default: a sample of a few MiB)\n"
    "  --delimiter C        , ; | tab blank, or any other single byte\n"
    "  --quote C            \" ' or none\n"
    "  --header N           N header rows (--no-header: none)\n"
    "  --skip N             lines before the table, dropped\n"
    "  --cuts A-B,...       fixed columns, 1-based inclusive byte positions\n"
    "  --text-columns LIST  columns read as character (numbers or header names)\n"
    "  --numeric-columns LIST  columns read as numbers\n"
    "  --missing TOKEN,...  further tokens for a missing value\n"
    "  --misfits=reject     records that do not fit the table go to NAME.rejects\n"
    "  --misfits=pad        they are kept: absent fields missing, extra dropped\n"
    "  --text               write FILE in the form the command file reads (its\n"
    "                       options are those kolvprep prints; see kolvprep(1))\n"
    "  --help, --version\n";

void say(FILE* err, const std::string& text) {
  std::fprintf(err, "kolvprep: %s\n", text.c_str());
}

// Writes to a file descriptor; false on any failure (a closed pipe included).
bool write_all(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

int run_text(const std::vector<std::string>& options, const std::string& file, FILE* out,
             FILE* err) {
  TextOptions o;
  std::string error;
  for (const std::string& a : options) {
    if (!parse_text_option(a, o, error)) {
      say(err, error);
      return kExitUsage;
    }
  }
  if (!finish_text_options(o, error)) {
    say(err, error);
    return kExitUsage;
  }
  std::unique_ptr<Source> source = open_source(file, error);
  if (!source) {
    say(err, file + ": " + error);
    return kExitBadInput;
  }
  // A rejects file of an earlier run would be taken for this one's.
  if (!o.rejects.empty()) ::unlink(o.rejects.c_str());
  std::fflush(out);
  const int out_fd = ::fileno(out);
#ifdef F_SETPIPE_SZ
  // A larger pipe lets the rewrite and kolv run with fewer switches between
  // them; where it cannot be had, the pipe stays as it is.
  struct stat st;
  if (::fstat(out_fd, &st) == 0 && S_ISFIFO(st.st_mode)) ::fcntl(out_fd, F_SETPIPE_SZ, 1 << 20);
#endif
  bool closed = false;
  int write_errno = 0;
  int rejects_fd = -1;
  bool rejects_failed = false;
  Rewriter rw(
      o,
      [&](const char* data, size_t size) {
        if (write_all(out_fd, data, size)) return true;
        closed = true;
        write_errno = errno;
        return false;
      },
      [&](const std::string& w) { say(err, file + ": " + w); },
      [&](const char* data, size_t size) {
        if (o.rejects.empty() || rejects_failed) return true;
        if (rejects_fd < 0)
          rejects_fd = ::open(o.rejects.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        if (rejects_fd < 0 || !write_all(rejects_fd, data, size)) {
          rejects_failed = true;
          say(err, o.rejects + ": cannot write: " + std::strerror(errno));
        }
        return true;
      });
  std::vector<char> buffer(size_t{1} << 20);
  int status = kExitOk;
  for (;;) {
    size_t got = 0;
    if (!source->read(buffer.data(), buffer.size(), got, error)) {
      say(err, file + ": " + error);
      status = kExitBadInput;
      break;
    }
    if (got == 0 || !rw.feed(buffer.data(), got)) break;
  }
  if (!closed) rw.finish();
  if (rejects_fd >= 0 && ::close(rejects_fd) != 0) rejects_failed = true;
  if (rw.rejected() != 0) {
    say(err, file + ": " + std::to_string(rw.rejected()) +
                 (rw.rejected() == 1 ? " record" : " records") + " set aside" +
                 (o.rejects.empty() ? "" : " into " + o.rejects));
  }
  // A reader that went away (EPIPE) ends the rewrite without a word.
  if (closed && write_errno != EPIPE) {
    say(err, std::string("write error: ") + std::strerror(write_errno));
    return kExitBadInput;
  }
  if (rejects_failed) return kExitBadInput;
  return status;
}

std::string default_name(const std::string& file) {
  std::string base = file;
  while (base.size() > 1 && base.back() == '/') base.pop_back();
  const size_t slash = base.rfind('/');
  if (slash != std::string::npos) base = base.substr(slash + 1);
  // A compressed export's name loses the compression's extension first
  // (data.csv.gz is named data, as data.csv is).
  for (const char* ext : {".gz", ".zst", ".xz", ".bz2"}) {
    const std::string e(ext);
    if (base.size() > e.size() + 1 && base.compare(base.size() - e.size(), e.size(), e) == 0) {
      base.resize(base.size() - e.size());
      break;
    }
  }
  const size_t dot = base.rfind('.');
  if (dot != std::string::npos && dot != 0) base.resize(dot);
  return base;
}

bool usable_name(const std::string& s) {
  if (s.empty() || s.size() > 200) return false;
  for (char c : s) {
    const unsigned char u = static_cast<unsigned char>(c);
    if (c == '/' || c == ';' || c == '@' || u < 32 || u == 127) return false;
  }
  return s.front() != ' ' && s.front() != '-' && s.back() != ' ';
}

int run_prepare(const std::string& file, std::string name, bool force, bool full,
                const Overrides& given, FILE* out, FILE* err) {
  if (file.find('@') != std::string::npos || file.find('\n') != std::string::npos) {
    say(err, file + ": a file name with \"@\" or a line end cannot be written in a command file");
    return kExitBadInput;
  }
  if (name.empty()) name = default_name(file);
  if (!usable_name(name)) {
    say(err, "\"" + name + "\" cannot name a command file; choose one with --name");
    return kExitUsage;
  }
  Sample sample;
  Detection d;
  std::string error;
  if (!read_sample(file, full, SampleSize{}, sample, error) || !detect(sample, given, d, error)) {
    say(err, file + ": " + error + "; no command file written");
    return kExitBadInput;
  }
  const std::string cmd = name + ".cmd";
  const Plan plan = make_plan(d, file, name);
  const std::string text = command_file_text(d, plan, file, name, KOLVPREP_VERSION);
  const int flags = O_WRONLY | O_CREAT | O_TRUNC | (force ? 0 : O_EXCL);
  const int fd = ::open(cmd.c_str(), flags, 0666);
  if (fd < 0) {
    say(err, errno == EEXIST ? cmd + " exists; --force replaces it"
                             : cmd + ": cannot write: " + std::strerror(errno));
    return kExitBadInput;
  }
  const bool written = write_all(fd, text.data(), text.size());
  if (::close(fd) != 0 || !written) {
    say(err, cmd + ": cannot write: " + std::strerror(errno));
    ::unlink(cmd.c_str());
    return kExitBadInput;
  }

  size_t numeric = 0, character = 0, dated = 0;
  for (const Column& c : d.columns) {
    if (c.type == ColumnType::kCharacter)
      ++character;
    else if (c.type == ColumnType::kNumeric)
      ++numeric;
    else
      ++dated;
  }
  std::string r = file + ": " + layout_summary(d) + "\n";
  // Which choices were guessed and which given.
  std::string guessed, chosen;
  auto choice = [&](bool given_here, const std::string& what) {
    std::string& list = given_here ? chosen : guessed;
    list += (list.empty() ? "" : ", ") + what;
  };
  choice(d.layout_given, d.layout == Layout::kFixed ? "fixed columns" : "delimiter");
  if (d.layout != Layout::kFixed) choice(d.quote_given, "quote");
  choice(d.header_given,
         std::to_string(d.header_rows) + (d.header_rows == 1 ? " header row" : " header rows"));
  choice(d.skip_given, "lines before the table");
  // Columns given a type: named, or counted when the names would run long.
  std::string names[2];
  size_t counts[2] = {0, 0};
  for (const Column& c : d.columns) {
    if (!c.given_type) continue;
    const int k = c.type == ColumnType::kCharacter ? 0 : 1;
    names[k] += (names[k].empty() ? "" : " ") + c.name;
    ++counts[k];
  }
  for (int k = 0; k < 2; ++k) {
    if (counts[k] == 0) continue;
    const char* kind = k == 0 ? "text columns" : "numeric columns";
    choice(true, names[k].size() <= 30 ? std::string(kind) + " " + names[k]
                                       : std::to_string(counts[k]) + " " + kind);
  }
  if (!d.missing.empty()) choice(true, "missing tokens");
  if (d.pad) choice(true, "misfits padded");
  if (!chosen.empty()) r += "given: " + chosen + "\n";
  r += "guessed: " + (guessed.empty() ? std::string("nothing") : guessed) + "\n";
  r += std::to_string(d.data_lines) + (d.data_lines == 1 ? " record" : " records") +
       (d.whole_file ? "" : " in the sample") + "; " + std::to_string(d.columns.size()) +
       (d.columns.size() == 1 ? " column: " : " columns: ") + std::to_string(numeric) +
       " numeric, " + std::to_string(character) + " character";
  if (dated) r += ", " + std::to_string(dated) + " of dates or times";
  r += "\n";
  for (const std::string& n : report_notes(d, plan)) r += "note: " + n + "\n";
  for (const std::string& w : report_warnings(d, plan)) r += "warning: " + w + "\n";
  r += "wrote " + cmd +
       (plan.direct ? " (kolv reads the file as it is)"
                    : " (kolv reads the text kolvprep --text writes)") +
       "\n";
  r += plan.command + "\n";
  std::fputs(r.c_str(), out);
  return std::fflush(out) == 0 || errno == EPIPE ? kExitOk : kExitBadInput;
}

}  // namespace

namespace {

// A comma-separated list of the command line.
std::vector<std::string> split_list(const std::string& text) {
  std::vector<std::string> out;
  size_t at = 0;
  for (;;) {
    const size_t comma = text.find(',', at);
    out.push_back(text.substr(at, comma == std::string::npos ? std::string::npos : comma - at));
    if (comma == std::string::npos) break;
    at = comma + 1;
  }
  return out;
}

bool read_number(const std::string& text, long max, long& value) {
  if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos)
    return false;
  value = std::stol(text);
  return value <= max;
}

// One choice of the command line into `given`; false with a reason.
bool take_override(const std::string& key, const std::string& value, Overrides& given,
                   std::string& error) {
  error = "cannot read " + key + " " + value;
  if (key == "--delimiter") {
    given.layout_given = true;
    given.delimiter = 0;
    if (value == "," || value == "comma") {
      given.layout = Layout::kComma;
    } else if (value == ";" || value == "semicolon") {
      given.layout = Layout::kSemicolon;
    } else if (value == "|" || value == "pipe") {
      given.layout = Layout::kPipe;
    } else if (value == "tab" || value == "\t") {
      given.layout = Layout::kTab;
    } else if (value == "blank") {
      given.layout = Layout::kBlank;
    } else if (value.size() == 1 && value[0] != '\n' && value[0] != '\r' && value[0] != ' ') {
      given.layout = Layout::kOther;
      given.delimiter = value[0];
    } else {
      error += " (one byte, or tab or blank)";
      return false;
    }
    return true;
  }
  if (key == "--quote") {
    given.quote_given = true;
    if (value == "\"")
      given.quote = '"';
    else if (value == "'")
      given.quote = '\'';
    else if (value == "none")
      given.quote = 0;
    else
      return (error += " (\", ' or none)"), false;
    return true;
  }
  long n = 0;
  if (key == "--header") {
    if (!read_number(value, 100, n)) return false;
    given.header = static_cast<int>(n);
    return true;
  }
  if (key == "--skip") {
    if (!read_number(value, 100000000, n)) return false;
    given.skip = n;
    return true;
  }
  if (key == "--cuts") {
    given.cuts.clear();
    size_t last_end = 0;
    for (const std::string& item : split_list(value)) {
      const size_t dash = item.find('-');
      long a = 0, b = 0;
      if (dash == std::string::npos || !read_number(item.substr(0, dash), long(kMaxLine), a) ||
          !read_number(item.substr(dash + 1), long(kMaxLine), b) || a == 0 || b < a ||
          size_t(a) <= last_end) {
        error += " (A-B,... with 1 <= A <= B, in order, not overlapping)";
        return false;
      }
      last_end = size_t(b);
      given.cuts.push_back({size_t(a - 1), size_t(b - a + 1)});
    }
    return true;
  }
  if (key == "--text-columns" || key == "--numeric-columns") {
    auto& list = key == "--text-columns" ? given.text_columns : given.numeric_columns;
    for (const std::string& item : split_list(value)) {
      if (item.empty()) return false;
      list.push_back(item);
    }
    return true;
  }
  if (key == "--missing") {
    for (const std::string& item : split_list(value)) {
      if (item.empty() || item.find_first_of(" \t\n\r\"'") != std::string::npos) {
        error += " (tokens without blanks or quotes)";
        return false;
      }
      given.missing.push_back(item);
    }
    return true;
  }
  if (key == "--misfits") {
    if (value != "pad" && value != "reject") return (error += " (reject or pad)"), false;
    given.pad = value == "pad";
    return true;
  }
  error = "unknown option " + key;
  return false;
}

bool is_override(const std::string& key) {
  for (const char* k : {"--delimiter", "--quote", "--header", "--skip", "--cuts", "--text-columns",
                        "--numeric-columns", "--missing", "--misfits"})
    if (key == k) return true;
  return false;
}

}  // namespace

int run(int argc, const char* const* argv, FILE* out, FILE* err) {
  bool text = false, force = false, full = false, options_done = false;
  std::string name, file;
  std::vector<std::string> text_options;
  std::vector<std::pair<std::string, std::string>> choices;
  bool have_file = false;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (!options_done && a.size() > 1 && a[0] == '-') {
      const size_t eq = a.find('=');
      const std::string key = a.substr(0, eq);
      if (a == "--help" || a == "-h") {
        std::fputs(kUsage, out);
        std::fputs("\n", out);
        std::fputs(kHelp, out);
        return kExitOk;
      } else if (a == "--version") {
        std::fprintf(out, "kolvprep %s\n", KOLVPREP_VERSION);
        return kExitOk;
      } else if (a == "--text") {
        text = true;
      } else if (a == "--force") {
        force = true;
      } else if (a == "--full") {
        full = true;
      } else if (a == "--no-header") {
        choices.push_back({"--header", "0"});
      } else if (a == "--name" && i + 1 < argc) {
        name = argv[++i];
      } else if (a.rfind("--name=", 0) == 0) {
        name = a.substr(7);
      } else if (a == "--") {
        options_done = true;
      } else if (eq == std::string::npos && is_override(key) && i + 1 < argc) {
        choices.push_back({key, argv[++i]});
      } else if (eq != std::string::npos && a.rfind("--", 0) == 0) {
        // --opt=VALUE: a choice, or (with --text) an option of the rewrite.
        text_options.push_back(a);
        choices.push_back({key, a.substr(eq + 1)});
      } else {
        say(err, "unknown option " + a + (is_override(key) ? " (it needs a value)" : ""));
        std::fputs(kUsage, err);
        return kExitUsage;
      }
    } else if (!have_file) {
      file = a;
      have_file = true;
    } else {
      say(err, "one FILE only");
      std::fputs(kUsage, err);
      return kExitUsage;
    }
  }
  if (!have_file) {
    std::fputs(kUsage, err);
    return kExitUsage;
  }
  if (text) return run_text(text_options, file, out, err);
  Overrides given;
  std::string error;
  for (const auto& [key, value] : choices) {
    if (!take_override(key, value, given, error)) {
      say(err, error);
      std::fputs(kUsage, err);
      return kExitUsage;
    }
  }
  return run_prepare(file, name, force, full, given, out, err);
}

}  // namespace kolvprep

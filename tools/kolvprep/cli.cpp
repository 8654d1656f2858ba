#include "cli.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "cmdfile.hpp"
#include "detect.hpp"
#include "rewrite.hpp"

#ifndef KOLVPREP_VERSION
#define KOLVPREP_VERSION "0"
#endif

namespace kolvprep {

namespace {

constexpr const char* kUsage =
    "usage: kolvprep [--name NAME] [--force] [--full] FILE\n"
    "       kolvprep --text OPTIONS FILE\n"
    "       kolvprep --help | --version\n";

constexpr const char* kHelp =
    "kolvprep looks at a text file of values and writes NAME.cmd, a kolv command\n"
    "file that converts it into NAME.dat; the last line it prints is the shell\n"
    "command that does the conversion.\n"
    "\n"
    "  --name NAME   name of the command file and the data set (default: FILE's\n"
    "                base name without its extension)\n"
    "  --force       replace an existing NAME.cmd\n"
    "  --full        read the whole file (default: a sample of a few MiB)\n"
    "  --text        write FILE to standard output in the form the command file\n"
    "                reads; OPTIONS (as kolvprep prints them): --layout=L --skip=N\n"
    "                --comment=hash|percent --columns=N --fixed=A-B,...\n"
    "                --date=K,... --time=K,... --datetime=K,...\n"
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
  const int fd = ::open(file.c_str(), O_RDONLY);
  if (fd < 0) {
    say(err, file + ": cannot open: " + std::strerror(errno));
    return kExitBadInput;
  }
  std::fflush(out);
  const int out_fd = ::fileno(out);
#ifdef F_SETPIPE_SZ
  // A larger pipe lets the rewrite and kolv run with fewer switches between
  // them; where it cannot be had, the pipe stays as it is.
  struct stat st;
  if (::fstat(out_fd, &st) == 0 && S_ISFIFO(st.st_mode)) ::fcntl(out_fd, F_SETPIPE_SZ, 1 << 20);
#endif
  bool closed = false;
  Rewriter rw(
      o,
      [&](const char* data, size_t size) {
        if (write_all(out_fd, data, size)) return true;
        closed = true;
        return false;
      },
      [&](const std::string& w) { say(err, file + ": " + w); });
  std::vector<char> buffer(size_t{1} << 20);
  int status = kExitOk;
  for (;;) {
    const ssize_t n = ::read(fd, buffer.data(), buffer.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      say(err, file + ": read error: " + std::strerror(errno));
      status = kExitBadInput;
      break;
    }
    if (n == 0 || !rw.feed(buffer.data(), static_cast<size_t>(n))) break;
  }
  ::close(fd);
  if (!closed) rw.finish();
  // A reader that went away (EPIPE) ends the rewrite without a word.
  if (closed && errno != EPIPE) {
    say(err, std::string("write error: ") + std::strerror(errno));
    return kExitBadInput;
  }
  return status;
}

std::string default_name(const std::string& file) {
  std::string base = file;
  while (base.size() > 1 && base.back() == '/') base.pop_back();
  const size_t slash = base.rfind('/');
  if (slash != std::string::npos) base = base.substr(slash + 1);
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

int run_prepare(const std::string& file, std::string name, bool force, bool full, FILE* out,
                FILE* err) {
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
  if (!read_sample(file, full, SampleSize{}, sample, error) || !detect(sample, d, error)) {
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
  r += std::to_string(d.data_lines) + " data lines" + (d.whole_file ? "" : " in the sample") +
       "; " + std::to_string(d.columns.size()) + " columns: " + std::to_string(numeric) +
       " numeric, " + std::to_string(character) + " character";
  if (dated) r += ", " + std::to_string(dated) + " dates or times";
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

int run(int argc, const char* const* argv, FILE* out, FILE* err) {
  bool text = false, force = false, full = false, options_done = false;
  std::string name, file;
  std::vector<std::string> text_options;
  bool have_file = false;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (!options_done && a.size() > 1 && a[0] == '-') {
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
      } else if (a == "--name" && i + 1 < argc) {
        name = argv[++i];
      } else if (a.rfind("--name=", 0) == 0) {
        name = a.substr(7);
      } else if (a == "--") {
        options_done = true;
      } else if (a.rfind("--", 0) == 0 && a.find('=') != std::string::npos) {
        text_options.push_back(a);
      } else {
        say(err, "unknown option " + a);
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
  if (!text_options.empty()) {
    say(err, text_options.front() + " belongs to --text");
    return kExitUsage;
  }
  return run_prepare(file, name, force, full, out, err);
}

}  // namespace kolvprep

// Fuzz target: kolvprep's reader of records, its detector and its --text
// rewrite. The first byte chooses how the rewrite is fed (the piece size),
// and which dialect the detector is given (none, a quote, a delimiter) and
// the rewrite reads with when the detector refuses; the rest is the file.
// Whatever the bytes, the detector either refuses them with a reason or
// gives a plan whose command file begins with the command it prints, whose
// comments pair up, and whose rewrite options read back; the rewrite gives
// one output line per record it counts and one rejects line per record it
// sets aside (a line number, a tab, the escaped text), the same text
// however it is fed, and never holds more than one record.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_common.hpp"
#include "kolvprep/cmdfile.hpp"
#include "kolvprep/detect.hpp"
#include "kolvprep/rewrite.hpp"

namespace {

using kolv_fuzz::broken;

struct Output {
  std::string out, rejects;
  uint64_t records = 0, rejected = 0;
};

Output rewrite(const std::string& text, const kolvprep::TextOptions& o, size_t piece) {
  Output x;
  kolvprep::Rewriter rw(
      o,
      [&](const char* d, size_t n) {
        x.out.append(d, n);
        return true;
      },
      [](const std::string& w) {
        if (w.empty() || w.find('\n') != std::string::npos) broken("warning is not one line", w);
      },
      [&](const char* d, size_t n) {
        x.rejects.append(d, n);
        return true;
      });
  for (size_t at = 0; at < text.size(); at += piece)
    rw.feed(text.data() + at, std::min(piece, text.size() - at));
  rw.finish();
  x.records = rw.records();
  x.rejected = rw.rejected();
  return x;
}

// Every rejects line: digits, a tab, then text without a raw line end or CR.
void check_rejects(const Output& x) {
  uint64_t lines = 0;
  uint64_t last = 0;
  size_t at = 0;
  while (at < x.rejects.size()) {
    const size_t nl = x.rejects.find('\n', at);
    if (nl == std::string::npos) broken("rejects do not end with a line end", x.rejects);
    const std::string line = x.rejects.substr(at, nl - at);
    const size_t tab = line.find('\t');
    if (tab == 0 || tab == std::string::npos || line.find_first_not_of("0123456789") != tab)
      broken("a rejects line without its line number", line);
    const uint64_t number = std::stoull(line.substr(0, tab));
    if (number == 0 || number < last) broken("rejects out of order", line);
    if (line.find('\r') != std::string::npos) broken("a raw CR in the rejects", line);
    last = number;
    ++lines;
    at = nl + 1;
  }
  if (lines != x.rejected) broken("rejects lines differ from the records set aside");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const size_t piece = 1 + data[0] % 64;
  const int dialect = data[0] / 64;  // 0: guessed; 1: single quote; 2: ';' and no quote; 3: pad
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);

  kolvprep::Sample sample;
  kolvprep::Detection d;
  std::string error;
  kolvprep::Overrides given;
  if (dialect == 1) {
    given.quote_given = true;
    given.quote = '\'';
  } else if (dialect == 2) {
    given.layout_given = true;
    given.layout = kolvprep::Layout::kSemicolon;
    given.quote_given = true;
    given.quote = 0;
  } else if (dialect == 3) {
    given.pad = true;
  }
  kolvprep::TextOptions options;
  if (kolvprep::sample_from_bytes(text, true, text.size(), sample, error) &&
      kolvprep::detect(sample, given, d, error)) {
    if (d.columns.empty()) broken("a detection without columns");
    const kolvprep::Plan plan = kolvprep::make_plan(d, "in.txt", "in");
    const std::string cmd = kolvprep::command_file_text(d, plan, "in.txt", "in", "0");
    if (cmd.rfind("@ run: " + plan.command + " @\n", 0) != 0)
      broken("command file does not begin with its command", cmd.substr(0, 200));
    size_t ats = 0;
    for (char c : cmd) ats += c == '@';
    if (ats % 2 != 0) broken("an open comment in the command file", cmd);
    if (cmd.find(";\n", cmd.find("INVAR")) == std::string::npos)
      broken("INVAR statement not ended", cmd);
    for (const std::string& line : kolvprep::report_warnings(d, plan))
      if (line.find('\n') != std::string::npos) broken("a report line of two lines", line);
    for (const std::string& a : kolvprep::text_options_for(d)) {
      if (!kolvprep::parse_text_option(a, options, error)) broken("option does not read back", a);
    }
  } else {
    if (error.empty() || error.find('\n') != std::string::npos)
      broken("refusal without one line", error);
    std::string e;
    kolvprep::parse_text_option("--columns=3", options, e);
    if (dialect == 1) kolvprep::parse_text_option("--quote=single", options, e);
    if (dialect == 2) kolvprep::parse_text_option("--escape=backslash", options, e);
    if (dialect == 3) kolvprep::parse_text_option("--record-end=cr", options, e);
  }
  if (!kolvprep::finish_text_options(options, error)) broken("options do not finish", error);

  const Output out = rewrite(text, options, piece);
  const Output whole = rewrite(text, options, text.size() + 1);
  if (out.out != whole.out || out.records != whole.records || out.rejects != whole.rejects)
    broken("the rewrite depends on how it is fed");
  kolvprep::TextOptions full_way = options;
  full_way.one_pass = false;
  const Output full = rewrite(text, full_way, piece);
  if (full.out != out.out || full.records != out.records || full.rejects != out.rejects)
    broken("the one-pass copy differs from the full way");
  uint64_t lines = 0;
  for (char c : out.out) lines += c == '\n';
  if (lines != out.records) broken("output lines differ from the records counted");
  if (!out.out.empty() && out.out.back() != '\n') broken("output does not end with a line end");
  check_rejects(out);
  return 0;
}

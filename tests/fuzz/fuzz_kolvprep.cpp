// Fuzz target: kolvprep's detector and its --text rewrite. The first byte
// chooses how the rewrite is fed (the piece size); the rest is the file.
// Whatever the bytes, the detector either refuses them with a reason or
// gives a plan whose command file begins with the command it prints, whose
// comments pair up, and whose rewrite options read back; the rewrite gives
// one output line per record it counts, the same text however it is fed,
// and never holds more than one line.
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

std::string rewrite(const std::string& text, const kolvprep::TextOptions& o, size_t piece,
                    uint64_t* records) {
  std::string out;
  kolvprep::Rewriter rw(
      o,
      [&](const char* d, size_t n) {
        out.append(d, n);
        return true;
      },
      [](const std::string& w) {
        if (w.empty() || w.find('\n') != std::string::npos) broken("warning is not one line", w);
      });
  for (size_t at = 0; at < text.size(); at += piece)
    rw.feed(text.data() + at, std::min(piece, text.size() - at));
  rw.finish();
  *records = rw.records();
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const size_t piece = 1 + data[0] % 64;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);

  kolvprep::Sample sample;
  kolvprep::Detection d;
  std::string error;
  kolvprep::TextOptions options;
  if (kolvprep::sample_from_bytes(text, true, text.size(), sample, error) &&
      kolvprep::detect(sample, d, error)) {
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
    for (const std::string& a : kolvprep::text_options_for(d)) {
      if (!kolvprep::parse_text_option(a, options, error)) broken("option does not read back", a);
    }
  } else {
    if (error.empty() || error.find('\n') != std::string::npos)
      broken("refusal without one line", error);
    std::string e;
    kolvprep::parse_text_option("--columns=3", options, e);
  }
  if (!kolvprep::finish_text_options(options, error)) broken("options do not finish", error);

  uint64_t records = 0, records_whole = 0;
  const std::string out = rewrite(text, options, piece, &records);
  const std::string whole = rewrite(text, options, text.size() + 1, &records_whole);
  if (out != whole || records != records_whole) broken("the rewrite depends on how it is fed");
  kolvprep::TextOptions full_way = options;
  full_way.one_pass = false;
  uint64_t records_full = 0;
  if (rewrite(text, full_way, piece, &records_full) != out || records_full != records)
    broken("the one-pass copy differs from the full way");
  uint64_t lines = 0;
  for (char c : out) lines += c == '\n';
  if (lines != records) broken("output lines differ from the records counted");
  if (!out.empty() && out.back() != '\n') broken("output does not end with a line end");
  return 0;
}

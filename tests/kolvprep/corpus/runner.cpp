#include "runner.hpp"

#include <sys/wait.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>
#include <vector>

#include "kolvdump/reader.hpp"
#include "kolvdump/values.hpp"
#include "kolvprep/detect.hpp"
#include "kolvprep/source.hpp"
#include "support.hpp"

namespace corpus {

namespace {

using kptest::quote;
using kptest::read_file;

// Writes a file and says whether it is there.
bool spill(const std::string& path, const std::string& bytes) {
  kptest::write_file(path, bytes);
  return kptest::file_exists(path);
}

struct Run {
  int status = -1;
  std::string out, err;
};

// Runs `command` in `dir` with `bin_path` first on the PATH; stdout and
// stderr go to files named after `tag` in the folder.
Run run_in(const std::string& dir, const std::string& bin_path, const std::string& command,
           const std::string& tag) {
  const std::string out = dir + "/." + tag + ".out", err = dir + "/." + tag + ".err";
  const std::string full = "cd " + quote(dir) + " && PATH=" + quote(bin_path) + ":\"$PATH\" " +
                           command + " </dev/null >" + quote(out) + " 2>" + quote(err);
  const int status = std::system(full.c_str());
  Run r;
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  r.out = read_file(out);
  r.err = read_file(err);
  return r;
}

std::string last_line(std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  const size_t nl = text.rfind('\n');
  return nl == std::string::npos ? text : text.substr(nl + 1);
}

size_t line_count(const std::string& text) {
  size_t n = 0;
  for (char c : text) n += c == '\n';
  return n + (!text.empty() && text.back() != '\n');
}

// A rejected record's bytes as NAME.rejects writes them: a line end inside
// as \n, a CR as \r, a backslash as \\.
std::string escaped(const std::string& raw) {
  std::string out;
  for (char c : raw) {
    if (c == '\n')
      out += "\\n";
    else if (c == '\r')
      out += "\\r";
    else if (c == '\\')
      out += "\\\\";
    else
      out.push_back(c);
  }
  return out;
}

// The data set as cells, read by kolvdump's reader.
struct Read {
  std::string problem;
  std::vector<std::string> names;
  std::vector<bool> character;
  std::vector<std::vector<Cell>> rows;
  uint64_t header_rows = 0;
};

Read read_data_set(const std::string& path) {
  Read r;
  FILE* in = std::fopen(path.c_str(), "rb");
  if (in == nullptr) {
    r.problem = "no data set " + path;
    return r;
  }
  kolvdump::DataSet ds;
  const kolvdump::Problem p = kolvdump::open_data_set(in, ds);
  if (p.fault != kolvdump::Fault::kNone) {
    std::fclose(in);
    r.problem =
        "the data set does not read (fault " + std::to_string(static_cast<int>(p.fault)) + ")";
    return r;
  }
  r.header_rows = ds.header.rows;
  if (ds.width != 8 || ds.complex) {
    std::fclose(in);
    r.problem = "the data set has " + std::to_string(ds.width) + "-byte elements, not 8";
    return r;
  }
  for (const kolvdump::Column& c : ds.columns) {
    r.names.push_back(c.label);
    r.character.push_back(c.character);
  }
  kolvdump::RowReader rows(in, ds);
  std::vector<uint8_t> row(ds.row_bytes);
  while (rows.read(row.data(), 1) == 1) {
    std::vector<Cell> cells;
    for (size_t j = 0; j < ds.columns.size(); ++j) {
      const uint8_t* e = row.data() + 8 * j;
      Cell cell;
      switch (kolvdump::classify(e, 8, ds.columns[j].character)) {
        case kolvdump::CellKind::kMissing:
          break;
        case kolvdump::CellKind::kText:
          cell.what = Cell::kText;
          cell.text.assign(reinterpret_cast<const char*>(e), kolvdump::text_length(e));
          break;
        case kolvdump::CellKind::kNumber: {
          cell.what = Cell::kNumber;
          const uint64_t bits = kolvdump::load64(e);
          std::memcpy(&cell.number, &bits, 8);
          break;
        }
      }
      cells.push_back(cell);
    }
    r.rows.push_back(cells);
  }
  const kolvdump::RowCount count = rows.count();
  if (rows.error() != 0) r.problem = "reading the rows failed";
  if (count.trailing != 0) r.problem = "bytes after the last whole row";
  std::fclose(in);
  return r;
}

bool same(const Cell& a, const Cell& b) {
  if (a.what != b.what) return false;
  if (a.what == Cell::kText) return a.text == b.text;
  if (a.what == Cell::kNumber) return a.number == b.number;
  return true;
}

std::string fold(std::string s) {
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

// Compares the rows of the data set with `want`; counts what agrees and
// describes the first differences.
std::string compare_rows(const Read& got, const std::vector<std::vector<Cell>>& want, Outcome& o) {
  std::string diff;
  int shown = 0;
  for (size_t r = 0; r < want.size(); ++r) {
    if (r >= got.rows.size()) continue;
    bool all = true;
    for (size_t j = 0; j < want[r].size(); ++j) {
      const bool ok = j < got.rows[r].size() && same(got.rows[r][j], want[r][j]);
      o.cells_right += ok;
      all = all && ok;
      if (!ok && shown < 3) {
        ++shown;
        diff += "record " + std::to_string(r + 1) + " column " + std::to_string(j + 1) + ": want " +
                describe(want[r][j]) + ", got " +
                (j < got.rows[r].size() ? describe(got.rows[r][j]) : std::string("nothing")) + "; ";
      }
    }
    o.records_right += all;
  }
  if (got.rows.size() != want.size())
    diff += std::to_string(got.rows.size()) + " records where " + std::to_string(want.size()) +
            " were due; ";
  return diff;
}

Outcome wrong(Outcome o, const std::string& why) {
  o.score = Score::kWrong;
  o.why = why;
  return o;
}

std::string one_line(std::string s) {
  while (!s.empty() && s.back() == '\n') s.pop_back();
  for (char& c : s)
    if (c == '\n') c = '|';
  return s.size() > 300 ? s.substr(0, 300) + "..." : s;
}

}  // namespace

const char* score_word(Score score) {
  switch (score) {
    case Score::kRight:
      return "right";
    case Score::kRepaired:
      return "repaired";
    case Score::kSetAside:
      return "set aside";
    case Score::kRefused:
      return "refused";
    case Score::kWrong:
      return "wrong";
    case Score::kSkipped:
      return "skipped";
  }
  return "?";
}

bool write_case(const Case& c, const std::string& dir, std::string& error, bool& missing_tool) {
  missing_tool = false;
  std::string truth = "seed ";
  truth += std::to_string(c.seed);
  truth += "\nkind ";
  truth += c.kind;
  truth += "\nfile ";
  truth += c.file;
  truth += "\ndelimiter ";
  truth += c.delimiter == 0      ? std::string("blanks or fixed columns")
           : c.delimiter == '\t' ? std::string("tab")
                                 : std::string(1, c.delimiter);
  truth += ", quote ";
  truth += c.quote == 0 ? std::string("none") : std::string(1, c.quote);
  truth += c.backslash ? " escaped by a backslash" : "";
  truth += ", record end ";
  truth += escaped(c.record_end);
  truth += "\nnames";
  for (const std::string& h : c.header) {
    truth += " [";
    truth += h;
    truth += "]";
  }
  truth += "\n";
  for (size_t r = 0; r < c.rows.size(); ++r) {
    truth += std::to_string(r + 1) + ":";
    for (const Cell& cell : c.rows[r]) {
      truth += ' ';
      truth += describe(cell);
    }
    truth += "\n";
  }
  for (size_t i = 0; i < c.misfit_rows.size(); ++i)
    truth += "misfit record " + std::to_string(c.misfit_rows[i] + 1) + " at line " +
             std::to_string(c.misfit_lines[i]) + ": " + escaped(c.misfit_texts[i]) + "\n";
  if (!spill(dir + "/truth.txt", truth)) {
    error = "cannot write " + dir + "/truth.txt";
    return false;
  }
  if (c.compression.empty()) {
    if (spill(dir + "/" + c.file, c.text)) return true;
    error = "cannot write " + dir + "/" + c.file;
    return false;
  }
  const std::string plain = dir + "/.plain";
  if (!spill(plain, c.text)) {
    error = "cannot write " + plain;
    return false;
  }
  const kolvprep::Compression compression = c.compression == "gzip"   ? kolvprep::Compression::kGzip
                                            : c.compression == "zstd" ? kolvprep::Compression::kZstd
                                            : c.compression == "xz"   ? kolvprep::Compression::kXz
                                                                    : kolvprep::Compression::kBzip2;
  if (!kolvprep::can_read(compression)) {
    missing_tool = true;
    error = "this build of kolvprep reads no " + c.compression +
            " (its library was not found when it was built)";
    return false;
  }
  if (std::system(("command -v " + c.compression + " >/dev/null 2>&1").c_str()) != 0) {
    missing_tool = true;
    error = "the program " + c.compression + " is not on the PATH";
    return false;
  }
  const std::string command = c.compression + " -c " + quote(plain) + " > " +
                              quote(dir + "/" + c.file) + " && rm " + quote(plain);
  if (std::system(command.c_str()) != 0) {
    error = "cannot compress with " + c.compression;
    return false;
  }
  return true;
}

Outcome run_case(const Case& c, const std::string& dir, const std::string& bin_path) {
  Outcome o;
  o.records = c.rows.size();
  for (const auto& row : c.rows) o.cells += row.size();
  std::string error;
  bool missing_tool = false;
  if (!write_case(c, dir, error, missing_tool)) {
    o.score = missing_tool ? Score::kSkipped : Score::kWrong;
    o.why = error;
    return o;
  }
  // A program that hangs fails its case after a minute instead of holding
  // the suite until ctest's own limit.
  const Run prep = run_in(dir, bin_path, "timeout 60 kolvprep --name t " + quote(c.file), "prep");
  if (prep.status == 1) {
    // A refusal is one line on stderr naming the option that settles it.
    if (line_count(prep.err) == 1 && prep.err.rfind("kolvprep: ", 0) == 0 &&
        prep.err.find("--") != std::string::npos) {
      o.score = Score::kRefused;
      o.why = one_line(prep.err);
      return o;
    }
    return wrong(o, "kolvprep exit 1 without one line naming an option: " + one_line(prep.err));
  }
  if (prep.status != 0)
    return wrong(o, "kolvprep exit " + std::to_string(prep.status) + ": " + one_line(prep.err));
  const std::string command = last_line(prep.out);
  // The printed command checks the data set it leaves, so that one short of
  // its header cannot pass in silence.
  const std::string check = "&& kolvdump --check t.dat";
  if (command.size() < check.size() ||
      command.compare(command.size() - check.size(), check.size(), check) != 0)
    return wrong(o, "the printed command does not end with `" + check + "`: " + command);
  const Run conv = run_in(dir, bin_path, "timeout 60 sh -c " + quote(command), "run");
  if (conv.status != 0)
    return wrong(o, "the printed command `" + command + "` exit " + std::to_string(conv.status) +
                        ": " + one_line(conv.err.empty() ? conv.out : conv.err));
  const Read ds = read_data_set(dir + "/t.dat");
  if (!ds.problem.empty()) return wrong(o, ds.problem);
  if (ds.header_rows != ds.rows.size())
    return wrong(o, "the header counts " + std::to_string(ds.header_rows) +
                        " rows, the file holds " + std::to_string(ds.rows.size()));

  // Names, after kolvprep's name rules (kolv folds their case).
  std::vector<std::string> taken, want_names;
  for (size_t j = 0; j < c.header.size(); ++j)
    want_names.push_back(kolvprep::make_name(c.header[j], j + 1, taken));
  std::string names_diff;
  if (ds.names.size() != want_names.size()) {
    names_diff = std::to_string(ds.names.size()) + " columns where " +
                 std::to_string(want_names.size()) + " were due; ";
  } else {
    for (size_t j = 0; j < want_names.size(); ++j)
      if (fold(ds.names[j]) != fold(want_names[j]))
        names_diff += "column " + std::to_string(j + 1) + " named " + ds.names[j] + ", want " +
                      want_names[j] + "; ";
  }

  // The records set aside, from NAME.rejects.
  std::vector<uint64_t> reject_lines;
  std::vector<std::string> reject_texts;
  const std::string rejects = read_file(dir + "/t.rejects");
  std::istringstream lines(rejects);
  for (std::string l; std::getline(lines, l);) {
    const size_t tab = l.find('\t');
    if (tab == std::string::npos) return wrong(o, "a line of t.rejects without a tab: " + l);
    reject_lines.push_back(std::strtoull(l.substr(0, tab).c_str(), nullptr, 10));
    reject_texts.push_back(l.substr(tab + 1));
  }

  std::vector<std::vector<Cell>> want = c.rows;
  if (!reject_lines.empty()) {
    // Every record set aside must be one of the damaged ones, with its
    // line and bytes; the data set is then the truth without them.
    std::set<size_t> dropped;
    for (size_t i = 0; i < reject_lines.size(); ++i) {
      size_t m = 0;
      while (m < c.misfit_lines.size() && c.misfit_lines[m] != reject_lines[i]) ++m;
      if (m == c.misfit_lines.size())
        return wrong(o, "line " + std::to_string(reject_lines[i]) +
                            " was set aside, but no damaged record starts there");
      if (reject_texts[i] != escaped(c.misfit_texts[m]))
        return wrong(o, "line " + std::to_string(reject_lines[i]) + " set aside as `" +
                            reject_texts[i] + "`, its bytes are `" + escaped(c.misfit_texts[m]) +
                            "`");
      dropped.insert(c.misfit_rows[m]);
    }
    want.clear();
    for (size_t r = 0; r < c.rows.size(); ++r)
      if (!dropped.count(r)) want.push_back(c.rows[r]);
    if (prep.out.find("t.rejects") == std::string::npos &&
        conv.err.find("t.rejects") == std::string::npos)
      return wrong(o, "records were set aside and neither report names t.rejects");
  }
  const std::string diff = compare_rows(ds, want, o);
  if (!names_diff.empty() || !diff.empty()) return wrong(o, names_diff + diff);
  o.score = !reject_lines.empty()    ? Score::kSetAside
            : !c.misfit_rows.empty() ? Score::kRepaired
                                     : Score::kRight;
  return o;
}

}  // namespace corpus

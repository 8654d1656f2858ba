#include "support.hpp"

#include <dirent.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

namespace kptest {

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void write_file(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

bool file_exists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

ScratchDir::ScratchDir() {
  const char* tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/kolvprep_test_XXXXXX";
  std::vector<char> buf(pattern.begin(), pattern.end());
  buf.push_back('\0');
  if (mkdtemp(buf.data()) != nullptr) path_ = buf.data();
}

ScratchDir::~ScratchDir() {
  if (path_.empty()) return;
  for (const std::string& e : entries()) unlink((path_ + "/" + e).c_str());
  rmdir(path_.c_str());
}

std::vector<std::string> ScratchDir::entries() const {
  std::vector<std::string> names;
  DIR* d = opendir(path_.c_str());
  if (d == nullptr) return names;
  while (dirent* e = readdir(d)) {
    const std::string n = e->d_name;
    if (n != "." && n != "..") names.push_back(n);
  }
  closedir(d);
  std::sort(names.begin(), names.end());
  return names;
}

std::string quote(const std::string& s) {
  std::string out = "'";
  for (char c : s) {
    if (c == '\'')
      out += "'\\''";
    else
      out.push_back(c);
  }
  return out + "'";
}

Result shell(const std::string& dir, const std::string& command) {
  Result r;
  const std::string out = dir + "/.stdout";
  const std::string err = dir + "/.stderr";
  const std::string bin = std::string(KOLVPREP_BIN_DIR) + ":" + KOLV_BIN_DIR;
  const std::string full = "cd " + quote(dir) + " && PATH=" + quote(bin) + ":\"$PATH\" ; (" +
                           command + ") > " + quote(out) + " 2> " + quote(err);
  const int status = std::system(full.c_str());
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  r.out = read_file(out);
  r.err = read_file(err);
  unlink(out.c_str());
  unlink(err.c_str());
  return r;
}

Result kolvprep(const std::string& dir, const std::string& args) {
  return shell(dir, "kolvprep " + args);
}

std::string last_line(const std::string& text) {
  std::string t = text;
  if (!t.empty() && t.back() == '\n') t.pop_back();
  const size_t nl = t.rfind('\n');
  return nl == std::string::npos ? t : t.substr(nl + 1);
}

namespace {

uint32_t le32(const std::string& b, size_t at) {
  return static_cast<uint32_t>(static_cast<unsigned char>(b[at])) |
         static_cast<uint32_t>(static_cast<unsigned char>(b[at + 1])) << 8 |
         static_cast<uint32_t>(static_cast<unsigned char>(b[at + 2])) << 16 |
         static_cast<uint32_t>(static_cast<unsigned char>(b[at + 3])) << 24;
}

std::string trim(const std::string& s) {
  size_t b = 0, e = s.size();
  while (b < e && (s[b] == ' ' || s[b] == '\t' || s[b] == '\r')) ++b;
  while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t' || s[e - 1] == '\r')) --e;
  return s.substr(b, e - b);
}

bool missing_token(const std::string& v) {
  std::string l;
  for (char c : v) l.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
  return l.empty() || l == "." || l == "?" || l == "na" || l == "n/a" || l == "nan" || l == "null";
}

}  // namespace

DataSet read_data_set(const std::string& path) {
  DataSet ds;
  const std::string b = read_file(path);
  if (b.size() < 128) {
    ds.problem = "shorter than a header: " + std::to_string(b.size()) + " bytes";
    return ds;
  }
  if (le32(b, 0) != 0xFFFFFFFFu || le32(b, 4) != 0 || le32(b, 8) != 0xFFFFFFFFu ||
      le32(b, 28) != 0xABCDEF02u) {
    ds.problem = "no finished header";
    return ds;
  }
  ds.element_size = le32(b, 48);
  ds.rows = le32(b, 80);
  ds.columns = le32(b, 84);
  const uint32_t offset = le32(b, 72);
  const size_t n = ds.columns;
  const size_t pad = n % 8 ? 8 - n % 8 : 0;
  if (offset != 128 + 33 * n + pad) {
    ds.problem = "data offset " + std::to_string(offset) + " disagrees with the column count";
    return ds;
  }
  for (size_t j = 0; j < n; ++j) {
    std::string name = b.substr(128 + 32 * j, 32);
    name.resize(std::strlen(name.c_str()));
    ds.names.push_back(name);
    ds.types.push_back(static_cast<uint8_t>(b[128 + 32 * n + j]));
  }
  if (ds.element_size != 8) {
    ds.problem = "element size " + std::to_string(ds.element_size);
    return ds;
  }
  if (b.size() != offset + static_cast<size_t>(ds.rows) * n * 8) {
    ds.problem = "file size disagrees with the row count";
    return ds;
  }
  for (size_t i = 0; i < static_cast<size_t>(ds.rows) * n; ++i) {
    uint64_t v;
    std::memcpy(&v, b.data() + offset + 8 * i, 8);
    ds.slots.push_back(v);
  }
  return ds;
}

std::vector<std::vector<std::string>> read_records(const std::string& text, const Reading& r) {
  std::vector<std::vector<std::string>> records;
  std::istringstream in(text);
  std::string line;
  size_t number = 0;
  bool first = true;
  while (std::getline(in, line)) {
    ++number;
    if (first && line.compare(0, 3, "\xEF\xBB\xBF") == 0) line.erase(0, 3);
    first = false;
    if (number <= r.skip) continue;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const std::string t = trim(line);
    if (t.empty() || (r.comment != 0 && t[0] == r.comment)) continue;
    std::vector<std::string> fields;
    if (!r.fixed.empty()) {
      for (auto [start, width] : r.fixed) {
        std::string f = start < line.size() ? line.substr(start, width) : "";
        fields.push_back(r.raw_text ? f : trim(f));
      }
      records.push_back(fields);
      continue;
    }
    size_t i = 0;
    const size_t n = line.size();
    auto sep = [&](char c) { return r.delimiter ? c == r.delimiter : (c == ' ' || c == '\t'); };
    for (;;) {
      if (r.delimiter == 0) {
        while (i < n && sep(line[i])) ++i;
        if (i >= n) break;
      }
      std::string f;
      while (i < n && (line[i] == ' ' || line[i] == '\t') && !sep(line[i])) ++i;
      if (i < n && line[i] == '"') {
        ++i;
        while (i < n) {
          if (line[i] == '"' && i + 1 < n && line[i + 1] == '"') {
            f.push_back('"');
            i += 2;
          } else if (line[i] == '"') {
            ++i;
            break;
          } else {
            f.push_back(line[i++]);
          }
        }
        while (i < n && !sep(line[i])) ++i;
      } else {
        while (i < n && !sep(line[i])) f.push_back(line[i++]);
      }
      fields.push_back(trim(f));
      if (i >= n) break;
      ++i;
      if (r.delimiter != 0 && i == n) {
        fields.push_back("");
        break;
      }
    }
    records.push_back(fields);
  }
  return records;
}

Cell expected_cell(const std::string& field, char kind, bool raw_text) {
  Cell c;
  if (kind == 'c' && raw_text) {
    c.text = true;
    c.chars = field.substr(0, 8);
    c.chars.resize(8, '\0');
    return c;
  }
  if (missing_token(trim(field))) {
    c.missing = true;
    return c;
  }
  std::string v = trim(field);
  if (kind == 'c') {
    c.text = true;
    for (char& ch : v) {
      if (ch == ' ' || ch == '\t' || ch == ',') ch = '_';
    }
    c.chars = v.substr(0, 8);
    c.chars.resize(8, '\0');
    return c;
  }
  if (kind == 'd' || kind == 't') {
    std::string digits;
    for (char ch : v) {
      if ((ch >= '0' && ch <= '9') || ch == '.') digits.push_back(ch);
    }
    // A time without seconds (hh:mm) reads as hhmm00.
    if (kind == 't' && v.size() == 5) digits += "00";
    v = digits;
  }
  c.number = std::strtod(v.c_str(), nullptr);
  return c;
}

std::string compare(const DataSet& ds, const std::vector<std::vector<std::string>>& records,
                    const Reading& r) {
  if (!ds.problem.empty()) return "data set: " + ds.problem;
  std::ostringstream msg;
  if (ds.rows != records.size())
    msg << ds.rows << " rows in the data set, " << records.size() << " records in the text\n";
  if (ds.columns != r.kinds.size())
    msg << ds.columns << " columns in the data set, " << r.kinds.size() << " expected\n";
  if (!msg.str().empty()) return msg.str();
  int shown = 0;
  for (size_t i = 0; i < records.size() && shown < 5; ++i) {
    if (records[i].size() != ds.columns) {
      msg << "record " << i + 1 << " has " << records[i].size() << " fields\n";
      ++shown;
      continue;
    }
    for (size_t j = 0; j < ds.columns && shown < 5; ++j) {
      const uint64_t slot = ds.slots[i * ds.columns + j];
      const Cell c = expected_cell(records[i][j], r.kinds[j], r.raw_text);
      std::string got;
      bool ok;
      if (c.missing) {
        ok = slot == kMissing;
      } else if (c.text) {
        got.assign(reinterpret_cast<const char*>(&slot), 8);
        ok = got == c.chars;
      } else {
        double d;
        std::memcpy(&d, &slot, 8);
        ok = std::memcmp(&d, &c.number, 8) == 0;
        got = std::to_string(d);
      }
      if ((r.kinds[j] == 'c') != (ds.types[j] == 0)) ok = false;
      if (!ok) {
        msg << "row " << i + 1 << " column " << j + 1 << " (" << ds.names[j] << "): text \""
            << records[i][j] << "\", data set " << (slot == kMissing ? "missing" : got) << "\n";
        ++shown;
      }
    }
  }
  return msg.str();
}

}  // namespace kptest

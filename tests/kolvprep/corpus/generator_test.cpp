// The corpus generator checked on its own, so that a case scored wrong is
// kolvprep's doing and not a wrong truth: the same seed gives the same case,
// every kind comes round, every record has a cell per column, each damaged
// record sits on the line the truth says, and for the delimited kinds
// a plain reading of the text (RFC 4180 quoting, written here) gives the
// truth cell by cell.
#include "generator.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <set>
#include <string>
#include <vector>

namespace {

using corpus::Case;
using corpus::Cell;

std::vector<std::string> lines_of(const std::string& text, const std::string& eol) {
  std::vector<std::string> lines;
  size_t at = 0;
  while (at <= text.size()) {
    const size_t end = text.find(eol, at);
    if (end == std::string::npos) {
      if (at < text.size()) lines.push_back(text.substr(at));
      break;
    }
    lines.push_back(text.substr(at, end - at));
    at = end + eol.size();
  }
  return lines;
}

// Records of a delimited text as the case's dialect writes them; a quoted
// line end becomes a blank, as the rewrite writes it.
std::vector<std::vector<std::string>> records_of(const std::string& text, const Case& c) {
  const std::string& eol = c.record_end;
  std::vector<std::vector<std::string>> records(1);
  std::string field;
  bool quoted = false, was_quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char ch = text[i];
    if (quoted) {
      if (c.backslash && ch == '\\' && i + 1 < text.size() && text[i + 1] == c.quote) {
        field.push_back(c.quote);
        ++i;
      } else if (!c.backslash && ch == c.quote && i + 1 < text.size() && text[i + 1] == c.quote) {
        field.push_back(c.quote);
        ++i;
      } else if (ch == c.quote) {
        quoted = false;
      } else if (text.compare(i, eol.size(), eol) == 0) {
        field.push_back(' ');
        i += eol.size() - 1;
      } else {
        field.push_back(ch);
      }
    } else if (c.quote != 0 && ch == c.quote && field.empty() && !was_quoted) {
      quoted = was_quoted = true;
    } else if (ch == c.delimiter) {
      records.back().push_back(field);
      field.clear();
      was_quoted = false;
    } else if (text.compare(i, eol.size(), eol) == 0) {
      records.back().push_back(field);
      field.clear();
      was_quoted = false;
      records.emplace_back();
      i += eol.size() - 1;
    } else {
      field.push_back(ch);
    }
  }
  if (!field.empty() || !records.back().empty()) records.back().push_back(field);
  if (records.back().empty()) records.pop_back();
  return records;
}

bool all_digits(const std::string& s, size_t from = 0) {
  if (from >= s.size()) return false;
  for (size_t i = from; i < s.size(); ++i)
    if (s[i] < '0' || s[i] > '9') return false;
  return true;
}

// The cell kolv stores for a field of these kinds of column: a missing
// token, a number, an ISO date, a code with leading zeros (text), or text.
Cell expected(const std::string& f) {
  Cell c;
  for (const char* token : {"", "NA", ".", "N/A", "null", "NaN"})
    if (f == token) return c;
  const size_t sign = f[0] == '-' ? 1 : 0;
  const size_t point = f.find('.');
  const bool number = point == std::string::npos ? all_digits(f, sign)
                                                 : all_digits(f.substr(sign, point - sign)) &&
                                                       all_digits(f.substr(point + 1));
  if (number && !(point == std::string::npos && f.size() > 1 + sign && f[sign] == '0')) {
    c.what = Cell::kNumber;
    c.number = std::strtod(f.c_str(), nullptr);
    return c;
  }
  if (f.size() == 10 && f[4] == '-' && f[7] == '-' && all_digits(f.substr(0, 4)) &&
      all_digits(f.substr(5, 2)) && all_digits(f.substr(8, 2))) {
    c.what = Cell::kNumber;
    c.number = std::strtod((f.substr(0, 4) + f.substr(5, 2) + f.substr(8, 2)).c_str(), nullptr);
    return c;
  }
  c.what = Cell::kText;
  c.text = corpus::text_value(f);
  return c;
}

TEST(CorpusGenerator, TheSameSeedGivesTheSameCaseAndEveryKindComesRound) {
  const size_t n = corpus::kinds().size();
  std::set<std::string> seen;
  for (uint64_t seed = 1; seed <= 3 * n; ++seed) {
    const Case a = corpus::make_case(seed), b = corpus::make_case(seed);
    EXPECT_EQ(a.text, b.text) << seed;
    EXPECT_EQ(a.header, b.header) << seed;
    EXPECT_EQ(a.misfit_lines, b.misfit_lines) << seed;
    EXPECT_EQ(a.kind, corpus::kinds()[seed % n]);
    seen.insert(a.kind);
    // The next case of the same kind is another export.
    EXPECT_NE(a.text, corpus::make_case(seed + n).text) << seed;
  }
  EXPECT_EQ(seen.size(), n);
}

TEST(CorpusGenerator, EveryRecordHasACellPerColumnAndEveryDamagedRecordItsLine) {
  size_t damaged_compressed = 0;
  for (uint64_t seed = 1; seed <= 400; ++seed) {
    const Case c = corpus::make_case(seed);
    ASSERT_FALSE(c.header.empty()) << seed;
    for (const auto& row : c.rows) {
      ASSERT_EQ(row.size(), c.header.size()) << seed;
      for (const Cell& cell : row)
        if (cell.what == Cell::kText) {
          EXPECT_LE(cell.text.size(), 8u) << seed;
          EXPECT_EQ(cell.text.find_first_of(" \t,"), std::string::npos) << seed;
        }
    }
    ASSERT_EQ(c.misfit_rows.size(), c.misfit_lines.size()) << seed;
    ASSERT_EQ(c.misfit_rows.size(), c.misfit_texts.size()) << seed;
    const std::vector<std::string> lines = lines_of(c.text, c.record_end);
    std::set<size_t> rows;
    for (size_t i = 0; i < c.misfit_lines.size(); ++i) {
      EXPECT_LT(c.misfit_rows[i], c.rows.size()) << seed;
      rows.insert(c.misfit_rows[i]);
      ASSERT_GE(c.misfit_lines[i], 1u) << seed;
      ASSERT_LE(c.misfit_lines[i], lines.size()) << seed;
      EXPECT_EQ(lines[c.misfit_lines[i] - 1], c.misfit_texts[i]) << seed;
    }
    EXPECT_EQ(rows.size(), c.misfit_rows.size()) << seed;
    if (c.kind.rfind("field_", 0) == 0 || c.kind == "stray_quote") {
      EXPECT_FALSE(c.misfit_rows.empty()) << seed;
    } else if (c.compression.empty()) {
      EXPECT_TRUE(c.misfit_rows.empty()) << seed;
    }
    damaged_compressed += !c.compression.empty() && !c.misfit_rows.empty();
  }
  EXPECT_GT(damaged_compressed, 0u);  // some compressed cases carry a damaged record
}

TEST(CorpusGenerator, DelimitedKindsReadToTheirTruth) {
  // The kinds whose text is one table of a header (or none) and records.
  const std::set<std::string> plain = {"comma",
                                       "semicolon",
                                       "tab",
                                       "pipe",
                                       "quote_double",
                                       "quote_single",
                                       "quote_none",
                                       "escape_doubled",
                                       "escape_backslash",
                                       "eol_lf",
                                       "eol_crlf",
                                       "eol_cr",
                                       "no_header",
                                       "small",
                                       "long_text",
                                       "ambiguous_dates",
                                       "leading_zeros",
                                       "embedded_eol",
                                       "bom",
                                       "odd_names"};
  size_t checked = 0;
  for (uint64_t seed = 1; seed <= 10 * corpus::kinds().size(); ++seed) {
    const Case c = corpus::make_case(seed);
    if (!plain.count(c.kind)) continue;
    ++checked;
    ASSERT_NE(c.delimiter, 0) << seed;
    // A byte-order mark is not part of the first name.
    const std::string text = c.text.rfind("\xEF\xBB\xBF", 0) == 0 ? c.text.substr(3) : c.text;
    const auto records = records_of(text, c);
    const size_t header = c.kind == "no_header" ? 0 : 1;
    ASSERT_EQ(records.size(), c.rows.size() + header) << seed << " " << c.kind;
    if (header) {
      EXPECT_EQ(records[0], c.header) << seed;
    }
    for (size_t r = 0; r < c.rows.size(); ++r) {
      const std::vector<std::string>& fields = records[r + header];
      ASSERT_EQ(fields.size(), c.rows[r].size()) << seed << " record " << r + 1;
      for (size_t j = 0; j < c.rows[r].size(); ++j) {
        const Cell want = expected(fields[j]);
        const Cell& truth = c.rows[r][j];
        EXPECT_EQ(corpus::describe(truth), corpus::describe(want))
            << "seed " << seed << " (" << c.kind << ") record " << r + 1 << " column " << j + 1
            << ": " << fields[j];
        if (truth.what == Cell::kNumber && want.what == Cell::kNumber) {
          EXPECT_EQ(truth.number, want.number) << seed;
        }
      }
    }
  }
  EXPECT_EQ(checked, 10 * plain.size());
}

}  // namespace

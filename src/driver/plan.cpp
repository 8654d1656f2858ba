#include "driver/plan.hpp"

#include <cstddef>

#include "base/fatal.hpp"
#include "driver/messages.hpp"

namespace kolv {

namespace {

// The layout bits: 2 hard-delimited, 4 line per row (always with 2), 8 all
// variables out; a LF delimiter makes a hard layout one field per line.
RowLayout delimited_layout(int fmtflag, char delimiter) {
  switch (fmtflag & ~8) {
    case 0:
      return RowLayout::kSoft;
    case 2:
      return delimiter == '\n' ? RowLayout::kNewline : RowLayout::kHardStream;
    case 6:
      return RowLayout::kLinePerRow;
    default:
      getout(kInternalError301);
  }
}

}  // namespace

Plan make_plan(const Run& run) {
  const Settings& set = run.set;
  const InvarSettings& lay = run.lay;
  const Variables& vars = run.vars;
  Plan plan;
  const int fmtflag = lay.fmtflag | (lay.allout ? 8 : 0);
  plan.layout = lay.varformat == 2 ? RowLayout::kPacked : delimited_layout(fmtflag, lay.delimiter);
  plan.element = static_cast<ElementType>(set.otyp);
  plan.complex = set.cplx == 2;
  plan.missing_symbol = set.mstring;
  plan.delimiter = lay.delimiter;
  plan.delimiter_after_last = lay.ndels != 0;

  const size_t inputs = vars.varin > 0 ? static_cast<size_t>(vars.varin) : 0;
  plan.kinds.reserve(inputs);
  for (size_t i = 0; i < inputs; ++i)
    plan.kinds.push_back(vars.itypes[i] != 0 ? FieldKind::kNumeric : FieldKind::kCharacter);
  plan.all_columns = (fmtflag & 8) != 0;
  if (!plan.all_columns)
    plan.columns.assign(vars.outvec.begin(), vars.outvec.begin() + vars.varout);

  if (plan.layout == RowLayout::kPacked) {
    plan.record_length = vars.record;
    plan.fields.assign(vars.fmv.begin(), vars.fmv.begin() + static_cast<std::ptrdiff_t>(inputs));
    plan.fit_record_to_line_ends = set.noauto == 0;
  }
  return plan;
}

}  // namespace kolv

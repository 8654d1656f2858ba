#include "command/outvar.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "base/fatal.hpp"
#include "base/interrupt.hpp"
#include "base/journal.hpp"
#include "command/messages.hpp"
#include "command/names.hpp"
#include "command/statement.hpp"
#include "command/vartable.hpp"
#include "format/dataset.hpp"

namespace kolv {

namespace {

struct OutputFile {
  FILE* f = nullptr;
  ~OutputFile() {
    if (f) std::fclose(f);
  }
};

}  // namespace

void makeovar(Run& run, long capacity) {
  Variables& v = run.vars;
  size_t slots = v.otypes.size();
  if (static_cast<size_t>(v.varout) >= slots || static_cast<size_t>(v.varout) >= v.outvec.size()) {
    try {
      if (capacity > kMaxRangeCount) throw std::bad_alloc();
      size_t c = static_cast<size_t>(capacity);
      v.outvec.resize(std::max(c, v.outvec.size()), 0);
      v.onames.resize(c * kNameSize, '\0');
      v.otypes.resize((c + 7) & ~size_t{7}, 0);
    } catch (const std::bad_alloc&) {
      getout(kOutOfMemory770);
    }
  }
  int index = getvardex(run, v.vname);
  v.outvec[static_cast<size_t>(v.varout)] = index;
  if (index < 0) {
    std::fprintf(run.io.out, kUndefinedVariable, v.vname);
    ++v.undefvar;
    return;
  }
  uint8_t type = v.itypes[static_cast<size_t>(index)];
  fold_name(run, type != 0);
  std::memcpy(&v.onames[static_cast<size_t>(v.varout) * kNameSize], v.vname, kNameSize);
  v.otypes[static_cast<size_t>(v.varout)] = type;
  ++v.varout;
}

int scanoutvar(Run& run, Statement st) {
  Variables& v = run.vars;
  if (run.lay.varformat == 2) {
    std::fprintf(run.io.out, kIgnoring, st.data());
    return 0;
  }
  v.chardata = 0;
  v.undefvar = 0;
  v.varout = 0;
  try {
    v.onames.assign(1000 * kNameSize, '\0');
  } catch (const std::bad_alloc&) {
    getout(kNoMemoryForOutputNames);
  }
  try {
    v.otypes.assign(1000, 0);
  } catch (const std::bad_alloc&) {
    getout(kNoMemoryForOutputTypes);
  }
  OutputFile file;
  file.f = std::fopen(run.files.outtmp, "r+b");
  if (file.f == nullptr) getout(kCantOpenTemporaryFile6);

  const char* p = argument_at(st, 7);
  scan_name_list(run, p, false, kOutOfMemory770,
                 [&](long count) { makeovar(run, v.varout + (count ? count : 64)); });

  // Appending, the block goes over the data set's own: its bytes are saved
  // first, so that a signal can put them back.
  journal_cover(run.guard, data_offset(static_cast<uint32_t>(v.varout)));
  switch (write_variable_block(file.f, v.onames.data(), v.otypes.data(), v.varout)) {
    case VarBlockWrite::kNamesFailed:
      getout(kCantWriteNames2);
    case VarBlockWrite::kTypesFailed:
      getout(kCantWriteTypes2);
    case VarBlockWrite::kPadFailed:
      getout(kCantWriteTypes2a);
    case VarBlockWrite::kDone:
      break;
  }
  if (std::fclose(file.f) != 0) {
    file.f = nullptr;
    getout(kCantWriteNames2);
  }
  file.f = nullptr;
  return v.varout;
}

}  // namespace kolv

#include "command/vartable.hpp"

#include <cctype>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

#include "base/fatal.hpp"
#include "command/names.hpp"
#include "command/statement.hpp"

namespace kolv {

bool grow_input_tables(Run& run, long capacity) {
  Variables& v = run.vars;
  try {
    v.inames.resize(static_cast<size_t>(capacity) * kNameSize, '\0');
    v.itypes.resize((static_cast<size_t>(capacity) + 7) & ~size_t{7}, 0);
  } catch (const std::bad_alloc&) {
    return false;
  } catch (const std::length_error&) {
    return false;
  }
  v.varlimit = static_cast<int>(capacity);
  return true;
}

void reset_input_tables(Run& run, const char* out_of_memory) {
  Variables& v = run.vars;
  v.inames.clear();
  v.itypes.clear();
  v.inames.shrink_to_fit();
  v.itypes.shrink_to_fit();
  v.varin = 0;
  v.iname_index_valid = false;
  if (!grow_input_tables(run, 1000)) getout("%s", out_of_memory);
}

void makeivar(Run& run, long capacity) {
  Variables& v = run.vars;
  if (v.varin >= v.varlimit) {
    if (capacity > kMaxRangeCount || !grow_input_tables(run, capacity))
      getout(kTooManyInputVariables);
  }
  std::memcpy(&v.inames[static_cast<size_t>(v.varin) * kNameSize], v.vname, kNameSize);
  v.itypes[static_cast<size_t>(v.varin)] = static_cast<uint8_t>(v.numeric_data);
  v.iname_index_valid = false;
  // Once a character variable is declared the run needs 8-byte elements.
  if (!v.numeric_data) v.chardata = 1;
  ++v.varin;
}

namespace {

// A name as the case-insensitive compare sees it: at most 32 characters, up
// to its first zero byte, upper case.
std::string folded_key(const char* name) {
  std::string key;
  for (int i = 0; i < kNameSize && name[i] != '\0'; ++i)
    key.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(name[i]))));
  return key;
}

void build_name_index(Variables& v) {
  v.iname_index.clear();
  v.iname_index.reserve(static_cast<size_t>(v.varin));
  for (int i = 0; i < v.varin; ++i)
    v.iname_index.emplace(folded_key(&v.inames[static_cast<size_t>(i) * kNameSize]), i);
  v.iname_index_valid = true;
}

}  // namespace

int getvardex(Run& run, const char* name) {
  Variables& v = run.vars;
  int found = -1;
  if (v.varout >= 0 && v.varout < v.varin &&
      strnicmp(&v.inames[static_cast<size_t>(v.varout) * kNameSize], name, kNameSize) == 0) {
    found = v.varout;
  } else {
    // The first entry that matches, as a scan from 0 upward would find it.
    if (!v.iname_index_valid) build_name_index(v);
    auto it = v.iname_index.find(folded_key(name));
    if (it != v.iname_index.end()) found = it->second;
  }
  if (found >= 0 && v.itypes[static_cast<size_t>(found)] == 0) v.chardata = 1;
  return found;
}

}  // namespace kolv

// One run's state, grouped by subsystem. A Run owns everything a conversion
// touches; every parser, scanner and loop takes the Run (or one of its parts)
// by reference, so each can be exercised in-process on a fresh state.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/console.hpp"
#include "base/interrupt.hpp"
#include "base/limits.hpp"

namespace kolv {

// Thrown by getout: the one fatal exit. The message is printed by whoever
// catches it, after files are closed and the temporary output is removed.
struct FatalError {
  std::string message;
};

// Settings applied by pass 1 and the command line.
struct Settings {
  int otyp = 0;  // element size 2, 4 or 8; 0 until set
  int cplx = 1;  // 2 after COMPLEX
  int vpad = 1;
  int scd = 1;  // result of the last DELIMIT clause
  int file_version = 96;
  int appending = 0;
  int noauto = 0;   // NOCHECK
  int reshape = 0;  // NODATA
  int keepcase = 0;
  int err = 0;
  int inpz = 0;
  int outpz = 0;
  char mstring = '.';
  bool quiet = false;  // "-noc" on the command line
  int msym_found = 1;  // whether the last MSYM found its symbol
  char cfile[kPathSize] = {};
  char infile[kPathSize] = {};
  char outfile[kPathSize] = {};
};

// The input's layout settings made by INVAR (and the driver's all-variables
// bit), as the command language keeps them; the plan turns them into one
// RowLayout.
struct InvarSettings {
  int fmtflag = 0;  // 2 hard-delimited, 4 line per row, 8 all variables out
  char delimiter = ',';
  uint8_t ndels = 0;
  int varformat = 0;  // 1 delimited, 2 packed records
  int allout = 0;
};

// One field of a packed record (INVAR RECORD): its kind, its implied
// decimals and the columns it takes (from 0).
struct PackedField {
  uint8_t type = 1;  // 1 numeric, 0 character
  uint8_t decimals = 0;
  int64_t start = 0;
  int64_t width = 0;
};

// Input and output variable tables.
struct Variables {
  std::vector<char> inames;     // varlimit x 32 bytes
  std::vector<uint8_t> itypes;  // 1 numeric, 0 character
  int varin = 0;
  int varlimit = 0;
  std::vector<char> onames;
  std::vector<uint8_t> otypes;
  std::vector<int32_t> outvec = std::vector<int32_t>(1000, 0);
  int varout = 0;
  int undefvar = 0;
  std::vector<uint8_t> vrec = std::vector<uint8_t>(1000, 0);
  int chardata = 0;
  int chartrunc = 0;
  int numeric_data = 1;
  char vname[kNameSize + 1] = {};
  // Input names folded to upper case, to their first index: OUTVAR looks up
  // every output name here instead of scanning the table. Rebuilt when stale.
  std::unordered_map<std::string, int32_t> iname_index;
  bool iname_index_valid = false;
  std::vector<PackedField> fmv;  // packed records only
  int record = 0;                // packed record length
};

// The read buffer shared by the command-file passes and the conversion.
struct ReadBuffer {
  std::unique_ptr<char[]> inbuff{new char[kInbuffSize]()};
  int read_size = kReadSize;
  int readbytes = 0;
  size_t buffered = 0;  // bytes of text in the buffer after the last fill
  int theresmore = 1;
  FILE* infp = nullptr;
  const char* cperr = nullptr;  // start of the field being converted
  uint64_t fills = 0;           // refills so far: tells whether a pointer still holds
};

// Open files of the run and the temporary output's name.
struct Files {
  FILE* fcf = nullptr;   // command file
  FILE* fout = nullptr;  // output rows
  char outtmp[kPathSize] = {};
  int gottmp = 0;
};

struct Counters {
  uint32_t row = 0;  // rows in the output, including appended-to rows
};

struct Run {
  Console io;
  Settings set;
  InvarSettings lay;
  Variables vars;
  ReadBuffer rb;
  Files files;
  Counters cnt;
  InterruptGuard guard;  // what a signal undoes; the append lock
};

}  // namespace kolv

// A fresh run for in-process tests: its message streams captured in memory,
// input bytes served from a temporary file, output rows gathered where the
// test can read them back, and small builders for expected element bytes.
#pragma once

#include <stdio.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/state.hpp"
#include "command/statement.hpp"
#include "engine/loops.hpp"
#include "engine/plan.hpp"
#include "engine/readbuf.hpp"

namespace kolv_test {

// A stream whose bytes land in memory.
class Capture {
 public:
  Capture() { file_ = open_memstream(&data_, &size_); }
  ~Capture() {
    if (file_) std::fclose(file_);
    std::free(data_);
  }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;
  FILE* file() const { return file_; }
  std::string text() {
    std::fflush(file_);
    return std::string(data_ ? data_ : "", size_);
  }

 private:
  char* data_ = nullptr;
  size_t size_ = 0;
  FILE* file_ = nullptr;
};

// An output stream that records the size of every write it receives, and can
// be told to refuse them (as a full disk would). It is unbuffered, so each
// fwrite of the program reaches it as exactly one write.
struct WriteLog {
  std::vector<size_t> sizes;
  std::string bytes;
  bool fail = false;
  long fail_from = -1;  // when not -1: writes from this one on (counting from 0) fail
  long attempts = 0;
};

inline ssize_t write_log_write(void* cookie, const char* buf, size_t size) {
  auto* log = static_cast<WriteLog*>(cookie);
  const long attempt = log->attempts++;
  if (log->fail || (log->fail_from >= 0 && attempt >= log->fail_from)) {
    errno = ENOSPC;
    return 0;  // nothing written: fwrite then reports the failure
  }
  log->sizes.push_back(size);
  log->bytes.append(buf, size);
  return static_cast<ssize_t>(size);
}

inline FILE* open_write_log(WriteLog& log) {
  cookie_io_functions_t io{};
  io.write = write_log_write;
  FILE* f = fopencookie(&log, "w", io);
  if (f) std::setvbuf(f, nullptr, _IONBF, 0);
  return f;
}

// A temporary file holding the given bytes, positioned at its start.
inline FILE* file_with(const std::string& bytes) {
  FILE* f = std::tmpfile();
  if (f == nullptr) std::abort();
  if (!bytes.empty() && std::fwrite(bytes.data(), bytes.size(), 1, f) != 1) std::abort();
  std::rewind(f);
  return f;
}

inline std::string read_all(FILE* f) {
  std::fflush(f);
  std::string bytes;
  if (std::fseek(f, 0, SEEK_SET) != 0) return bytes;
  char chunk[65536];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) bytes.append(chunk, n);
  return bytes;
}

// The command language's state (run) and one engine over a plan that the
// test sets up directly.
struct TestRun {
  kolv::Run run;
  kolv::Plan plan;
  kolv::Engine engine{plan, kolv::Console{}};
  Capture out;
  Capture err;
  FILE* input = nullptr;
  FILE* output = nullptr;
  WriteLog log;
  bool logged = false;

  TestRun() {
    run.io.out = out.file();
    run.io.err = err.file();
    std::strcpy(run.set.infile, "/data/in.asc");
    engine.io = run.io;
    engine.input_name = "/data/in.asc";
  }
  ~TestRun() {
    if (input) std::fclose(input);
    if (output) std::fclose(output);
    if (run.files.fcf) std::fclose(run.files.fcf);
  }
  TestRun(const TestRun&) = delete;
  TestRun& operator=(const TestRun&) = delete;

  // Puts a statement's text into the buffer, as getstat leaves it.
  void statement(const std::string& text) {
    std::memcpy(run.rb.inbuff.get(), text.c_str(), text.size() + 1);
  }
  // The statement put there last, as the passes hand it to its parser.
  kolv::Statement st() const { return kolv::current_statement(run); }

  // Serves bytes as the input file, read read_size bytes at a time, and makes
  // the first fill of the buffer.
  void feed(const std::string& bytes, int read_size = kolv::kReadSize) {
    input = file_with(bytes);
    engine.rb.infp = input;
    engine.rb.read_size = read_size;
    engine.rb.theresmore = 1;
    kolv::first_fill(engine.rb);
  }

  // Declares the input variables by a string of types: 'n' numeric, 'c' character.
  void declare(const std::string& types) {
    run.vars.varin = static_cast<int>(types.size());
    run.vars.itypes.assign((types.size() + 8) & ~size_t{7}, 0);
    for (size_t i = 0; i < types.size(); ++i) run.vars.itypes[i] = types[i] == 'n' ? 1 : 0;
    plan.kinds.clear();
    for (char c : types)
      plan.kinds.push_back(c == 'n' ? kolv::FieldKind::kNumeric : kolv::FieldKind::kCharacter);
    if (engine.vrec.size() < types.size()) engine.vrec.resize(types.size(), 0);
  }

  // Chooses output variables by input index.
  void select(const std::vector<int32_t>& inputs) {
    run.vars.varout = static_cast<int>(inputs.size());
    if (run.vars.outvec.size() < inputs.size()) run.vars.outvec.resize(inputs.size());
    for (size_t i = 0; i < inputs.size(); ++i) run.vars.outvec[i] = inputs[i];
    plan.all_columns = false;
    plan.columns = inputs;
  }

  // Rows go to a temporary file.
  void output_to_file() {
    output = std::tmpfile();
    run.files.fout = output;
    engine.sink = output;
  }
  // Rows go to a write log (logged or refused writes).
  void output_to_log() {
    output = open_write_log(log);
    logged = true;
    run.files.fout = output;
    engine.sink = output;
  }
  std::string written() {
    if (output == nullptr) return {};
    if (logged) return log.bytes;
    return read_all(output);
  }

  std::string out_text() { return out.text(); }
  std::string err_text() { return err.text(); }
  char* buffer() { return engine.rb.inbuff.get(); }
};

// Expected element bytes, little-endian.
inline std::string bytes_of(const void* p, size_t n) {
  return std::string(static_cast<const char*>(p), n);
}
inline std::string d8(double x) {
  return bytes_of(&x, 8);
}
inline std::string bits8(uint64_t bits) {
  std::string s;
  for (int i = 0; i < 8; ++i) s.push_back(static_cast<char>((bits >> (8 * i)) & 0xFF));
  return s;
}
inline std::string miss8() {
  return std::string("\0\0\0\0\xFF\xFF\xFF\x7F", 8);
}
inline std::string i16(int v) {
  uint16_t u = static_cast<uint16_t>(v);
  return std::string{static_cast<char>(u & 0xFF), static_cast<char>(u >> 8)};
}
inline std::string miss2() {
  return std::string("\x00\x80", 2);
}
inline std::string f4(float x) {
  return bytes_of(&x, 4);
}
inline std::string miss4() {
  return std::string("\xF8\xFF\xFF\x7F", 4);
}
inline std::string text8(const char* s) {
  std::string t(8, '\0');
  std::memcpy(t.data(), s, std::strlen(s) < 8 ? std::strlen(s) : 8);
  return t;
}

// The double held in an 8-byte slot.
inline double slot_value(const char* slot) {
  double x;
  std::memcpy(&x, slot, 8);
  return x;
}

}  // namespace kolv_test

#include "engine/parallel.hpp"

#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "base/fatal.hpp"
#include "engine/packed.hpp"
#include "engine/readbuf.hpp"
#include "engine/rowblock.hpp"
#include "engine/threads.hpp"

namespace kolv {

namespace {

// The longest line a chunk may hold. Far below the read buffer's size, so
// no field and no run of blanks in it can come near the buffer's length,
// where the scanners' outcome would depend on where the text lies.
constexpr size_t kLongestLine = 32768;

// Bytes read at a time when a chunk is stretched to the next line end.
constexpr size_t kStretchBytes = 4096;

// One chunk of the input and what a worker made of it. Chunks are used
// again once their rows are written, so their buffers keep their memory.
struct Chunk {
  std::string text;
  bool clean = false;  // converted without any event; rows are final
  bool done = false;   // the worker has finished with it
  uint32_t rows = 0;
  std::string output;  // the rows, as the row loop wrote them
  std::vector<uint8_t> vrec;

  void reuse() {
    text.clear();
    output.clear();
    clean = false;
    done = false;
    rows = 0;
  }
};

// The row loop's writes to a chunk: appended to its output.
ssize_t append_rows(void* cookie, const char* bytes, size_t size) {
  try {
    static_cast<std::string*>(cookie)->append(bytes, size);
  } catch (const std::bad_alloc&) {
    return 0;  // the write fails: the chunk is refused
  }
  return static_cast<ssize_t>(size);
}

// An unbuffered stream over the chunk's output, so that every block is one
// append.
FILE* open_rows(std::string& output) {
  cookie_io_functions_t io{};
  io.write = append_rows;
  FILE* f = ::fopencookie(&output, "w", io);
  if (f != nullptr) std::setvbuf(f, nullptr, _IONBF, 0);
  return f;
}

// Puts a worker's engine back to the state of a conversion's start.
void restart(Engine& engine) {
  engine.rows = 0;
  engine.srcrow = 1;
  engine.record = 0;
  std::fill(engine.vrec.begin(), engine.vrec.end(), uint8_t{0});
  ReadBuffer& rb = engine.rb;
  rb.read_size = kReadSize;
  rb.readbytes = 0;
  rb.buffered = 0;
  rb.theresmore = 1;
  rb.infp = nullptr;
  rb.cperr = nullptr;
  rb.fills = 0;
}

// Runs loop over text (size bytes) on the worker's engine, its messages
// caught in memory: the chunk is clean when the loop ran to its end without
// a message and wrote `rows` rows of row_bytes each.
template <typename Loop>
void convert_text(Engine& engine, const char* text, size_t size, uint32_t rows, size_t row_bytes,
                  Chunk& chunk, Loop loop) {
  chunk.clean = false;
  char* said = nullptr;
  size_t said_size = 0;
  FILE* messages = ::open_memstream(&said, &said_size);
  FILE* in = ::fmemopen(const_cast<char*>(text), size, "r");
  FILE* out = open_rows(chunk.output);
  LoopStatus status = kLoopNoMemory;
  if (messages != nullptr && in != nullptr && out != nullptr) {
    restart(engine);
    engine.io = Console{messages, messages};
    engine.rb.infp = in;
    engine.sink = out;
    try {
      status = loop(engine);
    } catch (const std::bad_alloc&) {
      status = kLoopNoMemory;
    } catch (const FatalError&) {
      // Bad data in a packed record: reported (into messages), run ended.
      status = kLoopRejected;
    }
  }
  bool quiet = true;
  if (messages != nullptr) quiet = std::fclose(messages) == 0 && said_size == 0;
  std::free(said);
  if (in != nullptr) std::fclose(in);
  if (out != nullptr && std::fclose(out) != 0) status = kLoopWriteFailed;
  if (!quiet || status != kLoopDone || engine.rows != rows) return;
  if (chunk.output.size() != size_t{rows} * row_bytes) return;
  chunk.rows = rows;
  chunk.vrec.assign(engine.vrec.begin(), engine.vrec.end());
  chunk.clean = true;
}

// Converts text (whole lines) by the one-threaded row loop of the plan. Clean
// also needs every line to give one row and no byte of the text that could
// end the buffered text early (a NUL) or stretch a field or a run of blanks
// near the read buffer's length.
void convert_lines(Engine& engine, const char* text, size_t size, Chunk& chunk) {
  chunk.clean = false;
  if (size == 0 || std::memchr(text, '\0', size) != nullptr) return;
  uint32_t lines = 0;
  for (const char* p = text; p < text + size;) {
    const char* end = static_cast<const char*>(std::memchr(p, '\n', size_t(text + size - p)));
    const char* stop = end == nullptr ? text + size : end;
    if (size_t(stop - p) > kLongestLine) return;
    ++lines;
    p = stop + 1;
  }
  convert_text(engine, text, size, lines, row_bytes(engine.plan), chunk, [](Engine& e) {
    first_fill(e.rb);
    return run_delimited(e);
  });
}

// Converts text (whole records of length record, and after the last chunk's
// records the bytes that make no record) by the one-threaded packed loop.
// Clean also needs no NUL byte (a refill keeps the text only up to one).
void convert_records(Engine& engine, int64_t record, const char* text, size_t size, Chunk& chunk) {
  chunk.clean = false;
  if (size == 0 || std::memchr(text, '\0', size) != nullptr) return;
  const Plan& plan = engine.plan;
  const size_t bytes = static_cast<size_t>(plan.width()) * static_cast<size_t>(plan.variables());
  const auto whole = static_cast<uint32_t>(size / static_cast<size_t>(record));
  convert_text(engine, text, size, whole, bytes, chunk,
               [record](Engine& e) { return loopfmt_records(e, record); });
}

// How the input is cut and each chunk converted.
struct Cutting {
  const Plan& plan;
  int64_t record = 0;    // packed: the record length; 0: lines
  size_t row_bytes = 0;  // one output row

  void convert(Engine& engine, const char* text, size_t size, Chunk& chunk) const {
    if (record == 0) {
      convert_lines(engine, text, size, chunk);
    } else {
      convert_records(engine, record, text, size, chunk);
    }
  }

  // The marks of the chunk's first `rows` rows: what the one-threaded loop
  // has marked when it stops after them.
  std::vector<uint8_t> marks_of_rows(const Chunk& chunk, uint32_t rows) const {
    size_t end = 0;
    if (record != 0) {
      end = size_t{rows} * static_cast<size_t>(record);
    } else {
      for (uint32_t r = 0; r < rows; ++r) {
        const size_t lf = chunk.text.find('\n', end);
        end = lf == std::string::npos ? chunk.text.size() : lf + 1;
      }
    }
    Chunk prefix;
    Engine engine(plan, Console{});
    convert(engine, chunk.text.data(), end, prefix);
    return prefix.vrec;
  }
};

// Reads the source's text in chunks of whole lines, or of whole records.
class ChunkReader {
 public:
  ChunkReader(FILE* in, size_t target, int64_t record)
      : in_(in), target_(target), record_(static_cast<size_t>(record)) {
    if (record_ != 0) target_ = std::max(record_, target_ - target_ % record_);
  }

  // The next chunk's text into text; false at the input's end. A chunk that
  // holds a line longer than kLongestLine may end inside that line (its
  // worker refuses it).
  bool next(std::string& text) {
    text.assign(carry_);
    carry_.clear();
    if (!at_end_ && text.size() < target_) read_more(text, target_ - text.size());
    if (text.empty()) return false;
    if (at_end_ || record_ != 0) return true;
    size_t searched = 0;
    for (;;) {
      const size_t last = text.find_last_of('\n');
      if (last != std::string::npos && last >= searched) {
        carry_.assign(text, last + 1, std::string::npos);
        text.resize(last + 1);
        return true;
      }
      searched = text.size();
      if (at_end_ || text.size() > target_ + kLongestLine) return true;
      read_more(text, kStretchBytes);
    }
  }

  bool failed() const { return failed_; }

 private:
  void read_more(std::string& text, size_t want) {
    const size_t had = text.size();
    text.resize(had + want);
    const size_t got = std::fread(text.data() + had, 1, want, in_);
    text.resize(had + got);
    if (got < want) {
      at_end_ = true;
      if (std::ferror(in_)) failed_ = true;
    }
  }

  FILE* in_;
  size_t target_;
  size_t record_;
  std::string carry_;
  bool at_end_ = false;
  bool failed_ = false;
};

// Worker threads converting chunks in the order they were handed over.
class Workers {
 public:
  Workers(const Cutting& cut, int threads) : cut_(cut) {
    // Signals go to the calling thread alone: its handler undoes the run.
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, &previous);
    try {
      for (int i = 0; i < threads; ++i) threads_.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
      // Fewer workers than asked for; at least the ones started run.
    }
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  }
  ~Workers() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
    }
    wake_.notify_all();
    for (std::thread& t : threads_) t.join();
  }
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  bool running() const { return !threads_.empty(); }

  void submit(Chunk* chunk) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      queue_.push_back(chunk);
    }
    wake_.notify_one();
  }

  void wait(const Chunk& chunk) {
    std::unique_lock<std::mutex> lock(mutex_);
    finished_.wait(lock, [&chunk] { return chunk.done; });
  }

 private:
  void work() {
    // One engine per worker, started afresh for every chunk.
    std::unique_ptr<Engine> engine;
    try {
      engine = std::make_unique<Engine>(cut_.plan, Console{});
    } catch (const std::bad_alloc&) {
      // Without an engine every chunk this worker takes is refused.
    }
    for (;;) {
      Chunk* chunk = nullptr;
      {
        std::unique_lock<std::mutex> lock(mutex_);
        wake_.wait(lock, [this] { return stop_ || !queue_.empty(); });
        if (stop_) return;
        chunk = queue_.front();
        queue_.pop_front();
      }
      if (engine != nullptr) cut_.convert(*engine, chunk->text.data(), chunk->text.size(), *chunk);
      {
        std::lock_guard<std::mutex> lock(mutex_);
        chunk->done = true;
      }
      finished_.notify_all();
    }
  }

  const Cutting& cut_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable finished_;
  std::deque<Chunk*> queue_;
  bool stop_ = false;
  std::vector<std::thread> threads_;
};

void merge_marks(std::vector<uint8_t>& into, const std::vector<uint8_t>& marks) {
  // A mark only rises: 0, then 1 (character data), then 255 (cut to 8 bytes).
  for (size_t i = 0; i < into.size() && i < marks.size(); ++i)
    into[i] = std::max(into[i], marks[i]);
}

// The pipeline: chunks read in order, converted by the workers, their rows
// written in order through writer. start: where the input was when the run
// began, for a refusal to go back to.
Parallel run_chunks(Engine& engine, FILE* in, off_t start, const Cutting& cut, int threads,
                    size_t target, BlockWriter& writer, LoopStatus& status) {
  FILE* sink = engine.sink;
  const off_t written_before = ::lseek(::fileno(sink), 0, SEEK_END);
  if (written_before < 0) return Parallel::kNotTried;
  bool refused = false;
  {
    // The chunks outlive the workers, which may still hold one when a write
    // fails and the loop ends early.
    std::deque<std::unique_ptr<Chunk>> flight;
    std::vector<std::unique_ptr<Chunk>> spare;
    Workers workers(cut, threads);
    if (!workers.running()) return Parallel::kNotTried;
    ChunkReader reader(in, target, cut.record);
    // A few chunks per worker in flight: memory stays flat in the input's size.
    const size_t window = static_cast<size_t>(threads) * 2;
    bool more = true;
    for (;;) {
      while (more && flight.size() < window) {
        std::unique_ptr<Chunk> chunk;
        if (spare.empty()) {
          chunk = std::make_unique<Chunk>();
        } else {
          chunk = std::move(spare.back());
          spare.pop_back();
          chunk->reuse();
        }
        more = reader.next(chunk->text);
        if (!more) break;
        workers.submit(chunk.get());
        flight.push_back(std::move(chunk));
      }
      if (flight.empty()) break;
      Chunk& chunk = *flight.front();
      workers.wait(chunk);
      if (!chunk.clean || reader.failed()) {
        refused = true;
        break;
      }
      const char* rows = chunk.output.data();
      const size_t per_block = writer.rows_per_block();
      for (uint32_t r = 0; r < chunk.rows;) {
        // Whole blocks straight from the chunk; the rest row by row.
        const bool whole = writer.held() == 0 && chunk.rows - r >= per_block;
        const uint32_t read = whole ? r + static_cast<uint32_t>(per_block) : r + 1;
        BlockWrite wrote;
        if (whole) {
          wrote = writer.write_block(rows + size_t{r} * cut.row_bytes);
        } else {
          std::memcpy(writer.row(), rows + size_t{r} * cut.row_bytes, cut.row_bytes);
          wrote = writer.finish_row();
        }
        if (wrote == BlockWrite::kFailed) {
          // The one-threaded loop stops after the row that filled the block.
          merge_marks(engine.vrec, cut.marks_of_rows(chunk, read));
          status = kLoopWriteFailed;
          return Parallel::kFinished;
        }
        r = read;
      }
      merge_marks(engine.vrec, chunk.vrec);
      spare.push_back(std::move(flight.front()));
      flight.pop_front();
    }
  }
  if (!refused) {
    status = writer.flush() == BlockWrite::kWritten ? kLoopDone : kLoopWriteFailed;
    return Parallel::kFinished;
  }

  // Back to the state before the call: the rows written go, the input is
  // read again from where it was.
  const off_t written_now = ::lseek(::fileno(sink), 0, SEEK_END);
  const bool wrote = written_now != written_before;
  if ((wrote && ::ftruncate(::fileno(sink), written_before) != 0) ||
      ::fseeko(in, start, SEEK_SET) != 0) {
    status = kLoopWriteFailed;
    return Parallel::kFinished;
  }
  std::clearerr(in);
  engine.rows = 0;
  std::fill(engine.vrec.begin(), engine.vrec.end(), uint8_t{0});
  return Parallel::kRefused;
}

// Whether the input is a regular file with at least kParallelMinBytes from
// start on (any size when KOLV_CHUNK_BYTES is set); the chunk size then.
size_t chunk_target(FILE* in, off_t start) {
  struct stat input;
  if (start < 0 || ::fstat(::fileno(in), &input) != 0 || !S_ISREG(input.st_mode)) return 0;
  const size_t tiny = chunk_bytes_override();
  if (tiny != 0) return tiny;
  return input.st_size - start < kParallelMinBytes ? 0 : kDefaultChunkBytes;
}

}  // namespace

Parallel convert_in_parallel(Engine& engine, Source& source, int threads, LoopStatus& status) {
  const Plan& plan = engine.plan;
  if (threads < 2 || source.file == nullptr || plan.layout != RowLayout::kLinePerRow ||
      row_bytes(plan) == 0)
    return Parallel::kNotTried;
  const off_t start = ::ftello(source.file);
  const size_t target = chunk_target(source.file, start);
  if (target == 0) return Parallel::kNotTried;
  const Cutting cut{plan, 0, row_bytes(plan)};
  BlockWriter writer(engine, false);
  if (!writer.reserve(cut.row_bytes, std::max<size_t>(1, kBlockBytes / cut.row_bytes), 8)) {
    status = kLoopNoMemory;
    return Parallel::kFinished;
  }
  return run_chunks(engine, source.file, start, cut, threads, target, writer, status);
}

Parallel convert_packed_in_parallel(Engine& engine, int64_t record, int threads,
                                    LoopStatus& status) {
  const Plan& plan = engine.plan;
  FILE* in = engine.rb.infp;
  const size_t bytes = static_cast<size_t>(plan.width()) * static_cast<size_t>(plan.variables());
  if (threads < 2 || in == nullptr || record <= 0 || bytes == 0 ||
      bytes > static_cast<size_t>(kBlockBytes))
    return Parallel::kNotTried;
  // The packed loop reads the input from its start.
  const size_t target = chunk_target(in, 0);
  if (target == 0 || ::fseeko(in, 0, SEEK_SET) != 0) return Parallel::kNotTried;
  const Cutting cut{plan, record, bytes};
  // The packed loop's block: as many rows as a block holds, one fewer at a
  // time while memory is short.
  BlockWriter writer(engine, true);
  size_t per_block = static_cast<size_t>(kBlockBytes) / bytes;
  while (per_block > 0 && !writer.reserve(bytes, per_block, 0)) --per_block;
  if (per_block == 0) return Parallel::kNotTried;
  if (engine.vrec.size() < static_cast<size_t>(plan.variables()))
    engine.vrec.resize(static_cast<size_t>(plan.variables()), 0);
  return run_chunks(engine, in, 0, cut, threads, target, writer, status);
}

}  // namespace kolv

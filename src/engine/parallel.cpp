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

// A stream that writes into memory, freed with its text.
class MemoryStream {
 public:
  MemoryStream() : file_(::open_memstream(&text_, &size_)) {}
  ~MemoryStream() {
    if (file_ != nullptr) std::fclose(file_);
    std::free(text_);
  }
  MemoryStream(const MemoryStream&) = delete;
  MemoryStream& operator=(const MemoryStream&) = delete;

  FILE* file() const { return file_; }
  // Ends writing; the text and its size are then final. False on failure.
  bool close() {
    const bool ok = file_ != nullptr && std::fclose(file_) == 0;
    file_ = nullptr;
    return ok;
  }
  const char* text() const { return text_; }
  size_t size() const { return size_; }

 private:
  char* text_ = nullptr;
  size_t size_ = 0;
  FILE* file_;
};

// One chunk of whole lines and what a worker made of it.
struct Chunk {
  std::string text;
  bool clean = false;  // converted without any event; rows are final
  bool done = false;   // the worker has finished with it
  uint32_t rows = 0;
  std::unique_ptr<MemoryStream> output;
  std::vector<uint8_t> vrec;
};

// Converts text (whole lines) by the one-threaded row loop of the plan, into
// chunk's rows. The chunk is clean when the loop read to the end without a
// message, every line gave one row, and no byte of the text could have
// ended the buffered text early (a NUL) or stretched a field or a run of
// blanks near the read buffer's length.
void convert_lines(const Plan& plan, const char* text, size_t size, Chunk& chunk) {
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
  MemoryStream messages;
  auto output = std::make_unique<MemoryStream>();
  FILE* in = ::fmemopen(const_cast<char*>(text), size, "r");
  if (in == nullptr || messages.file() == nullptr || output->file() == nullptr) {
    if (in != nullptr) std::fclose(in);
    return;
  }
  LoopStatus status = kLoopNoMemory;
  uint32_t rows = 0;
  try {
    Engine engine(plan, Console{messages.file(), messages.file()});
    engine.rb.infp = in;
    engine.sink = output->file();
    first_fill(engine.rb);
    status = run_delimited(engine);
    rows = engine.rows;
    chunk.vrec = std::move(engine.vrec);
  } catch (const std::bad_alloc&) {
    status = kLoopNoMemory;
  }
  std::fclose(in);
  const bool written = output->close();
  if (!messages.close() || messages.size() != 0 || !written || status != kLoopDone) return;
  if (rows != lines || output->size() != size_t{rows} * row_bytes(plan)) return;
  chunk.rows = rows;
  chunk.output = std::move(output);
  chunk.clean = true;
}

// Converts text (whole records of length record, and after the last chunk's
// records the bytes that make no record) by the one-threaded packed loop.
// Clean as for lines: no message, no NUL byte (a refill keeps the text only
// up to one), every record one row.
void convert_records(const Plan& plan, int64_t record, const char* text, size_t size,
                     Chunk& chunk) {
  chunk.clean = false;
  if (size == 0 || std::memchr(text, '\0', size) != nullptr) return;
  MemoryStream messages;
  auto output = std::make_unique<MemoryStream>();
  FILE* in = ::fmemopen(const_cast<char*>(text), size, "r");
  if (in == nullptr || messages.file() == nullptr || output->file() == nullptr) {
    if (in != nullptr) std::fclose(in);
    return;
  }
  LoopStatus status = kLoopNoMemory;
  uint32_t rows = 0;
  try {
    Engine engine(plan, Console{messages.file(), messages.file()});
    engine.rb.infp = in;
    engine.sink = output->file();
    status = loopfmt_records(engine, record);
    rows = engine.rows;
    chunk.vrec = std::move(engine.vrec);
  } catch (const std::bad_alloc&) {
    status = kLoopNoMemory;
  } catch (const FatalError&) {
    // Bad data in a record: reported (into messages) and the run ended.
    status = kLoopRejected;
  }
  std::fclose(in);
  const bool written = output->close();
  if (!messages.close() || messages.size() != 0 || !written || status != kLoopDone) return;
  const size_t whole = size / static_cast<size_t>(record);
  const size_t bytes = static_cast<size_t>(plan.width()) * static_cast<size_t>(plan.variables());
  if (rows != whole || output->size() != size_t{rows} * bytes) return;
  chunk.rows = rows;
  chunk.output = std::move(output);
  chunk.clean = true;
}

// How the input is cut and each chunk converted.
struct Cutting {
  const Plan& plan;
  int64_t record = 0;    // packed: the record length; 0: lines
  size_t row_bytes = 0;  // one output row

  void convert(const char* text, size_t size, Chunk& chunk) const {
    if (record == 0) {
      convert_lines(plan, text, size, chunk);
    } else {
      convert_records(plan, record, text, size, chunk);
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
    convert(chunk.text.data(), end, prefix);
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
    text.swap(carry_);
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
    for (;;) {
      Chunk* chunk = nullptr;
      {
        std::unique_lock<std::mutex> lock(mutex_);
        wake_.wait(lock, [this] { return stop_ || !queue_.empty(); });
        if (stop_) return;
        chunk = queue_.front();
        queue_.pop_front();
      }
      cut_.convert(chunk->text.data(), chunk->text.size(), *chunk);
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
    Workers workers(cut, threads);
    if (!workers.running()) return Parallel::kNotTried;
    ChunkReader reader(in, target, cut.record);
    // A few chunks per worker in flight: memory stays flat in the input's size.
    const size_t window = static_cast<size_t>(threads) * 2;
    bool more = true;
    for (;;) {
      while (more && flight.size() < window) {
        auto chunk = std::make_unique<Chunk>();
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
      const char* rows = chunk.output->text();
      for (uint32_t r = 0; r < chunk.rows; ++r) {
        std::memcpy(writer.row(), rows + size_t{r} * cut.row_bytes, cut.row_bytes);
        if (writer.finish_row() == BlockWrite::kFailed) {
          merge_marks(engine.vrec, cut.marks_of_rows(chunk, r + 1));
          status = kLoopWriteFailed;
          return Parallel::kFinished;
        }
      }
      merge_marks(engine.vrec, chunk.vrec);
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

// fuzz/fuzz_support.h - what the fuzz targets share: a check that names the
// failed condition, a reader that turns the fuzzer's bytes into choices and
// strings, the process set-up every target makes before its first library
// call, allocator hooks that count blocks and can fail on demand, and a
// file in memory for the targets that read documents by name.
#ifndef QUILLOMAT_FUZZ_FUZZ_SUPPORT_H
#define QUILLOMAT_FUZZ_FUZZ_SUPPORT_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "core/context.h"
#include "core/memory.h"

// Stops the process, naming the condition, when it does not hold; libFuzzer
// and the replay main() both report the input that did it.
#define FUZZ_CHECK(condition)                                      \
  do {                                                             \
    if (!(condition)) qfuzz::fail(__FILE__, __LINE__, #condition); \
  } while (0)

namespace qfuzz {

[[noreturn]] inline void fail(const char *file, int line, const char *condition) {
  std::fprintf(stderr, "%s:%d: check failed: %s\n", file, line, condition);
  std::abort();
}

// Consumes the fuzzer's bytes from the front. Past the end every read gives
// zeros and empty strings, so any input is a complete, valid description.
class Input {
 public:
  Input(const uint8_t *data, size_t size) : data_(data), size_(size) {}

  [[nodiscard]] bool empty() const { return pos_ >= size_; }
  [[nodiscard]] size_t left() const { return size_ - pos_; }

  uint8_t byte() { return empty() ? 0 : data_[pos_++]; }
  bool flag() { return (byte() & 1) != 0; }
  // A number below n (n >= 1), from one byte, or two when n exceeds 256.
  uint32_t below(uint32_t n) {
    uint32_t v = byte();
    if (n > 256) v = v << 8 | byte();
    return v % n;
  }

  // A string of at most max bytes, ended by a backslash followed by any
  // byte but a backslash (both consumed), or by the end of the input; a
  // doubled backslash stands for one. A dictionary word inserted anywhere
  // thus lands inside one string instead of shifting every later field.
  std::string string(size_t max) {
    std::string s;
    while (!empty() && s.size() < max) {
      const char c = static_cast<char>(data_[pos_++]);
      if (c == '\\' && !empty()) {
        const char next = static_cast<char>(data_[pos_++]);
        if (next != '\\') break;
      }
      s.push_back(c);
    }
    return s;
  }

  // Whatever is left.
  std::string_view rest() {
    const std::string_view r(reinterpret_cast<const char *>(data_) + pos_, left());
    pos_ = size_;
    return r;
  }

 private:
  const uint8_t *data_;
  size_t size_;
  size_t pos_ = 0;
};

// Once per process, before the first library call: the message catalogue of
// the build tree unless one is named, and the C locale, so that output is
// UTF-8 and never converted (the expected texts the targets build are UTF-8).
inline void setUpProcess() {
  static const bool done = [] {
    if (std::getenv("VSX_LDAP_MESGDIR") == nullptr)
      setenv("VSX_LDAP_MESGDIR", QUILLOMAT_MESGDIR, 0);
    setenv("LC_ALL", "C", 1);
    FUZZ_CHECK(gsluizgcGetContext() != nullptr);
    return true;
  }();
  (void)done;
}

// A file in memory (memfd) that a reader opens by its /proc/self/fd path
// like any other file: created once, its bytes replaced for every input.
class MemoryFile {
 public:
  explicit MemoryFile(const char *name) : fd_(memfd_create(name, MFD_CLOEXEC)) {
    FUZZ_CHECK(fd_ >= 0);
    path_ = "/proc/self/fd/" + std::to_string(fd_);
  }
  ~MemoryFile() { close(fd_); }
  MemoryFile(const MemoryFile &) = delete;
  MemoryFile &operator=(const MemoryFile &) = delete;

  void assign(const void *bytes, size_t size) {
    FUZZ_CHECK(pwrite(fd_, bytes, size, 0) == static_cast<ssize_t>(size));
    FUZZ_CHECK(ftruncate(fd_, static_cast<off_t>(size)) == 0);
  }
  [[nodiscard]] const char *path() const { return path_.c_str(); }

 private:
  int fd_;
  std::string path_;
};

// Allocator hooks on the process-wide context, installed for the object's
// lifetime: they count the blocks alive, and refuse every allocation once
// `budget` allocations have succeeded (kUnlimited: never).
class CountingAllocator {
 public:
  static constexpr uint64_t kUnlimited = UINT64_MAX;

  explicit CountingAllocator(uint64_t budget) {
    budget_ = budget;
    live_ = 0;
    refused_ = 0;
    FUZZ_CHECK(gslumsSetHooks(nullptr, allocate, nullptr, reallocate, release) == 0);
  }
  ~CountingAllocator() { (void)gslumsSetHooks(nullptr, nullptr, nullptr, nullptr, nullptr); }
  CountingAllocator(const CountingAllocator &) = delete;
  CountingAllocator &operator=(const CountingAllocator &) = delete;

  // Blocks taken through the hooks and not yet given back.
  [[nodiscard]] static int64_t live() { return live_; }
  // Allocations refused so far.
  [[nodiscard]] static uint64_t refused() { return refused_; }
  static void setBudget(uint64_t budget) { budget_ = budget; }

 private:
  static void *allocate(gsluctx *, uint32_t size) {
    if (budget_ == 0) {
      ++refused_;
      return nullptr;
    }
    if (budget_ != kUnlimited) --budget_;
    void *p = std::malloc(size);
    if (p != nullptr) ++live_;
    return p;
  }
  static void *reallocate(gsluctx *, uint32_t size, void *old, uint32_t) {
    // realloc to 0 bytes would free the block the caller still owns.
    if (size == 0) return nullptr;
    if (budget_ == 0) {
      ++refused_;
      return nullptr;
    }
    if (budget_ != kUnlimited) --budget_;
    void *p = std::realloc(old, size);
    if (p != nullptr && old == nullptr) ++live_;
    return p;
  }
  static void release(gsluctx *, void *block) {
    if (block != nullptr) --live_;
    std::free(block);
  }

  static inline uint64_t budget_ = kUnlimited;
  static inline int64_t live_ = 0;
  static inline uint64_t refused_ = 0;
};

// What the first byte of a reader target's input chooses: the chunk size
// the parser reads with (bits 0-1; 1 and 7 split every token somewhere, the
// larger sizes keep half of the runs at a read per few KiB, since every
// chunk is a read of its own), and either which entry the callback refuses
// (bit 7 set: bits 2-6) or after how many allocations every allocation
// fails (bit 7 clear: bits 2-6, 0 for never; the budgets grow as cubes so
// that the later parts of long documents are reached too).
struct ControlByte {
  size_t chunk_size;
  uint32_t refuse;  // the entry the callback refuses (from 0), or UINT32_MAX
  uint64_t budget;  // allocations before every further one fails
};

inline ControlByte controlByte(uint8_t byte) {
  static constexpr size_t kChunkSizes[] = {1, 7, 512, 4096};
  const uint32_t choice = (byte >> 2) & 0x1f;
  const bool refusing = (byte & 0x80) != 0;
  const uint64_t budget = refusing || choice == 0
                              ? CountingAllocator::kUnlimited
                              : 1 + static_cast<uint64_t>(choice) * choice * choice / 4;
  return {kChunkSizes[byte & 3], refusing ? choice : UINT32_MAX, budget};
}

}  // namespace qfuzz

#endif  // QUILLOMAT_FUZZ_FUZZ_SUPPORT_H

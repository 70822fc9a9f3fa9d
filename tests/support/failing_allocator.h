// tests/support/failing_allocator.h - allocator hooks for tests: fail every
// allocation once a budget is used up, count the blocks alive, and record
// each reallocation's sizes.
#ifndef QUILLOMAT_TESTS_FAILING_ALLOCATOR_H
#define QUILLOMAT_TESTS_FAILING_ALLOCATOR_H

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "core/memory.h"

namespace qtest {

struct AllocatorState {
  size_t budget = SIZE_MAX;
  long live = 0;
  std::vector<std::pair<uint32_t, uint32_t>> reallocations;
};

// Installs its hooks on the process-wide context for its lifetime; one at a
// time. The reallocation hook moves the block and copies only the old size
// it is told, so a caller passing a wrong old size loses data.
class FailingAllocator {
 public:
  static constexpr size_t kUnlimited = SIZE_MAX;
  FailingAllocator() {
    s = AllocatorState{};
    (void)gslumsSetHooks(nullptr, allocate, nullptr, reallocate, release);
  }
  ~FailingAllocator() { (void)gslumsSetHooks(nullptr, nullptr, nullptr, nullptr, nullptr); }
  // Lets the next n allocations succeed and fails every later one.
  void failAfter(size_t n) { s.budget = n; }
  // Blocks allocated through the hooks minus blocks released through them.
  long live() const { return s.live; }
  // (new size, old size) of every reallocation, in order.
  const std::vector<std::pair<uint32_t, uint32_t>> &reallocations() const { return s.reallocations; }

 private:
  static inline AllocatorState s;
  static void *allocate(gsluctx *, uint32_t size) {
    if (s.budget == 0) return nullptr;
    if (s.budget != kUnlimited) --s.budget;
    ++s.live;
    return std::malloc(size);
  }
  static void *reallocate(gsluctx *, uint32_t size, void *old, uint32_t oldsize) {
    s.reallocations.emplace_back(size, oldsize);
    void *p = allocate(nullptr, size);
    if (p == nullptr || old == nullptr) return p;
    std::memcpy(p, old, std::min(size, oldsize));
    release(nullptr, old);
    return p;
  }
  static void release(gsluctx *, void *block) {
    --s.live;
    std::free(block);
  }
};

}  // namespace qtest

#endif  // QUILLOMAT_TESTS_FAILING_ALLOCATOR_H

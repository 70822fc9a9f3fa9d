// tests/support/failing_allocator.h - allocator hooks for tests: fail every
// allocation (zeroing ones included) once a budget is used up, count the
// blocks alive, and record each reallocation's sizes.
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

// Installs its hooks on the process-wide context for its lifetime; one at a
// time. The reallocation hook moves the block and copies only the old size
// it is told, so a caller passing a wrong old size loses data.
struct FailingAllocator {
  static constexpr size_t kUnlimited = SIZE_MAX;
  static inline size_t budget;  // allocations that may still succeed
  static inline long live;      // blocks allocated minus blocks released
  static inline std::vector<std::pair<uint32_t, uint32_t>> reallocations;  // (new, old size)

  FailingAllocator() {
    budget = kUnlimited;
    live = 0;
    reallocations.clear();
    (void)gslumsSetHooks(nullptr, allocate, allocateZeroed, reallocate, release);
  }
  ~FailingAllocator() { (void)gslumsSetHooks(nullptr, nullptr, nullptr, nullptr, nullptr); }

  static void *allocate(gsluctx *, uint32_t size) {
    if (budget == 0) return nullptr;
    if (budget != kUnlimited) --budget;
    ++live;
    return std::malloc(size);
  }
  static void *allocateZeroed(gsluctx *, uint32_t count, uint32_t size) {
    const uint64_t bytes = uint64_t{count} * size;
    void *p = bytes <= UINT32_MAX ? allocate(nullptr, static_cast<uint32_t>(bytes)) : nullptr;
    if (p != nullptr) std::memset(p, 0, bytes);
    return p;
  }
  static void *reallocate(gsluctx *, uint32_t size, void *old, uint32_t oldsize) {
    reallocations.emplace_back(size, oldsize);
    void *p = allocate(nullptr, size);
    if (p == nullptr || old == nullptr) return p;
    std::memcpy(p, old, std::min(size, oldsize));
    release(nullptr, old);
    return p;
  }
  static void release(gsluctx *, void *block) {
    --live;
    std::free(block);
  }
};

}  // namespace qtest

#endif  // QUILLOMAT_TESTS_FAILING_ALLOCATOR_H

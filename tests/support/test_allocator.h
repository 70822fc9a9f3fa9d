// tests/support/test_allocator.h - the allocator hooks every suite uses:
// they record each request, count the blocks and bytes alive (and their
// peak), and fail on demand, either every allocation once a budget is used
// up or exactly one numbered call. Blocks have exactly the requested size,
// so a sanitizer build sees any overrun. Not for use from several threads.
#ifndef QUILLOMAT_TESTS_SUPPORT_TEST_ALLOCATOR_H
#define QUILLOMAT_TESTS_SUPPORT_TEST_ALLOCATOR_H

#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "core/memory.h"

namespace qtest {

struct TestAllocator {
  static constexpr size_t kUnlimited = SIZE_MAX;

  static inline size_t budget = kUnlimited;   // allocations that may still succeed
  static inline size_t fail_at = kUnlimited;  // the one call (from 0) that fails
  static inline size_t calls = 0;             // allocation calls so far
  static inline long live = 0;                // blocks allocated minus blocks released
  static inline size_t bytes = 0;             // usable bytes of the blocks alive
  static inline size_t peak = 0;              // the most bytes alive at any time
  static inline std::vector<uint32_t> sizes;  // every request's size, in order
  static inline std::vector<void *> blocks;   // what each request got (null: refused)
  static inline std::vector<void *> freed;
  static inline std::vector<std::pair<uint32_t, uint32_t>> reallocations;  // (new, old size)

  // Clears every record and failure setting.
  static void reset() {
    budget = kUnlimited;
    fail_at = kUnlimited;
    calls = 0;
    live = 0;
    bytes = 0;
    peak = 0;
    sizes.clear();
    blocks.clear();
    freed.clear();
    reallocations.clear();
  }

  // Installs the four hooks on ctx (null: the process-wide context).
  static void install(gsluctx *ctx) {
    reset();
    (void)gslumsSetHooks(ctx, allocate, allocateZeroed, reallocate, release);
  }
  static void uninstall(gsluctx *ctx) {
    (void)gslumsSetHooks(ctx, nullptr, nullptr, nullptr, nullptr);
  }

  // Installed on the process-wide context for a scope.
  struct Scope {
    Scope() { install(nullptr); }
    ~Scope() { uninstall(nullptr); }
    Scope(const Scope &) = delete;
    Scope &operator=(const Scope &) = delete;
  };

  static void *allocate(gsluctx *, uint32_t size) {
    sizes.push_back(size);
    void *p = allowed() ? std::malloc(size) : nullptr;
    blocks.push_back(p);
    if (p != nullptr) counted(p);
    return p;
  }
  static void *allocateZeroed(gsluctx *ctx, uint32_t count, uint32_t size) {
    void *p = allocate(ctx, count * size);
    if (p != nullptr) std::memset(p, 0, static_cast<size_t>(count) * size);
    return p;
  }
  // Moves the block and copies only the old size it is told, so a caller
  // passing a wrong old size loses data.
  static void *reallocate(gsluctx *ctx, uint32_t size, void *old, uint32_t oldsize) {
    reallocations.emplace_back(size, oldsize);
    void *p = allocate(ctx, size);
    if (p == nullptr || old == nullptr) return p;
    std::memcpy(p, old, std::min(size, oldsize));
    release(ctx, old);
    return p;
  }
  static void release(gsluctx *, void *block) {
    freed.push_back(block);
    --live;
    bytes -= malloc_usable_size(block);
    std::free(block);
  }

 private:
  static bool allowed() {
    const size_t call = calls++;
    if (call == fail_at || budget == 0) return false;
    if (budget != kUnlimited) --budget;
    return true;
  }
  static void counted(void *p) {
    ++live;
    bytes += malloc_usable_size(p);
    peak = std::max(peak, bytes);
  }
};

// Fails the Nth allocation for N = 0, 1, ... until an attempt reads its
// input whole: attempt() runs with allocation N failing, and every block it
// took must be back once it returns; check(outcome, n) judges the outcome
// and says whether it was whole, which ends the sweep. Returns the number
// of attempts. Needs an installed TestAllocator::Scope.
template <class Attempt, class Check>
size_t sweepAllocationFailures(Attempt attempt, Check check) {
  constexpr size_t kMostAttempts = 10000;
  const long baseline = TestAllocator::live;
  size_t n = 0;
  for (bool whole = false; !whole && n < kMostAttempts; ++n) {
    TestAllocator::budget = n;
    const auto outcome = attempt();
    TestAllocator::budget = TestAllocator::kUnlimited;
    EXPECT_EQ(TestAllocator::live, baseline) << "allocation " << n;
    whole = check(outcome, n);
  }
  EXPECT_LT(n, kMostAttempts) << "never read whole";
  return n;
}

}  // namespace qtest

#endif  // QUILLOMAT_TESTS_SUPPORT_TEST_ALLOCATOR_H

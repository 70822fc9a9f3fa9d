// The allocator's override levels, the contexts its hooks receive and the
// rounding of C library requests.
#include <gtest/gtest.h>
#include <malloc.h>

#include "core/context_internal.h"
#include "tests/support/test_support.h"

namespace {

// Each call as "level-operation context size", the context named "ctx"
// when it is the process-wide one and "null" when null.
std::vector<std::string> g_calls;
alignas(16) unsigned char g_block[64];

void *record(const char *what, gsluctx *ctx, uint32_t size) {
  const char *who = ctx == nullptr ? "null" : ctx == gsluizgcGetContext() ? "ctx" : "other";
  g_calls.push_back(std::string(what) + " " + who + " " + std::to_string(size));
  return g_block;
}

constexpr gsluMemCallbacks kTable = {
    [](gsluctx *c, void *, uint32_t n) { return record("table-malloc", c, n); },
    [](gsluctx *c, void *, uint32_t, uint32_t n, const gsluMemCallbacks *) {
      return record("table-calloc", c, n);
    },
    [](gsluctx *c, void *, uint32_t n, void *, uint32_t, const gsluMemCallbacks *) {
      return record("table-realloc", c, n);
    },
    [](gsluctx *c, void *, void *) { (void)record("table-free", c, 0); }, nullptr};

void *hookMalloc(gsluctx *c, uint32_t n) { return record("hook-malloc", c, n); }
void *hookCalloc(gsluctx *c, uint32_t, uint32_t n) { return record("hook-calloc", c, n); }
void *hookRealloc(gsluctx *c, uint32_t n, void *, uint32_t) { return record("hook-realloc", c, n); }
void hookFree(gsluctx *c, void *) { (void)record("hook-free", c, 0); }

class MemoryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ctx_ = gsluizgcGetContext();
    ASSERT_NE(ctx_, nullptr);
    g_calls.clear();
  }
  void TearDown() override {
    ctx_->mem_table = nullptr;
    (void)gslumsSetHooks(ctx_, nullptr, nullptr, nullptr, nullptr);
  }
  gsluctx *ctx_ = nullptr;
};

// A table missing any one memory callback is ignored for all four
// operations and the hooks serve instead. A table gets the resolved context
// and unrounded sizes; of the hooks, zeroing and resizing get the caller's
// argument as given (here null).
TEST_F(MemoryTest, CompleteTableWinsAndHooksReceiveTheContextsStated) {
  ASSERT_EQ(gslumsSetHooks(ctx_, hookMalloc, hookCalloc, hookRealloc, hookFree), GSLUM_OK);
  const std::vector<std::string> table_calls = {"table-malloc ctx 5", "table-calloc ctx 6",
                                                "table-realloc ctx 7", "table-free ctx 0"};
  const std::vector<std::string> hook_calls = {"hook-malloc ctx 5", "hook-calloc null 6",
                                               "hook-realloc null 7", "hook-free ctx 0"};
  for (int missing = -1; missing <= 4; ++missing) {  // -1: no table at all; 4: none missing
    gsluMemCallbacks table = kTable;
    if (missing == 0) table.allocate = nullptr;
    if (missing == 1) table.allocate_zeroed = nullptr;
    if (missing == 2) table.reallocate = nullptr;
    if (missing == 3) table.release = nullptr;
    ctx_->mem_table = missing < 0 ? nullptr : &table;
    g_calls.clear();
    (void)gslummMalloc(nullptr, 5);
    (void)gslumcCalloc(nullptr, 2, 6);
    (void)gslumrRealloc(nullptr, 7, g_block, 3);
    (void)gslumfFree(nullptr, g_block);
    EXPECT_EQ(g_calls, missing == 4 ? table_calls : hook_calls) << "missing " << missing;
  }
}

// Each hook serves alone; zero sizes and null blocks call nothing.
TEST_F(MemoryTest, EachHookIsUsedByItselfAndZeroSizesCallNothing) {
  ASSERT_EQ(gslumsSetHooks(ctx_, hookMalloc, nullptr, nullptr, nullptr), GSLUM_OK);
  EXPECT_EQ(gslummMalloc(ctx_, 4), g_block);
  void *q = gslumcCalloc(ctx_, 1, 4);  // the C library
  ASSERT_NE(q, nullptr);
  EXPECT_EQ(gslumfFree(ctx_, q), GSLUM_OK);
  ASSERT_EQ(gslumsSetHooks(ctx_, hookMalloc, hookCalloc, hookRealloc, hookFree), GSLUM_OK);
  EXPECT_EQ(gslummMalloc(ctx_, 0), nullptr);
  EXPECT_EQ(gslumcCalloc(ctx_, 0, 4), nullptr);
  EXPECT_EQ(gslumcCalloc(ctx_, 4, 0), nullptr);
  EXPECT_EQ(gslumfFree(ctx_, nullptr), GSLUM_NULL_BLOCK);
  int status = -1;
  EXPECT_EQ(gslucmMalloc(ctx_, 0, &status), nullptr);
  EXPECT_EQ(status, GSLUM_NO_MEMORY);
  void *null_block = nullptr;
  EXPECT_EQ(gslucfFree(ctx_, &null_block), GSLUM_NULL_BLOCK);
  EXPECT_EQ(g_calls, std::vector<std::string>{"hook-malloc ctx 4"});
  EXPECT_EQ(gslumdDummyCalloc(ctx_, 1, 8), nullptr);  // no memory manager, no tagged blocks
}

TEST_F(MemoryTest, CLibraryRequestsAreRoundedAndAResizeToZeroKeepsTheBlock) {
  for (auto [size, reserved] : {std::pair{1u, 8u}, {8u, 8u}, {9u, 16u}, {17u, 24u}}) {
    void *p = gslummMalloc(ctx_, size);
    ASSERT_NE(p, nullptr);
#if defined(__SANITIZE_ADDRESS__)
    // The sanitizer's allocator reports exactly the size requested of it.
    EXPECT_EQ(malloc_usable_size(p), reserved) << size;
#else
    EXPECT_GE(malloc_usable_size(p), reserved) << size;
#endif
    EXPECT_EQ(gslumrRealloc(ctx_, 0, p, size), nullptr);
    EXPECT_EQ(gslumfFree(ctx_, p), GSLUM_OK);  // still valid: freed once, here
  }
}

}  // namespace

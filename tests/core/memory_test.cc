// The allocator's override levels, the contexts its hooks receive and the
// rounding of C library requests.
#include <gtest/gtest.h>

#include <malloc.h>

#include <vector>

#include "core/context_internal.h"
#include "tests/support/test_support.h"

namespace {

// Records which function ran and the context it was handed.
struct Call {
  const char *what;
  gsluctx *ctx;
  uint32_t size;
};
std::vector<Call> g_calls;
alignas(16) unsigned char g_block[64];

void *tableAlloc(gsluctx *ctx, void *, uint32_t size) {
  g_calls.push_back({"table-malloc", ctx, size});
  return g_block;
}
void *tableCalloc(gsluctx *ctx, void *, uint32_t, uint32_t size, const gsluMemCallbacks *) {
  g_calls.push_back({"table-calloc", ctx, size});
  return g_block;
}
void *tableRealloc(gsluctx *ctx, void *, uint32_t size, void *, uint32_t, const gsluMemCallbacks *) {
  g_calls.push_back({"table-realloc", ctx, size});
  return g_block;
}
void tableFree(gsluctx *ctx, void *, void *) { g_calls.push_back({"table-free", ctx, 0}); }

void *hookMalloc(gsluctx *ctx, uint32_t size) {
  g_calls.push_back({"hook-malloc", ctx, size});
  return g_block;
}
void *hookCalloc(gsluctx *ctx, uint32_t, uint32_t size) {
  g_calls.push_back({"hook-calloc", ctx, size});
  return g_block;
}
void *hookRealloc(gsluctx *ctx, uint32_t size, void *, uint32_t) {
  g_calls.push_back({"hook-realloc", ctx, size});
  return g_block;
}
void hookFree(gsluctx *ctx, void *) { g_calls.push_back({"hook-free", ctx, 0}); }

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
  // Runs the four operations, passing `arg` as the context.
  void runAll(gsluctx *arg) {
    (void)gslummMalloc(arg, 5);
    (void)gslumcCalloc(arg, 2, 6);
    (void)gslumrRealloc(arg, 7, g_block, 3);
    (void)gslumfFree(arg, g_block);
  }
  gsluctx *ctx_ = nullptr;
};

TEST_F(MemoryTest, CompleteTableWinsAndGetsTheResolvedContext) {
  static const gsluMemCallbacks table{tableAlloc, tableCalloc, tableRealloc, tableFree, nullptr};
  ctx_->mem_table = &table;
  ASSERT_EQ(gslumsSetHooks(ctx_, hookMalloc, hookCalloc, hookRealloc, hookFree), GSLUM_OK);
  runAll(nullptr);
  ASSERT_EQ(g_calls.size(), 4u);
  const char *expected[] = {"table-malloc", "table-calloc", "table-realloc", "table-free"};
  for (int i = 0; i < 4; ++i) {
    EXPECT_STREQ(g_calls[i].what, expected[i]);
    EXPECT_EQ(g_calls[i].ctx, ctx_);
  }
  EXPECT_EQ(g_calls[0].size, 5u) << "callbacks receive sizes unrounded";
}

// A table missing any one memory callback is ignored for all four
// operations; the hooks serve instead.
class PartialTableTest : public MemoryTest, public ::testing::WithParamInterface<int> {};

TEST_P(PartialTableTest, IsIgnoredEntirely) {
  gsluMemCallbacks table{tableAlloc, tableCalloc, tableRealloc, tableFree, nullptr};
  switch (GetParam()) {
    case 0: table.allocate = nullptr; break;
    case 1: table.allocate_zeroed = nullptr; break;
    case 2: table.reallocate = nullptr; break;
    default: table.release = nullptr; break;
  }
  ctx_->mem_table = &table;
  ASSERT_EQ(gslumsSetHooks(ctx_, hookMalloc, hookCalloc, hookRealloc, hookFree), GSLUM_OK);
  runAll(ctx_);
  ASSERT_EQ(g_calls.size(), 4u);
  for (const Call &c : g_calls) EXPECT_EQ(std::string(c.what).rfind("hook-", 0), 0u) << c.what;
}

INSTANTIATE_TEST_SUITE_P(MissingCallback, PartialTableTest, ::testing::Values(0, 1, 2, 3));

TEST_F(MemoryTest, HooksReceiveTheContextsStated) {
  ASSERT_EQ(gslumsSetHooks(ctx_, hookMalloc, hookCalloc, hookRealloc, hookFree), GSLUM_OK);
  runAll(nullptr);
  ASSERT_EQ(g_calls.size(), 4u);
  // allocate and free: the resolved context; zeroing and resizing: the
  // caller's argument as given, here null.
  EXPECT_EQ(g_calls[0].ctx, ctx_);
  EXPECT_EQ(g_calls[1].ctx, nullptr);
  EXPECT_EQ(g_calls[2].ctx, nullptr);
  EXPECT_EQ(g_calls[3].ctx, ctx_);
}

TEST_F(MemoryTest, EachHookIsUsedByItself) {
  ASSERT_EQ(gslumsSetHooks(ctx_, hookMalloc, nullptr, nullptr, nullptr), GSLUM_OK);
  void *p = gslummMalloc(ctx_, 4);
  EXPECT_EQ(p, g_block);
  void *q = gslumcCalloc(ctx_, 1, 4);  // the C library
  ASSERT_NE(q, nullptr);
  EXPECT_EQ(gslumfFree(ctx_, q), GSLUM_OK);
  EXPECT_EQ(g_calls.size(), 1u);
}

TEST_F(MemoryTest, ZeroSizesAndNullBlocks) {
  ASSERT_EQ(gslumsSetHooks(ctx_, hookMalloc, hookCalloc, hookRealloc, hookFree), GSLUM_OK);
  EXPECT_EQ(gslummMalloc(ctx_, 0), nullptr);
  EXPECT_EQ(gslumcCalloc(ctx_, 0, 4), nullptr);
  EXPECT_EQ(gslumcCalloc(ctx_, 4, 0), nullptr);
  EXPECT_EQ(gslumfFree(ctx_, nullptr), GSLUM_NULL_BLOCK);
  EXPECT_TRUE(g_calls.empty()) << "nothing may be called for these";
  void *null_block = nullptr;
  EXPECT_EQ(gslucfFree(ctx_, &null_block), GSLUM_NULL_BLOCK);
}

TEST_F(MemoryTest, CallbackFormsReportExhaustion) {
  int status = -1;
  EXPECT_EQ(gslucmMalloc(ctx_, 0, &status), nullptr);
  EXPECT_EQ(status, GSLUM_NO_MEMORY);
  void *p = gslucmMalloc(ctx_, 8, &status);
  EXPECT_EQ(status, GSLUM_OK);
  EXPECT_EQ(gslucfFree(ctx_, &p), GSLUM_OK);
  EXPECT_EQ(p, nullptr);
}

TEST_F(MemoryTest, ResizeToZeroLeavesTheBlockWithTheCaller) {
  void *p = gslummMalloc(ctx_, 16);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(gslumrRealloc(ctx_, 0, p, 16), nullptr);
  EXPECT_EQ(gslumfFree(ctx_, p), GSLUM_OK);  // still valid: freed once, here
}

TEST_F(MemoryTest, CLibraryRequestsAreRoundedToEightBytes) {
  struct Case {
    uint32_t size;
    std::size_t reserved;
  };
  for (const Case &c : {Case{1, 8}, Case{8, 8}, Case{9, 16}, Case{17, 24}}) {
    void *p = gslummMalloc(ctx_, c.size);
    ASSERT_NE(p, nullptr);
#if defined(__SANITIZE_ADDRESS__)
    // The sanitizer's allocator reports exactly the size requested of it.
    EXPECT_EQ(malloc_usable_size(p), c.reserved) << c.size;
#else
    EXPECT_GE(malloc_usable_size(p), c.reserved) << c.size;
#endif
    EXPECT_EQ(gslumfFree(ctx_, p), GSLUM_OK);
  }
}

TEST_F(MemoryTest, NoMemoryManagerMeansNoTaggedBlocks) {
  EXPECT_EQ(gslumdDummyCalloc(ctx_, 1, 8), nullptr);
}

}  // namespace

// Tests of core/pool.h: classes and reuse, large and foreign blocks, resizes,
// zeroing, and many slabs.
#include "core/pool.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <vector>

#include "core/memory.h"

namespace {

using gslu::poolCalloc;
using gslu::poolFree;
using gslu::poolMalloc;
using gslu::poolOwns;
using gslu::poolRealloc;

TEST(Pool, AFreedBlockServesTheNextRequestOfItsClass) {
  void *a = poolMalloc(nullptr, 24);
  ASSERT_NE(a, nullptr);
  EXPECT_TRUE(poolOwns(a));
  poolFree(nullptr, a);
  EXPECT_EQ(poolMalloc(nullptr, 32), a);  // 17 to 32 bytes: one class
  void *other = poolMalloc(nullptr, 33);
  EXPECT_NE(other, a);
  poolFree(nullptr, other);
  poolFree(nullptr, a);
}

TEST(Pool, LargeAndForeignBlocksBelongToTheCLibrary) {
  void *large = poolMalloc(nullptr, gslu::kPoolMaxSmall + 1);
  ASSERT_NE(large, nullptr);
  EXPECT_FALSE(poolOwns(large));
  std::memset(large, 1, gslu::kPoolMaxSmall + 1);
  poolFree(nullptr, large);
  void *foreign = std::malloc(16);  // taken before the pool was asked
  EXPECT_FALSE(poolOwns(foreign));
  poolFree(nullptr, foreign);  // handed back to the C library
  poolFree(nullptr, nullptr);
}

TEST(Pool, ResizesKeepTheContent) {
  auto *p = static_cast<char *>(poolMalloc(nullptr, 20));
  std::memcpy(p, "0123456789abcdefghi", 20);
  EXPECT_EQ(poolRealloc(nullptr, 32, p, 20), p);  // still fits its block
  auto *q = static_cast<char *>(poolRealloc(nullptr, 100, p, 32));
  ASSERT_NE(q, nullptr);
  EXPECT_STREQ(q, "0123456789abcdefghi");
  auto *r = static_cast<char *>(poolRealloc(nullptr, 4000, q, 100));  // now a large block
  ASSERT_NE(r, nullptr);
  EXPECT_FALSE(poolOwns(r));
  EXPECT_STREQ(r, "0123456789abcdefghi");
  r = static_cast<char *>(poolRealloc(nullptr, 8000, r, 4000));  // the C library resizes it
  EXPECT_STREQ(r, "0123456789abcdefghi");
  EXPECT_EQ(poolRealloc(nullptr, 0, r, 8000), nullptr);  // fails; r is still the caller's
  poolFree(nullptr, r);
  void *fresh = poolRealloc(nullptr, 8, nullptr, 0);
  EXPECT_TRUE(poolOwns(fresh));
  poolFree(nullptr, fresh);
}

TEST(Pool, ZeroedBlocksAreZeroEvenWhenReused) {
  auto *p = static_cast<unsigned char *>(poolMalloc(nullptr, 48));
  std::memset(p, 0xff, 48);
  poolFree(nullptr, p);
  auto *z = static_cast<unsigned char *>(poolCalloc(nullptr, 6, 8));
  ASSERT_EQ(z, p);
  for (int i = 0; i < 48; ++i) EXPECT_EQ(z[i], 0) << i;
  poolFree(nullptr, z);
  EXPECT_EQ(poolCalloc(nullptr, 0x10000, 0x10000), nullptr);  // count * size overflows
}

TEST(Pool, ManySlabsStayDistinctAndOwned) {
  std::vector<void *> blocks;
  std::set<void *> distinct;
  for (int i = 0; i < 20000; ++i) {  // several slabs of each of two classes
    void *p = poolMalloc(nullptr, i % 2 == 0 ? 16 : 200);
    ASSERT_NE(p, nullptr);
    std::memset(p, i & 0xff, 16);
    blocks.push_back(p);
    distinct.insert(p);
  }
  EXPECT_EQ(distinct.size(), blocks.size());
  for (void *p : blocks) {
    EXPECT_TRUE(poolOwns(p));
    poolFree(nullptr, p);
  }
}

TEST(Pool, InstalledItServesTheLibrary) {
  ASSERT_EQ(gslu::poolInstall(nullptr), 0);
  void *p = gslummMalloc(nullptr, 40);
  EXPECT_TRUE(poolOwns(p));
  EXPECT_EQ(gslumfFree(nullptr, p), GSLUM_OK);
  ASSERT_EQ(gslumsSetHooks(nullptr, nullptr, nullptr, nullptr, nullptr), 0);
}

}  // namespace

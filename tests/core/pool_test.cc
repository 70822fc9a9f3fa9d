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

// A freed block serves the next request of its class, zeroed when asked.
TEST(Pool, AFreedBlockServesTheNextRequestOfItsClass) {
  auto *a = static_cast<unsigned char *>(poolMalloc(nullptr, 24));
  ASSERT_TRUE(poolOwns(a));
  std::memset(a, 0xff, 24);
  poolFree(nullptr, a);
  void *other = poolMalloc(nullptr, 33);
  auto *z = static_cast<unsigned char *>(poolCalloc(nullptr, 4, 8));  // 17 to 32 bytes: one class
  EXPECT_EQ(z, a);
  EXPECT_NE(other, a);
  for (int i = 0; i < 32; ++i) EXPECT_EQ(z[i], 0) << i;
  poolFree(nullptr, other);
  poolFree(nullptr, z);
  EXPECT_EQ(poolCalloc(nullptr, 0x10000, 0x10000), nullptr);  // count * size overflows
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
  char *q = p;
  // Another class, then a large block, then the C library resizes it.
  for (auto [size, old] : {std::pair{100u, 32u}, {4000u, 100u}, {8000u, 4000u}}) {
    q = static_cast<char *>(poolRealloc(nullptr, size, q, old));
    ASSERT_NE(q, nullptr);
    EXPECT_STREQ(q, "0123456789abcdefghi");
  }
  EXPECT_FALSE(poolOwns(q));
  EXPECT_EQ(poolRealloc(nullptr, 0, q, 8000), nullptr);  // fails; q is still the caller's
  poolFree(nullptr, q);
  void *fresh = poolRealloc(nullptr, 8, nullptr, 0);
  EXPECT_TRUE(poolOwns(fresh));
  poolFree(nullptr, fresh);
}

TEST(Pool, ManySlabsStayDistinctAndOwned) {
  std::vector<void *> blocks;
  for (int i = 0; i < 20000; ++i) {  // several slabs of each of two classes
    blocks.push_back(poolMalloc(nullptr, i % 2 == 0 ? 16 : 200));
    ASSERT_NE(blocks.back(), nullptr);
    std::memset(blocks.back(), i & 0xff, 16);
  }
  EXPECT_EQ(std::set<void *>(blocks.begin(), blocks.end()).size(), blocks.size());
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

// Tests of util/hash.h: where keys land, the options and comparison rules,
// the kept oddities, re-initialisation, iteration, dumps, lock and
// allocation failures and (suite HashConcurrency) several threads at once.
#include "util/hash_internal.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <latch>
#include <mutex>
#include <thread>
#include <tuple>

#include "core/output.h"
#include "core/runtime.h"
#include "tests/support/test_allocator.h"
#include "tests/support/test_support.h"

namespace {

using Alloc = qtest::TestAllocator;
using Lines = std::vector<std::string>;

struct TraceLine {
  uint32_t level;
  std::string format;
  std::vector<int32_t> ints;
};
std::mutex g_trace_mutex;
std::vector<TraceLine> g_traces;

void captureTrace(uint32_t level, const char *format, const gsluArg *args, uint32_t count) {
  TraceLine line{level, format, {}};
  for (uint32_t i = 0; i < count; ++i) {
    if (args[i].type == GSLUF_ARG_INT32_PTR) line.ints.push_back(*args[i].value.i32);
  }
  std::lock_guard<std::mutex> guard(g_trace_mutex);
  g_traces.push_back(line);
}

Lines traceFormats() {
  Lines out;
  for (const TraceLine &t : g_traces) out.push_back(t.format);
  return out;
}

int g_released = 0;
void countRelease(void *) { ++g_released; }

class HashTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ctx_ = gsluizgcGetContext();
    ASSERT_NE(ctx_, nullptr);
    g_traces.clear();
    g_released = 0;
    ASSERT_EQ(gslutsSetTraceHook(ctx_, captureTrace), 0);
  }
  void TearDown() override {
    Alloc::uninstall(ctx_);
    gslu::rwlockFailCreateAfter(-1);
    for (gsluhhTable *t : tables_) EXPECT_EQ(gsluhhClntHashTableFree(ctx_, t), GSLUHH_OK);
    (void)gslutsSetTraceHook(ctx_, nullptr);
  }
  gsluhhTable *make(uint32_t buckets = 16, int32_t locks = 0, gsluhhHashFunction hash = nullptr) {
    gsluhhTable *t = nullptr;
    EXPECT_EQ(gsluhhClntHashTableAlloc(ctx_, buckets, hash, &t, locks), GSLUHH_OK);
    if (t != nullptr) tables_.push_back(t);
    return t;
  }
  void insert(gsluhhTable *t, std::initializer_list<const char *> keys, void *value = nullptr) {
    for (const char *k : keys) ASSERT_EQ(gsluhhClntHashInsert(ctx_, t, k, value, 0), 0) << k;
  }
  gsluctx *ctx_ = nullptr;
  std::vector<gsluhhTable *> tables_;
};

uint32_t hashOf(gsluhhTable *t, const std::string &key) {
  uint32_t position = 0;
  const uint32_t h = gsluhhClntHashFunc(t, key.c_str(), &position);
  EXPECT_EQ(position, key.size());
  return h;
}

// Keys hash to the sum of their bytes weighted by the cube of their
// position (so, deliberately, never by the first byte), modulo 2^32 and then
// the bucket count; 16 buckets take the sum AND 15.
TEST_F(HashTest, SumsOfBytesWeightedByCubedPositions) {
  gsluhhTable *t65003 = make(65003), *t16 = make(16), *t7 = make(7);
  const struct {
    const char *key;
    uint32_t sum, bucket16;
  } cases[] = {{"md5", 524, 12}, {"MD5", 492, 12}, {"sha", 880, 0}, {"ssha", 3566, 14},
               {"a", 0, 0},      {"", 0, 0},       {"Ab", 98, 2},   {"\377b", 98, 2}};
  for (const auto &c : cases) {
    EXPECT_EQ(hashOf(t65003, c.key), c.sum) << c.key;
    EXPECT_EQ(hashOf(t16, c.key), c.bucket16) << c.key;
    EXPECT_EQ(hashOf(t7, c.key), c.sum % 7) << c.key;
  }
  // A key of n bytes 1 sums the cubes below n: (n(n-1)/2)^2 modulo 2^32. The
  // cube of 1626 is the first to wrap; past the last weight the cubes go on.
  for (uint64_t n : {uint64_t{1627}, uint64_t{GSLUHH_WEIGHT_COUNT + 3}}) {
    const uint64_t half = n * (n - 1) / 2;
    EXPECT_EQ(hashOf(t65003, std::string(n, '\1')), static_cast<uint32_t>(half * half) % 65003);
  }
  // Requests are capped; the sum of cubes below 40, 608400, tells the count.
  for (auto [requested, count] : {std::pair{0u, 256u}, std::pair{1u, 1u}, std::pair{65003u, 65003u},
                                  std::pair{65004u, 65003u}}) {
    gsluhhTable *t = nullptr;
    ASSERT_EQ(gsluhhClntcCreateStrHash(nullptr, requested, &t, 0), GSLUHH_OK);
    tables_.push_back(t);
    EXPECT_EQ(hashOf(t, std::string(40, '\1')), 608400u % count) << requested;
  }
}

// The options as their effects show. (The comparison switches have a table
// of their own below.)
TEST_F(HashTest, OptionsDoWhatTheyNameAndUnknownOnesFail) {
  gsluhhTable *t = make();
  char text[] = "v";
  EXPECT_EQ(gsluhhClntSetHTOptions(t, 3, 1, nullptr), GSLUHH_FAILED);
  ASSERT_EQ(gsluhhClntSetHTOptions(t, GSLUHH_OPT_VALUE_IS_KEY, 1, nullptr), GSLUHH_OK);
  // A release function turns value-is-key off: a copied value is the value's.
  ASSERT_EQ(gsluhhClntSetHTOptions(t, GSLUHH_OPT_FREEFUNC, 0, countRelease), GSLUHH_OK);
  ASSERT_EQ(gsluhhClntHashInsert(ctx_, t, "k", text, 1), GSLUHH_OK);
  void *value = nullptr;
  ASSERT_EQ(gsluhhClntHashSearch(ctx_, t, "k", &value), GSLUHH_OK);
  EXPECT_STREQ(static_cast<char *>(value), "v");
  // The defaults drop the release function.
  ASSERT_EQ(gsluhhClntSetHTOptions(t, GSLUHH_OPT_DEFAULTS, 0, nullptr), GSLUHH_OK);
  ASSERT_EQ(gsluhhClntHashDelete(ctx_, t, "k"), GSLUHH_OK);
  EXPECT_EQ(g_released, 0);
  // Without the search lock, a search goes on beside this thread's writing
  // iteration, which holds the table's write lock.
  ASSERT_EQ(gsluhhClntSetHTOptions(t, GSLUHH_OPT_LOCK_SEARCH, 0, nullptr), GSLUHH_OK);
  insert(t, {"k"});
  gsluhhIterator *it = gsluhhClntHashBeginIter(ctx_, t);
  EXPECT_EQ(gsluhhClntHashSearch(ctx_, t, "k", &value), GSLUHH_OK);
  ASSERT_EQ(gsluhhClntHashEndIter(ctx_, it), GSLUHH_OK);
}

TEST_F(HashTest, DuplicateKeepsTheFirstValueAndInsertStrSays1025) {
  gsluhhTable *t = make();
  int first = 1, second = 2;
  ASSERT_EQ(gsluhhClntbInsertStr(t, "md5", &first, 0), GSLUHH_OK);
  const char *stored = "not cleared";
  EXPECT_EQ(gsluhhClntShrdKeyHashInsert(ctx_, t, "md5", &stored, &second, 0), GSLUHH_DUPLICATE);
  EXPECT_EQ(stored, nullptr);
  EXPECT_EQ(gsluhhClntbInsertStr(t, "md5", &second, 0), GSLUHH_STR_DUPLICATE);
  EXPECT_EQ(traceFormats(), Lines(2, "Duplicate while inserting in Hash Table.\n"));
  EXPECT_EQ(g_traces[0].level, 0x40000u);
  void *value = nullptr;
  EXPECT_EQ(gsluhhClntdSearchStr(t, "md5", &value), GSLUHH_OK);
  EXPECT_EQ(value, &first);
  EXPECT_EQ(gsluhhClntGetNumElements(t), 1u);
}

struct CompareCase {
  int32_t lang, nocase;
  bool finds_other_case;
};

void PrintTo(const CompareCase &c, std::ostream *os) {
  *os << "lang " << c.lang << ", nocase " << c.nocase;
}

class CompareTest : public HashTest, public ::testing::WithParamInterface<CompareCase> {};

// The password-scheme table is such a table: "MD5" must find "md5".
TEST_P(CompareTest, LookupFollowsTheSwitchesInsertAndDeleteStayExact) {
  gsluhhTable *t = make();
  ASSERT_EQ(gsluhhClntSetHTOptions(t, GSLUHH_OPT_LANGCMP, GetParam().lang, nullptr), GSLUHH_OK);
  ASSERT_EQ(gsluhhClntSetHTOptions(t, GSLUHH_OPT_NOCASE, GetParam().nocase, nullptr), GSLUHH_OK);
  int code = 7002;
  insert(t, {"md5"}, &code);
  void *value = &value;
  const bool found = gsluhhClntHashSearch(ctx_, t, "MD5", &value) == GSLUHH_OK;
  EXPECT_EQ(found, GetParam().finds_other_case);
  EXPECT_EQ(value, found ? static_cast<void *>(&code) : nullptr);
  EXPECT_EQ(gsluhhClntHashKeySearch(ctx_, t, "MD5") != nullptr, found);
  EXPECT_EQ(gsluhhClntHashDelete(ctx_, t, "MD5"), GSLUHH_NOT_FOUND);
  EXPECT_EQ(gsluhhClnteRemoveStr(t, "MD5"), GSLUHH_FAILED);
  insert(t, {"MD5"});
}

// The language service is used only when its switch is exactly 1.
INSTANTIATE_TEST_SUITE_P(Switches, CompareTest,
                         ::testing::Values(CompareCase{1, 0, false}, CompareCase{1, 1, true},
                                           CompareCase{1, 2, false}, CompareCase{0, 1, true},
                                           CompareCase{2, 1, true}, CompareCase{2, 0, false},
                                           CompareCase{2, 2, true}));

TEST_F(HashTest, NotFoundTouchesTheOutputOnlyInANonEmptyBucketDeliberately) {
  gsluhhTable *t = make();
  int code = 1;
  insert(t, {"md5"}, &code);
  void *value = &code;
  EXPECT_EQ(gsluhhClntHashSearch(ctx_, t, "sha", &value), GSLUHH_NOT_FOUND);  // bucket 0: empty
  EXPECT_EQ(value, &code);
  EXPECT_EQ(gsluhhClntHashSearch(ctx_, t, "MD5", &value), GSLUHH_NOT_FOUND);  // bucket 12
  EXPECT_EQ(value, nullptr);
  EXPECT_TRUE(g_traces.empty());
}

// Copied values and value-is-key; the element block keeps the generous
// rounding of its slots ((length + 9) rounded down to 8).
TEST_F(HashTest, ValueCopiesAndSlotSizes) {
  gsluhhTable *t = make();
  char text[] = "secret";
  const char *stored = nullptr;
  ASSERT_EQ(gsluhhClntShrdKeyHashInsert(ctx_, t, "copy", &stored, text, 1), GSLUHH_OK);
  ASSERT_EQ(gsluhhClntSetHTOptions(t, GSLUHH_OPT_VALUE_IS_KEY, 1, nullptr), GSLUHH_OK);
  ASSERT_EQ(gsluhhClntHashInsert(ctx_, t, "self", text, 1), GSLUHH_OK);
  text[0] = 'S';
  EXPECT_EQ(stored, gsluhhClntHashKeySearch(ctx_, t, "copy"));
  void *copy = nullptr, *self = nullptr;
  ASSERT_EQ(gsluhhClntHashSearch(ctx_, t, "copy", &copy), GSLUHH_OK);
  ASSERT_EQ(gsluhhClntHashSearch(ctx_, t, "self", &self), GSLUHH_OK);
  EXPECT_STREQ(static_cast<char *>(copy), "secret");
  EXPECT_EQ(self, gsluhhClntHashKeySearch(ctx_, t, "self"));
  ASSERT_EQ(gsluhhClntSetHTOptions(t, GSLUHH_OPT_VALUE_IS_KEY, 0, nullptr), GSLUHH_OK);
  const struct {
    const char *key, *value;
    uint32_t slots;
  } cases[] = {{"k", nullptr, 8}, {"kkkkkk", nullptr, 8}, {"kkkkkkk", nullptr, 16},
               {"a", "", 16},     {"b", "vvvvvvv", 24},   {"c", "vvvvvvvvvvvvvvv", 32}};
  Alloc::install(ctx_);
  for (const auto &c : cases) {
    ASSERT_EQ(gsluhhClntHashInsert(ctx_, t, c.key, const_cast<char *>(c.value), 1), GSLUHH_OK);
    EXPECT_EQ(Alloc::sizes.back(), sizeof(gsluhhElement) + c.slots) << c.key;
  }
}

// Deleting from the head, middle and tail of one chain (all keys of one
// byte land in bucket 0) leaves the rest findable; the release function
// sees every non-null value once, at deletion or destruction.
TEST_F(HashTest, DeletionAnywhereInAChainAndReleases) {
  gsluhhTable *t = nullptr;
  ASSERT_EQ(gsluhhClntcCreateStrHash(ctx_, 16, &t, 1), GSLUHH_OK);
  int v = 0;
  ASSERT_EQ(gsluhhClntSetHTOptions(t, GSLUHH_OPT_FREEFUNC, 0, countRelease), GSLUHH_OK);
  insert(t, {"a", "b", "c", "d", "e", "f"}, &v);
  insert(t, {"g"});
  for (const char *k : {"a", "c", "g"}) EXPECT_EQ(gsluhhClntHashDelete(ctx_, t, k), GSLUHH_OK);
  EXPECT_EQ(g_released, 2);
  for (const char *k : {"b", "d", "e", "f"}) {
    EXPECT_NE(gsluhhClntHashKeySearch(ctx_, t, k), nullptr) << k;
  }
  for (const char *k : {"f", "d"}) EXPECT_EQ(gsluhhClntHashDelete(ctx_, t, k), GSLUHH_OK);
  insert(t, {"h"}, &v);  // after the new tail
  EXPECT_EQ(gsluhhClntGetNumElements(t), 3u);
  EXPECT_EQ(gsluhhClntaDestroyStrHash(nullptr, t), GSLUHH_OK);
  EXPECT_EQ(g_released, 7);
}

// Deliberate: a table's weight array outlives the table; a second
// reference delays the free of the rest.
TEST_F(HashTest, ReferencesDelayTheFreeWhichKeepsTheWeightArrayDeliberately) {
  Alloc::install(ctx_);
  gsluhhTable *t = nullptr;
  ASSERT_EQ(gsluhhClntcCreateStrHash(ctx_, 16, &t, 0), GSLUHH_OK);
  ASSERT_EQ(Alloc::blocks.size(), 3u);  // record, weights, buckets
  ASSERT_EQ(gsluhhClntIncrRefCnt(ctx_, t), GSLUHH_OK);
  ASSERT_EQ(gsluhhClntHashTableFree(ctx_, t), GSLUHH_OK);
  EXPECT_TRUE(Alloc::freed.empty());
  ASSERT_EQ(gsluhhClntHashTableFree(ctx_, t), GSLUHH_OK);
  EXPECT_EQ(Alloc::freed, (std::vector<void *>{Alloc::blocks[2], Alloc::blocks[0]}));
  std::free(Alloc::blocks[1]);
}

TEST_F(HashTest, ReinitialisationEmptiesAndBlocksSearchesUntilEnded) {
  gsluhhTable *t = make();
  ASSERT_EQ(gsluhhClntSetHTOptions(t, GSLUHH_OPT_FREEFUNC, 0, countRelease), GSLUHH_OK);
  insert(t, {"md5"}, t);
  ASSERT_EQ(gsluhhClntIncrRefCnt(ctx_, t), GSLUHH_OK);
  EXPECT_EQ(gsluhhClntiInitHT(ctx_, t), GSLUHH_OK);  // two references: nothing
  EXPECT_EQ(gsluhhClntGetNumElements(t), 1u);
  ASSERT_EQ(gsluhhClntHashTableFree(ctx_, t), GSLUHH_OK);
  EXPECT_EQ(gsluhhClntiInitHT(nullptr, t), GSLUHH_OK);
  EXPECT_EQ(g_released, 1);
  EXPECT_EQ(gsluhhClntGetNumElements(t), 0u);
  insert(t, {"sha"});
  void *value = nullptr;
  EXPECT_EQ(gsluhhClntHashSearch(ctx_, t, "sha", &value), GSLUHH_FAILED);
  EXPECT_EQ(traceFormats(), Lines{"gsluhHashSearch : ERROR * Hash table init in progress \n"});
  EXPECT_EQ(gsluhhClntHashKeySearch(ctx_, t, "sha"), nullptr);
  EXPECT_EQ(gsluhhClntHashTableFree(ctx_, t), GSLUHH_OK);  // refused silently
  EXPECT_EQ(gsluhhClntHashDelete(ctx_, t, "sha"), GSLUHH_OK);
  EXPECT_EQ(gsluhhClntEndInitHT(ctx_, t), GSLUHH_OK);
  insert(t, {"md5"});
  EXPECT_EQ(gsluhhClntHashSearch(ctx_, t, "md5", &value), GSLUHH_OK);
}

// The keys and the end of a walk ("1003" when both outputs end null).
Lines walk(gsluhhIterator *it) {
  Lines seen;
  const char *key = "";
  void *value = &seen;
  int rc;
  while ((rc = gsluhhClntHashIterNext(nullptr, &key, &value, it)) == GSLUHH_OK) seen.push_back(key);
  seen.push_back(key == nullptr && value == nullptr ? std::to_string(rc) : "outputs left set");
  return seen;
}

TEST_F(HashTest, IterationWalksBucketsInOrderAndChainsInInsertionOrder) {
  gsluhhTable *t = make();
  gsluhhIterator *it = gsluhhClntHashBeginIter(ctx_, t);
  EXPECT_EQ(walk(it), Lines{"1003"});
  ASSERT_EQ(gsluhhClntHashEndIter(ctx_, it), GSLUHH_OK);
  insert(t, {"aE", "sha", "aU", "x"});  // buckets 5, 0, 5, 0
  const Lines order{"sha", "x", "aE", "aU", "1003"};
  it = gsluhhClntHashBeginIter(ctx_, t);
  EXPECT_EQ(walk(it), order);
  EXPECT_EQ(walk(it), Lines{"1003"});  // stays at the end
  ASSERT_EQ(gsluhhClntHashEndIter(ctx_, it), GSLUHH_OK);
  gsluhhIterator ro{};
  ASSERT_EQ(gsluhhClntHashRDONLYBeginIter(ctx_, t, &ro), GSLUHH_OK);
  uint32_t int_key = 9;
  EXPECT_EQ(gsluhhClntintHashIterNext(ctx_, &int_key, nullptr, &ro), GSLUHH_OK);
  EXPECT_EQ(int_key, 0u);  // string insertion leaves the integer key 0
  EXPECT_EQ(walk(&ro), Lines(order.begin() + 1, order.end()));
  ASSERT_EQ(gsluhhClntHashRDONLYEndIter(ctx_, &ro), GSLUHH_OK);
}

TEST_F(HashTest, DumpsPrintEveryBucketExactly) {
  gsluhhTable *t = make(6);  // sums modulo 6: "x" 0, "aE" 69 and "aK" 75: 3, "sha" 880: 4
  char v1[] = "v1";
  ASSERT_EQ(gsluhhClntHashInsert(ctx_, t, "sha", v1, 1), GSLUHH_OK);
  insert(t, {"x"});
  insert(t, {"aE", "aK"}, v1);
  char buffer[64] = "old";
  ASSERT_EQ(gsluhhClntHashTableDumpinBuff(ctx_, t, buffer), GSLUHH_OK);
  EXPECT_STREQ(buffer, "x: \naE: v1\naK: v1\nsha: v1\n");
  qtest::TempDir dir;
  ASSERT_EQ(gsluhhClntHashTableDump(ctx_, t, (dir.path() + "/d").c_str()), GSLUHH_OK);
  EXPECT_TRUE(
      qtest::readFile(dir.path() + "/d")
          .ends_with(
              "   BUCKET # 3      num_elems: 2 \n(aE:v1)\n(aK:v1)\n\n"
              "   BUCKET # 4      num_elems: 1 \n(sha:v1)\n\n   BUCKET # 5      num_elems: 0 \n\n"
              "-------------------------------------------\n"));
  EXPECT_EQ(gsluhhClntHashTableDump(ctx_, t, (dir.path() + "/no/dir").c_str()), GSLUHH_FAILED);
  EXPECT_EQ(gsluhhClntHashTableDumpinBuff(ctx_, t, nullptr), GSLUHH_FAILED);
  EXPECT_EQ(traceFormats(), Lines{"Error opening o/p file\n"});
}

TEST_F(HashTest, NullAndInvalidTables) {
  void *value = nullptr;
  EXPECT_EQ(gsluhhClntHashInsert(ctx_, nullptr, "k", nullptr, 0), GSLUHH_FAILED);
  EXPECT_EQ(gsluhhClntHashSearch(ctx_, nullptr, "k", &value), GSLUHH_FAILED);
  EXPECT_EQ(gsluhhClntHashTableFree(ctx_, nullptr), GSLUHH_FAILED);
  gsluhhTable *t = make();
  t->magic = 0;
  EXPECT_EQ(gsluhhClntHashInsert(ctx_, t, "k", nullptr, 0), GSLUHH_FAILED);
  EXPECT_EQ(gsluhhClntHashSearch(ctx_, t, "k", &value), GSLUHH_INVALID_TABLE);
  EXPECT_EQ(gsluhhClntHashDelete(ctx_, t, "k"), GSLUHH_INVALID_TABLE);
  EXPECT_EQ(gsluhhClntiInitHT(ctx_, t), GSLUHH_INVALID_TABLE);
  EXPECT_EQ(gsluhhClntaDestroyStrHash(ctx_, t), GSLUHH_FAILED);
  EXPECT_EQ(gsluhhClntHashBeginIter(ctx_, t), nullptr);
  EXPECT_EQ(traceFormats(), (Lines{"gsluhShrdKeyHashInsert: Invalid hash table pointer \n",
                                   "gsluhHashSearch: ERROR * Invalid hash table pointer \n",
                                   "Hash Table Verification failed..\n",
                                   "gsluhHashSearch:ERROR * gsluhhClntHashTableVerify failed\n"}));
  t->magic = GSLUHH_MAGIC;
}

// The calling thread holds the table's write lock through a writing
// iteration, so every other lock of the table fails on this thread.
TEST_F(HashTest, TableLockFailuresAreReportedAndACountFailureReadsAsTwo) {
  gsluhhTable *t = make();
  insert(t, {"md5", "sha"});
  gsluhhIterator *it = gsluhhClntHashBeginIter(ctx_, t);
  const std::pair<std::function<int()>, const char *> cases[] = {
      {[&] { return gsluhhClntHashInsert(ctx_, t, "k", nullptr, 0); },
       "gsluhHashInsert: Failed to aquire write lock..\n"},
      {[&] { return gsluhhClntdSearchStr(t, "md5", nullptr, 1, 2); },
       "gsluhHashSearch: ERROR * sltsrwread failed \n"},
      {[&] { return gsluhhClntHashDelete(ctx_, t, "md5"); },
       "gsluhHashDelete: Failed to aquire lock\n"},
      {[&] { return gsluhhClntSetHTOptions(t, GSLUHH_OPT_NOCASE, 1, nullptr); },
       "gsluhSetHTOptions: ERROR * Write lock on the hash table failed\n"},
      // Deliberate: a failure reads as 2, which is also this table's count.
      {[&] { return static_cast<int>(gsluhhClntGetNumElements(t)); },
       "gsluhGetNumElements: ERROR * read lock on the hash table failed\n"},
      {[&] { return gsluhhClntHashTableFree(ctx_, t); },
       "gsluhHashTableFree : ERROR * sltsrwwrite failed \n"},
      {[&] { return gsluhhClntiInitHT(ctx_, t); },
       "gsluhiInitHT:Failed to aquire hash table lock\n"},
      {[&] { return gsluhhClntIncrRefCnt(ctx_, t); }, nullptr},
      {[&] { return gsluhhClntHashKeySearch(ctx_, t, "md5") ? 0 : 2; }, nullptr},
  };
  for (const auto &[call, trace] : cases) {
    g_traces.clear();
    EXPECT_EQ(call(), GSLUHH_FAILED);
    EXPECT_EQ(traceFormats(), trace ? Lines{trace} : Lines{});
  }
  ASSERT_EQ(gsluhhClntHashEndIter(ctx_, it), GSLUHH_OK);
  EXPECT_EQ(gsluhhClntGetNumElements(t), 2u);
}

// Insert, search and delete of key all fail with 2, tracing these lines.
void expectKeyOperationsFail(gsluctx *ctx, gsluhhTable *t, const char *key, const Lines &traces) {
  void *value = nullptr;
  EXPECT_EQ(gsluhhClntHashInsert(ctx, t, key, nullptr, 0), GSLUHH_FAILED);
  EXPECT_EQ(gsluhhClntHashSearch(ctx, t, key, &value), GSLUHH_FAILED);
  EXPECT_EQ(gsluhhClntHashDelete(ctx, t, key), GSLUHH_FAILED);
  EXPECT_EQ(traceFormats(), traces);
}

TEST_F(HashTest, BucketLockFailuresAreReportedAndTheInsertBlockIsKept) {
  gsluhhTable *t = make(16, 1);
  ASSERT_EQ(pthread_rwlock_wrlock(&t->buckets[12].lock), 0);  // the bucket of "md5"
  Alloc::install(ctx_);
  expectKeyOperationsFail(
      ctx_, t, "md5",
      {"gsluhHashInsert:Aquiring Bucket lock failed..\n",
       "gsluhHashSearch : ERROR * sltsread failed \n", "gsluhHashDelete: Failed to aquire lock\n"});
  ASSERT_EQ(Alloc::blocks.size(), 1u);  // the element block, still allocated
  std::free(Alloc::blocks[0]);
  ASSERT_EQ(pthread_rwlock_unlock(&t->buckets[12].lock), 0);
  insert(t, {"md5"});  // no lock was left held
}

// A hash function that answers one past the last bucket.
uint32_t outOfRange(gsluhhTable *table, const char *, uint32_t *) { return table->bucket_count; }

TEST_F(HashTest, HashValueOutOfRangeFailsEveryKeyOperation) {
  gsluhhTable *t = make(16, 0, outOfRange);
  expectKeyOperationsFail(ctx_, t, "k",
                          {"Incorrect Hash Value (%d). Max Possible (%d)..\n",
                           "gsluhHashSearch : ERROR * Hash table init in progress \n",
                           "gsluhHashDelete: Invalid bucket number\n"});
  EXPECT_EQ(g_traces[0].ints, (std::vector<int32_t>{16, 16}));
  for (const TraceLine &line : g_traces) EXPECT_EQ(line.level, 0x7fffffffu);
}

// Creation fails at its Nth allocation (record, weights, buckets) or lock
// (-1: all succeed); nothing is handed out.
TEST_F(HashTest, CreationFailuresHandOutNothing) {
  const char kNoTable[] = "Error in allocating Memory for HashTable\n";
  const char kNoBuckets[] = "gsluhHashTableAlloc: ERROR * gsluhHashBucketsAlloc failed\n";
  const char kNoBucketLock[] = "gsluhHashBucketAlloc: failed to initialize the bucket lock\n";
  const char kNoTableLock[] = "gsluhHashBucketsAlloc: ERROR * sltsrwinit failed \n";
  const std::tuple<int, int, int32_t, Lines> cases[] = {
      {0, -1, 0, {kNoTable}},
      {1, -1, 0, {kNoTable}},
      {2, -1, 0, {"Error in allocating Memory for Hash Buckets\n", kNoBuckets}},
      {-1, 9, 1, {kNoBucketLock, kNoBuckets}},
      {-1, 17, 1, {kNoTableLock}},
      {-1, 0, 0, {kNoTableLock}}};
  for (const auto &[allocations, locks, bucket_locks, traces] : cases) {
    Alloc::install(ctx_);
    Alloc::budget = allocations < 0 ? Alloc::kUnlimited : allocations;
    gslu::rwlockFailCreateAfter(locks);
    g_traces.clear();
    gsluhhTable *t = reinterpret_cast<gsluhhTable *>(&t);
    EXPECT_EQ(gsluhhClntcCreateStrHash(ctx_, 16, &t, bucket_locks), GSLUHH_FAILED);
    EXPECT_EQ(t, nullptr);
    EXPECT_EQ(traceFormats(), traces) << allocations << " allocations, " << locks << " locks";
  }
}

TEST_F(HashTest, OtherAllocationFailures) {
  gsluhhTable *t = make();
  Alloc::install(ctx_);
  Alloc::budget = 0;
  const char *stored = "x";
  EXPECT_EQ(gsluhhClntShrdKeyHashInsert(ctx_, t, "k", &stored, nullptr, 0), GSLUHH_FAILED);
  EXPECT_EQ(stored, nullptr);
  EXPECT_EQ(gsluhhClntHashBeginIter(ctx_, t), nullptr);
  EXPECT_EQ(gsluhhClntHashTableAlloc(ctx_, 16, nullptr, nullptr, 0), GSLUHH_FAILED);
  EXPECT_EQ(traceFormats(), (Lines{"Error allocating Memory for Hash Element..\n",
                                   "gsluhHashTableAlloc: ERROR * Invalid pointer passed \n"}));
  Alloc::budget = Alloc::kUnlimited;
  insert(t, {"k"});  // no lock was left held
}

// Several threads insert, search and delete their own keys while reading
// each other's; run under ThreadSanitizer in CI.
class HashConcurrency : public HashTest, public ::testing::WithParamInterface<int32_t> {};

TEST_P(HashConcurrency, ThreadsInsertSearchAndDelete) {
  constexpr int kThreads = 4, kKeys = 2000;
  gsluhhTable *t = make(8, GetParam());  // few buckets: chains are shared
  auto key = [](int thread, int i) {
    return "t" + std::to_string(thread) + "-" + std::to_string(i);
  };
  std::vector<int> failures(kThreads, 0);
  std::vector<std::thread> threads;
  std::latch start(kThreads);  // all threads run at once
  for (int n = 0; n < kThreads; ++n) {
    threads.emplace_back([&, n] {
      start.arrive_and_wait();
      for (int i = 0; i < kKeys; ++i) {
        const std::string k = key(n, i), other = key((n + 1) % kThreads, i);
        void *value = nullptr;
        failures[n] += gsluhhClntHashInsert(ctx_, t, k.c_str(), const_cast<char *>("v"), 1) != 0;
        failures[n] += gsluhhClntHashSearch(ctx_, t, k.c_str(), &value) != 0;
        failures[n] += value == nullptr || std::string(static_cast<char *>(value)) != "v";
        (void)gsluhhClntHashKeySearch(ctx_, t, other.c_str());
        (void)gsluhhClntHashSearch(ctx_, t, other.c_str(), &value);
        if (i % 2 == 0) failures[n] += gsluhhClntHashDelete(ctx_, t, k.c_str()) != 0;
        (void)gsluhhClntGetNumElements(t);
      }
    });
  }
  for (std::thread &th : threads) th.join();
  EXPECT_EQ(failures, std::vector<int>(kThreads, 0));
  EXPECT_EQ(gsluhhClntGetNumElements(t), static_cast<uint32_t>(kThreads * kKeys / 2));
  EXPECT_TRUE(g_traces.empty());
}

INSTANTIATE_TEST_SUITE_P(Locks, HashConcurrency, ::testing::Values(0, 1), [](const auto &info) {
  return info.param ? "BucketLocks" : "TableLockOnly";
});

}  // namespace

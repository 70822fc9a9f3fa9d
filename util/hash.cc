// util/hash.cc - the string hash table. Contracts in util/hash.h.
#include "util/hash_internal.h"

#include <cstdint>
#include <new>

#include "core/memory.h"
#include "core/output.h"
#include "core/owned.h"
#include "core/runtime.h"
#include "core/sanitizers.h"
#include "util/strings.h"

namespace {

using gslu::ContextFree;
using gslu::Owned;

constexpr uint32_t kTraceError = GSLUTC_LEVEL_FATAL;
constexpr uint32_t kTraceDuplicate = 0x40000;

// With exactly this many buckets the index is taken with a mask.
constexpr uint32_t kMaskedBucketCount = 16;
constexpr uint32_t kMaskedBucketMask = 15;

// Key and value slots: (length + 9) rounded down to a multiple of 8.
constexpr uint64_t kSlotExtra = 9;
constexpr uint64_t kSlotAlignMask = ~static_cast<uint64_t>(7);

// gsluhhClntGetNumElements's answer when it cannot read the count.
constexpr uint32_t kNumElementsFailed = GSLUHH_FAILED;

// ---- Locks ----------------------------------------------------------------

// A reader-writer lock held by this scope (or not), released on the way out.
class HeldLock {
 public:
  HeldLock() = default;
  HeldLock(const HeldLock &) = delete;
  HeldLock &operator=(const HeldLock &) = delete;
  ~HeldLock() { release(); }

  [[nodiscard]] bool read(pthread_rwlock_t *lock) {
    if (!gslu::rwlockRead(lock)) return false;
    lock_ = lock;
    return true;
  }
  [[nodiscard]] bool write(pthread_rwlock_t *lock) {
    if (!gslu::rwlockWrite(lock)) return false;
    lock_ = lock;
    return true;
  }
  void release() {
    if (lock_ != nullptr) gslu::rwlockRelease(lock_);
    lock_ = nullptr;
  }

 private:
  pthread_rwlock_t *lock_ = nullptr;
};

// With bucket locks, insertion and deletion take the bucket's write lock and
// let the table lock go, so that other buckets can be worked on meanwhile.
// False when the bucket lock fails (the table lock is then still held).
[[nodiscard]] bool moveToBucketLock(const gsluhhTable &table, gsluhhBucket &bucket,
                                    HeldLock &table_lock, HeldLock &bucket_lock) {
  if (table.bucket_locks == 0) return true;
  if (!bucket_lock.write(&bucket.lock)) return false;
  table_lock.release();
  return true;
}

// The way back once the chain is done: the table's write lock again, to
// adjust the element count. False when it fails.
[[nodiscard]] bool moveToTableLock(gsluhhTable &table, HeldLock &table_lock,
                                   HeldLock &bucket_lock) {
  if (table.bucket_locks == 0) return true;
  bucket_lock.release();
  return table_lock.write(&table.lock);
}

// ---- Weights and buckets ----------------------------------------------------

// weight[i] = i^3 mod 2^32. The cube is taken in 64-bit integers: for every
// i below the table's end it is what a double-precision power gives too
// (i^3 < 2^53 there), without 10,000 calls into the maths library at
// start-up.
[[nodiscard]] constexpr uint32_t cubeWeight(uint32_t i) {
  const uint64_t n = i;
  return static_cast<uint32_t>(n * n * n);
}

// The weight of byte position i. Keys longer than the table are not
// supported; rather than read past the array, their further bytes weigh
// what the same formula gives, in exact integer arithmetic.
[[nodiscard]] uint32_t weightAt(const gsluhhTable &table, uint32_t i) {
  if (i < GSLUHH_WEIGHT_COUNT) return table.weights[i];
  const uint64_t n = i;
  return static_cast<uint32_t>(n * n * n);
}

// Deliberate: the weight array is never released, not even when its table
// is freed; this is how tables have always behaved and it is kept. The leak
// checker is told that the block is meant to stay.
[[nodiscard]] uint32_t *allocateWeights(gsluctx *ctx) {
  constexpr uint32_t kBytes = GSLUHH_WEIGHT_COUNT * sizeof(uint32_t);
  auto *weights = static_cast<uint32_t *>(gslummMalloc(ctx, kBytes));
  if (weights == nullptr) return nullptr;
#if defined(QUILLOMAT_LEAK_CHECKER)
  __lsan_ignore_object(weights);
#endif
  for (uint32_t i = 0; i < GSLUHH_WEIGHT_COUNT; ++i) weights[i] = cubeWeight(i);
  return weights;
}

[[nodiscard]] uint32_t bucketCountFor(uint32_t requested) {
  if (requested == 0) return GSLUHH_DEFAULT_BUCKETS;
  constexpr uint32_t kMax = GSLUHH_MAX_BUCKETS;
  return requested > kMax ? kMax : requested;
}

// Every bucket from 0 to the bucket count inclusive.
[[nodiscard]] uint32_t allBuckets(const gsluhhTable &table) { return table.bucket_count + 1; }

void destroyBucketLocks(gsluhhBucket *buckets, uint32_t n) {
  for (uint32_t i = 0; i < n; ++i) gslu::rwlockDestroy(&buckets[i].lock);
}

// A bucket array being set up: its block and the bucket locks created so far
// are released together unless the array is handed on.
class PendingBuckets {
 public:
  // locks: how many of the buckets, from the first, already have a lock.
  PendingBuckets(gsluctx *ctx, gsluhhBucket *buckets, uint32_t locks = 0)
      : buckets_(buckets, ContextFree{ctx}), locks_(locks) {}
  ~PendingBuckets() {
    if (buckets_ != nullptr) destroyBucketLocks(buckets_.get(), locks_);
  }
  PendingBuckets(const PendingBuckets &) = delete;
  PendingBuckets &operator=(const PendingBuckets &) = delete;

  [[nodiscard]] gsluhhBucket *get() const { return buckets_.get(); }
  // Creates the lock of the next bucket; false when it cannot be created.
  [[nodiscard]] bool addLock() {
    if (!gslu::rwlockCreate(&buckets_.get()[locks_].lock)) return false;
    ++locks_;
    return true;
  }
  [[nodiscard]] gsluhhBucket *release() { return buckets_.release(); }

 private:
  Owned<gsluhhBucket> buckets_;
  uint32_t locks_;
};

// Where a key goes: its bucket index (from the table's hash function, which
// may answer one out of range) and its length.
struct KeyPlace {
  uint32_t index;
  uint32_t length;
};

[[nodiscard]] KeyPlace placeOf(gsluhhTable &table, const char *key) {
  KeyPlace place{0, 0};
  place.index = table.hash(&table, key, &place.length);
  return place;
}

// ---- Options ------------------------------------------------------------------

using OptionEffect = void (*)(gsluhhTable &table, int32_t value, gsluhhReleaseFunction release);

struct OptionRule {
  int32_t code;
  OptionEffect apply;
};

void applyDefaults(gsluhhTable &t, int32_t, gsluhhReleaseFunction) {
  t.lang_compare = 1;
  t.nocase = 0;
  t.value_is_key = 0;
  t.compare_mode = GSLUHH_CMP_EXACT;
  t.search_lock = 1;
  t.release = nullptr;
}

constexpr OptionRule kOptions[] = {
    {GSLUHH_OPT_DEFAULTS, applyDefaults},
    {GSLUHH_OPT_LANGCMP,
     [](gsluhhTable &t, int32_t v, gsluhhReleaseFunction) { t.lang_compare = v; }},
    {GSLUHH_OPT_NOCASE,
     [](gsluhhTable &t, int32_t v, gsluhhReleaseFunction) {
       t.nocase = v;
       t.compare_mode = v == 1 ? GSLUHH_CMP_NOCASE : GSLUHH_CMP_EXACT;
     }},
    {GSLUHH_OPT_VALUE_IS_KEY,
     [](gsluhhTable &t, int32_t v, gsluhhReleaseFunction) { t.value_is_key = v; }},
    {GSLUHH_OPT_FREEFUNC,
     [](gsluhhTable &t, int32_t, gsluhhReleaseFunction release) {
       t.release = release;
       t.value_is_key = 0;
     }},
    {GSLUHH_OPT_LOCK_SEARCH,
     [](gsluhhTable &t, int32_t v, gsluhhReleaseFunction) { t.search_lock = v; }},
};

[[nodiscard]] const OptionRule *findOption(int32_t code) {
  for (const OptionRule &rule : kOptions) {
    if (rule.code == code) return &rule;
  }
  return nullptr;
}

// ---- Elements -------------------------------------------------------------------

[[nodiscard]] uint64_t slotSize(uint64_t length) { return (length + kSlotExtra) & kSlotAlignMask; }

// One block: the record, the key slot, then the value slot when the value is
// copied. Deliberate: the slots are (length + 9) rounded down to 8, one to
// eight bytes more than the text needs; the sizes are kept as they are.
[[nodiscard]] gsluhhElement *newElement(gsluctx *ctx, const gsluhhTable &table, const char *key,
                                        uint32_t length, void *value, int32_t copy_value) {
  const bool copy_string = copy_value != 0 && table.value_is_key == 0 && value != nullptr;
  const auto *value_text = static_cast<const char *>(value);
  const uint64_t key_slot = slotSize(length);
  const uint64_t value_slot = copy_string ? slotSize(gslusslStrlen(ctx, value_text)) : 0;
  // Detect and prevent integer overflow: the block size is a 32-bit request.
  const uint64_t bytes = sizeof(gsluhhElement) + key_slot + value_slot;
  if (bytes > UINT32_MAX) return nullptr;
  void *block = gslummMalloc(ctx, static_cast<uint32_t>(bytes));
  if (block == nullptr) return nullptr;
  auto *element = new (block) gsluhhElement{};
  char *key_copy = static_cast<char *>(block) + sizeof(gsluhhElement);
  element->key = key_copy;
  (void)gslusspStrcpy(ctx, key_copy, key);
  element->key_length = length;
  if (copy_value == 0) {
    element->value = value;
  } else if (table.value_is_key != 0) {
    element->value = key_copy;
  } else if (copy_string) {
    char *value_copy = key_copy + key_slot;
    (void)gslusspStrcpy(ctx, value_copy, value_text);
    element->value = value_copy;
  }
  return element;
}

// Hands the value to the release function (when there is one and the value
// is not null), then frees the block.
void releaseElement(gsluctx *ctx, const gsluhhTable &table, gsluhhElement *element) {
  if (table.release != nullptr && element->value != nullptr) table.release(element->value);
  (void)gslumfFree(ctx, element);
}

// Frees every element of every bucket and leaves the buckets empty.
void emptyBuckets(gsluctx *ctx, gsluhhTable &table) {
  for (uint32_t i = 0; i < allBuckets(table); ++i) {
    gsluhhBucket &bucket = table.buckets[i];
    gsluhhElement *element = bucket.head;
    while (element != nullptr) {
      gsluhhElement *next = element->next;
      releaseElement(ctx, table, element);
      element = next;
    }
    bucket.head = nullptr;
    bucket.tail = nullptr;
    bucket.count = 0;
  }
}

void appendElement(gsluhhBucket &bucket, gsluhhElement *element) {
  element->prev = bucket.tail;
  element->next = nullptr;
  if (bucket.tail == nullptr) {
    bucket.head = element;
  } else {
    bucket.tail->next = element;
  }
  bucket.tail = element;
  element->bucket = &bucket;
  ++bucket.count;
}

void unlinkElement(gsluhhBucket &bucket, gsluhhElement *element) {
  if (bucket.count > 1) {
    if (element->prev != nullptr) {
      element->prev->next = element->next;
    } else {
      bucket.head = element->next;
    }
    if (element->next != nullptr) {
      element->next->prev = element->prev;
    } else {
      bucket.tail = element->prev;
    }
    --bucket.count;
  } else {
    bucket.head = nullptr;
    bucket.tail = nullptr;
    bucket.count = 0;
  }
}

// ---- Comparison -------------------------------------------------------------------

// The element of bucket holding exactly key (of length bytes), or null:
// insertion and deletion always compare this way.
[[nodiscard]] gsluhhElement *findExact(gsluctx *ctx, const gsluhhBucket &bucket, const char *key,
                                       uint32_t length) {
  for (gsluhhElement *e = bucket.head; e != nullptr; e = e->next) {
    if (e->key_length == length && gsluscmStrcmp(ctx, e->key, key) == 0) return e;
  }
  return nullptr;
}

// The language service's comparison of two counted strings of the internal
// language (UTF-8) in a comparison mode. The string functions keep no state
// per thread, so no language slot is needed to call them.
[[nodiscard]] int languageCompare(gsluctx *ctx, const char *a, uint32_t a_length, const char *b,
                                  uint32_t b_length, int32_t mode) {
  if (a_length != b_length) return a_length < b_length ? -1 : 1;
  return mode == GSLUHH_CMP_NOCASE ? gslusicStrncasecmp(ctx, a, b, a_length)
                                   : gsluscmStrncmp(ctx, a, b, a_length);
}

// Whether a lookup for key (of length bytes) matches element, compared as
// the table's switches say: the language service when its switch is exactly
// 1, else case-insensitively when that switch is set, else exactly.
[[nodiscard]] bool lookupMatches(gsluctx *ctx, const gsluhhTable &table,
                                 const gsluhhElement &element, const char *key, uint32_t length) {
  if (element.key_length != length) return false;
  if (table.lang_compare == 1) {
    return languageCompare(ctx, element.key, element.key_length, key, length, table.compare_mode) ==
           0;
  }
  if (table.nocase != 0) return gslusicStrcasecmp(ctx, element.key, key) == 0;
  return gsluscmStrcmp(ctx, element.key, key) == 0;
}

// ---- Lookup ----------------------------------------------------------------------------

// The steps both searches share. With the locks held, calls deliver(match)
// when the key's bucket holds elements (match: the first matching element,
// or null) and returns 0 or 1003; returns 1003 for an empty bucket without
// calling deliver. Failures return their status and are traced when report
// is set.
template <class Deliver>
[[nodiscard]] int lookUp(gsluctx *ctx, gsluhhTable &table, const char *key, bool lock_table,
                         bool report, Deliver deliver) {
  auto fail = [&](const char *text, int status) {
    if (report) (void)gslu::trace(ctx, kTraceError, text);
    return status;
  };
  HeldLock table_lock;
  if (lock_table && !table_lock.read(&table.lock)) {
    return fail("gsluhHashSearch: ERROR * sltsrwread failed \n", GSLUHH_FAILED);
  }
  if (int rc = gsluhhClntHashTableVerify(ctx, &table); rc != GSLUHH_OK) {
    return fail("gsluhHashSearch:ERROR * gsluhhClntHashTableVerify failed\n", rc);
  }
  if (key == nullptr) return GSLUHH_FAILED;
  const auto [index, length] = placeOf(table, key);
  if (index >= table.bucket_count || table.ready == 0) {
    return fail("gsluhHashSearch : ERROR * Hash table init in progress \n", GSLUHH_FAILED);
  }
  gsluhhBucket &bucket = table.buckets[index];
  HeldLock bucket_lock;
  if (table.bucket_locks != 0 && !bucket_lock.read(&bucket.lock)) {
    return fail("gsluhHashSearch : ERROR * sltsread failed \n", GSLUHH_FAILED);
  }
  // Deliberate: an empty bucket answers "not found" without touching the
  // caller's output, while a miss in a non-empty bucket clears it.
  if (bucket.head == nullptr) return GSLUHH_NOT_FOUND;
  for (const gsluhhElement *e = bucket.head; e != nullptr; e = e->next) {
    if (lookupMatches(ctx, table, *e, key, length)) {
      deliver(e);
      return GSLUHH_OK;
    }
  }
  deliver(nullptr);
  return GSLUHH_NOT_FOUND;
}

// ---- Iteration ----------------------------------------------------------------------------

// Moves the iterator on to the first non-empty bucket at or after its
// current index (or to the end, bucket count).
void skipEmptyBuckets(gsluhhIterator &it) {
  const gsluhhTable &t = *it.table;
  while (it.bucket_index < t.bucket_count && t.buckets[it.bucket_index].head == nullptr) {
    ++it.bucket_index;
  }
  it.bucket = &t.buckets[it.bucket_index];
}

// The next element of the walk, or null at its end.
[[nodiscard]] gsluhhElement *stepIterator(gsluhhIterator &it) {
  const uint32_t end = it.table->bucket_count;
  if (it.bucket->head == nullptr) skipEmptyBuckets(it);
  if (it.bucket_index >= end) return nullptr;
  if (it.element == nullptr) {
    it.element = it.bucket->head;
  } else if (it.element == it.bucket->tail) {
    ++it.bucket_index;
    skipEmptyBuckets(it);
    if (it.bucket_index >= end) return nullptr;
    it.element = it.bucket->head;
  } else {
    it.element = it.element->next;
  }
  return it.element;
}

// The step both iteration functions share: the verification status, 1003 at
// the end, else 0 with *element set.
[[nodiscard]] int iterate(gsluctx *ctx, gsluhhIterator *iterator, gsluhhElement **element) {
  *element = nullptr;
  if (iterator == nullptr) return GSLUHH_FAILED;
  if (int rc = gsluhhClntHashTableVerify(ctx, iterator->table); rc != GSLUHH_OK) return rc;
  *element = stepIterator(*iterator);
  return *element != nullptr ? GSLUHH_OK : GSLUHH_NOT_FOUND;
}

void positionIterator(gsluhhIterator &it, gsluhhTable *table) {
  it.table = table;
  it.bucket = &table->buckets[0];
  it.element = nullptr;
  it.bucket_index = 0;
}

// ---- Dumps -------------------------------------------------------------------------------------

[[nodiscard]] uint32_t low32(uintptr_t address) { return static_cast<uint32_t>(address); }

void dumpBucket(gsluctx *ctx, uint64_t stream, const gsluhhBucket &bucket, uint32_t index) {
  (void)gslu::fprintf(ctx, stream, "   BUCKET # %d ", &index);
  (void)gslu::fprintf(ctx, stream, "     num_elems: %d \n", &bucket.count);
  for (const gsluhhElement *e = bucket.head; e != nullptr; e = e->next) {
    const char *key = e->key;
    if (e->value == nullptr) {
      (void)gslu::fprintf(ctx, stream, "(%s)\n", key);
    } else {
      (void)gslu::fprintf(ctx, stream, "(%s:%s)\n", key, static_cast<const char *>(e->value));
    }
  }
  (void)gslu::fprintf(ctx, stream, "\n");
}

// Appends text at end (the string's NUL) and returns the new end.
[[nodiscard]] char *appendAt(gsluctx *ctx, char *end, const char *text) {
  (void)gslusscStrcat(ctx, end, text);
  return end + gslusslStrlen(ctx, end);
}

}  // namespace

extern "C" {

// ---- Creation and destruction ---------------------------------------------------------

int gsluhhClntHashTableVerify(gsluctx *, const gsluhhTable *table) {
  if (table == nullptr) return GSLUHH_FAILED;
  if (table->magic != GSLUHH_MAGIC || table->bucket_count == 0) return GSLUHH_INVALID_TABLE;
  return GSLUHH_OK;
}

uint32_t gsluhhClntHashFunc(gsluhhTable *table, const char *key, uint32_t *position) {
  // Deliberate: weight[0] is 0, so a key's first byte never affects its
  // bucket; existing tables depend on where keys land, so it is kept.
  uint32_t sum = 0;
  for (const auto *p = reinterpret_cast<const unsigned char *>(key); *p != 0; ++p) {
    sum += static_cast<uint32_t>(*p) * weightAt(*table, *position);
    ++*position;
  }
  if (table->bucket_count == kMaskedBucketCount) return sum & kMaskedBucketMask;
  // A table without buckets never gets this far (verification fails first);
  // a direct caller gets index 0, which is out of range.
  return table->bucket_count == 0 ? 0 : sum % table->bucket_count;
}

int gsluhhClntHashBucketsAlloc(gsluctx *ctx, uint32_t count, gsluhhBucket **buckets,
                               int32_t bucketLocks) {
  if (buckets == nullptr) return GSLUHH_FAILED;
  *buckets = nullptr;
  // Detect and prevent integer overflow: count + 1 records in a 32-bit request.
  const uint64_t n = static_cast<uint64_t>(count) + 1;
  const uint64_t bytes = n * sizeof(gsluhhBucket);
  PendingBuckets array(ctx, bytes <= UINT32_MAX ? static_cast<gsluhhBucket *>(gslummMalloc(
                                                      ctx, static_cast<uint32_t>(bytes)))
                                                : nullptr);
  if (array.get() == nullptr) {
    (void)gslu::trace(ctx, kTraceError, "Error in allocating Memory for Hash Buckets\n");
    return GSLUHH_FAILED;
  }
  for (uint64_t i = 0; i < n; ++i) new (&array.get()[i]) gsluhhBucket{};
  for (uint64_t i = 0; bucketLocks != 0 && i < n; ++i) {
    if (!array.addLock()) {
      (void)gslu::trace(ctx, kTraceError,
                        "gsluhHashBucketAlloc: failed to initialize the bucket lock\n");
      return GSLUHH_FAILED;
    }
  }
  *buckets = array.release();
  return GSLUHH_OK;
}

int gsluhhClntHashTableAlloc(gsluctx *ctx, uint32_t requested, gsluhhHashFunction hash,
                             gsluhhTable **table, int32_t bucketLocks) {
  if (table == nullptr) {
    (void)gslu::trace(ctx, kTraceError, "gsluhHashTableAlloc: ERROR * Invalid pointer passed \n");
    return GSLUHH_FAILED;
  }
  *table = nullptr;
  Owned<gsluhhTable> t(static_cast<gsluhhTable *>(gslummMalloc(ctx, sizeof(gsluhhTable))),
                       ContextFree{ctx});
  if (t == nullptr) {
    (void)gslu::trace(ctx, kTraceError, "Error in allocating Memory for HashTable\n");
    return GSLUHH_FAILED;
  }
  new (t.get()) gsluhhTable{};  // ready stays 0 until the table is complete
  const uint32_t count = bucketCountFor(requested);
  t->weights = allocateWeights(ctx);
  if (t->weights == nullptr) {
    (void)gslu::trace(ctx, kTraceError, "Error in allocating Memory for HashTable\n");
    return GSLUHH_FAILED;
  }
  t->bucket_locks = bucketLocks;
  gsluhhBucket *made = nullptr;
  if (gsluhhClntHashBucketsAlloc(ctx, count, &made, bucketLocks) != GSLUHH_OK) {
    (void)gslu::trace(ctx, kTraceError,
                      "gsluhHashTableAlloc: ERROR * gsluhHashBucketsAlloc failed\n");
    return GSLUHH_FAILED;
  }
  PendingBuckets buckets(ctx, made, bucketLocks != 0 ? count + 1 : 0);
  if (!gslu::rwlockCreate(&t->lock)) {
    // Deliberate: this wording names the bucket function; it is kept.
    (void)gslu::trace(ctx, kTraceError, "gsluhHashBucketsAlloc: ERROR * sltsrwinit failed \n");
    return GSLUHH_FAILED;
  }
  t->buckets = buckets.release();
  t->bucket_count = count;
  t->hash = hash != nullptr ? hash : gsluhhClntHashFunc;
  t->magic = GSLUHH_MAGIC;
  t->ready = 1;
  t->element_count = 0;
  t->ref_count = 1;
  *table = t.release();
  (void)gsluhhClntSetHTOptions(*table, GSLUHH_OPT_DEFAULTS, 0, nullptr);
  return GSLUHH_OK;
}

int gsluhhClntcCreateStrHash(gsluctx *ctx, uint32_t requested, gsluhhTable **table,
                             int32_t bucketLocks) {
  ctx = gslu::resolveContext(ctx);
  if (gsluhhClntHashTableAlloc(ctx, requested, nullptr, table, bucketLocks) != GSLUHH_OK) {
    if (table != nullptr) *table = nullptr;
    return GSLUHH_FAILED;
  }
  return GSLUHH_OK;
}

int gsluhhClntSetHTOptions(gsluhhTable *table, int32_t option, int32_t value,
                           gsluhhReleaseFunction release) {
  gsluctx *ctx = gslu::resolveContext(nullptr);
  if (table == nullptr) return GSLUHH_FAILED;
  HeldLock lock;
  if (!lock.write(&table->lock)) {
    (void)gslu::trace(ctx, kTraceError,
                      "gsluhSetHTOptions: ERROR * Write lock on the hash table failed\n");
    return GSLUHH_FAILED;
  }
  const OptionRule *rule = findOption(option);
  if (rule == nullptr) return GSLUHH_FAILED;
  rule->apply(*table, value, release);
  return GSLUHH_OK;
}

int gsluhhClntHashTableFree(gsluctx *ctx, gsluhhTable *table) {
  if (int rc = gsluhhClntHashTableVerify(ctx, table); rc != GSLUHH_OK) return rc;
  HeldLock lock;
  if (!lock.write(&table->lock)) {
    (void)gslu::trace(ctx, kTraceError, "gsluhHashTableFree : ERROR * sltsrwwrite failed \n");
    return GSLUHH_FAILED;
  }
  if (table->ready == 0) return GSLUHH_OK;  // re-initialising: refused silently
  if (table->ref_count > 1) {
    --table->ref_count;
    return GSLUHH_OK;
  }
  table->magic = 0;
  table->ready = 0;
  emptyBuckets(ctx, *table);
  if (table->bucket_locks != 0) destroyBucketLocks(table->buckets, allBuckets(*table));
  (void)gslumfFree(ctx, table->buckets);
  table->buckets = nullptr;
  lock.release();
  gslu::rwlockDestroy(&table->lock);
  // Deliberate: table->weights is not released (see allocateWeights).
  (void)gslumfFree(ctx, table);
  return GSLUHH_OK;
}

int gsluhhClntaDestroyStrHash(gsluctx *ctx, gsluhhTable *table) {
  ctx = gslu::resolveContext(ctx);
  return gsluhhClntHashTableFree(ctx, table) != GSLUHH_OK ? GSLUHH_FAILED : GSLUHH_OK;
}

int gsluhhClntIncrRefCnt(gsluctx *, gsluhhTable *table) {
  if (table == nullptr) return GSLUHH_FAILED;
  HeldLock lock;
  if (!lock.write(&table->lock)) return GSLUHH_FAILED;
  ++table->ref_count;
  return GSLUHH_OK;
}

// ---- Insertion ---------------------------------------------------------------------------

int gsluhhClntShrdKeyHashInsert(gsluctx *ctx, gsluhhTable *table, const char *key,
                                const char **storedKey, void *value, int32_t copyValue) {
  if (table == nullptr) {
    (void)gslu::trace(ctx, kTraceError, "gsluhShrdKeyHashInsert: Invalid hash table pointer \n");
    return GSLUHH_FAILED;
  }
  if (storedKey != nullptr) *storedKey = nullptr;
  HeldLock table_lock;
  if (!table_lock.write(&table->lock)) {
    (void)gslu::trace(ctx, kTraceError, "gsluhHashInsert: Failed to aquire write lock..\n");
    return GSLUHH_FAILED;
  }
  if (gsluhhClntHashTableVerify(ctx, table) != GSLUHH_OK) {
    (void)gslu::trace(ctx, kTraceError, "Hash Table Verification failed..\n");
    return GSLUHH_FAILED;
  }
  if (key == nullptr) return GSLUHH_FAILED;
  auto [index, length] = placeOf(*table, key);
  if (index >= table->bucket_count) {
    (void)gslu::trace(ctx, kTraceError, "Incorrect Hash Value (%d). Max Possible (%d)..\n", &index,
                      &table->bucket_count);
    return GSLUHH_FAILED;
  }
  gsluhhElement *element = newElement(ctx, *table, key, length, value, copyValue);
  if (element == nullptr) {
    (void)gslu::trace(ctx, kTraceError, "Error allocating Memory for Hash Element..\n");
    return GSLUHH_FAILED;
  }
  gsluhhBucket &bucket = table->buckets[index];
  HeldLock bucket_lock;
  if (!moveToBucketLock(*table, bucket, table_lock, bucket_lock)) {
    // Deliberate: the new block is not released on this path.
    (void)gslu::trace(ctx, kTraceError, "gsluhHashInsert:Aquiring Bucket lock failed..\n");
    return GSLUHH_FAILED;
  }
  if (findExact(ctx, bucket, key, length) != nullptr) {
    bucket_lock.release();
    (void)gslumfFree(ctx, element);
    (void)gslu::trace(ctx, kTraceDuplicate, "Duplicate while inserting in Hash Table.\n");
    return GSLUHH_DUPLICATE;
  }
  appendElement(bucket, element);
  if (storedKey != nullptr) *storedKey = element->key;
  if (!moveToTableLock(*table, table_lock, bucket_lock)) {
    // The element stays linked, uncounted.
    (void)gslu::trace(ctx, kTraceError, "gsluhHashInsert: Failed to aquire write lock..\n");
    return GSLUHH_FAILED;
  }
  ++table->element_count;
  return GSLUHH_OK;
}

int gsluhhClntHashInsert(gsluctx *ctx, gsluhhTable *table, const char *key, void *value,
                         int32_t copyValue) {
  return gsluhhClntShrdKeyHashInsert(ctx, table, key, nullptr, value, copyValue);
}

int gsluhhClntbInsertStr(gsluhhTable *table, const char *key, void *value, int32_t) {
  gsluctx *ctx = gslu::resolveContext(nullptr);
  // Deliberate: this interface reports a duplicate as 1025, not 1002.
  switch (gsluhhClntHashInsert(ctx, table, key, value, 0)) {
    case GSLUHH_OK: return GSLUHH_OK;
    case GSLUHH_DUPLICATE: return GSLUHH_STR_DUPLICATE;
    default: return GSLUHH_FAILED;
  }
}

// ---- Lookup and removal -----------------------------------------------------------------

int gsluhhClntHashSearch(gsluctx *ctx, gsluhhTable *table, const char *key, void **value) {
  if (table == nullptr) {
    (void)gslu::trace(ctx, kTraceError, "gsluhHashSearch: ERROR * Invalid hash table pointer \n");
    return GSLUHH_FAILED;
  }
  return lookUp(ctx, *table, key, table->search_lock != 0, true,
                [value](const gsluhhElement *match) {
                  if (value != nullptr) *value = match != nullptr ? match->value : nullptr;
                });
}

int gsluhhClntdSearchStr(gsluhhTable *table, const char *key, void **value, ...) {
  return gsluhhClntHashSearch(gslu::resolveContext(nullptr), table, key, value);
}

const char *gsluhhClntHashKeySearch(gsluctx *ctx, gsluhhTable *table, const char *key) {
  if (table == nullptr) return nullptr;
  const char *found = nullptr;
  (void)lookUp(ctx, *table, key, true, false, [&found](const gsluhhElement *match) {
    if (match != nullptr) found = match->key;
  });
  return found;
}

int gsluhhClntHashDelete(gsluctx *ctx, gsluhhTable *table, const char *key) {
  if (table == nullptr) return GSLUHH_FAILED;
  HeldLock table_lock;
  if (!table_lock.write(&table->lock)) {
    (void)gslu::trace(ctx, kTraceError, "gsluhHashDelete: Failed to aquire lock\n");
    return GSLUHH_FAILED;
  }
  if (int rc = gsluhhClntHashTableVerify(ctx, table); rc != GSLUHH_OK) return rc;
  if (key == nullptr) return GSLUHH_FAILED;
  const auto [index, length] = placeOf(*table, key);
  if (index >= table->bucket_count) {
    (void)gslu::trace(ctx, kTraceError, "gsluhHashDelete: Invalid bucket number\n");
    return GSLUHH_FAILED;
  }
  gsluhhBucket &bucket = table->buckets[index];
  HeldLock bucket_lock;
  if (!moveToBucketLock(*table, bucket, table_lock, bucket_lock)) {
    (void)gslu::trace(ctx, kTraceError, "gsluhHashDelete: Failed to aquire lock\n");
    return GSLUHH_FAILED;
  }
  gsluhhElement *element = findExact(ctx, bucket, key, length);
  if (element == nullptr) return GSLUHH_NOT_FOUND;
  unlinkElement(bucket, element);
  releaseElement(ctx, *table, element);
  if (!moveToTableLock(*table, table_lock, bucket_lock)) {
    (void)gslu::trace(ctx, kTraceError, "gsluhHashDelete: Failed to aquire write lock..\n");
    return GSLUHH_FAILED;
  }
  --table->element_count;
  return GSLUHH_OK;
}

int gsluhhClnteRemoveStr(gsluhhTable *table, const char *key) {
  const int rc = gsluhhClntHashDelete(gslu::resolveContext(nullptr), table, key);
  return rc != GSLUHH_OK ? GSLUHH_FAILED : GSLUHH_OK;
}

uint32_t gsluhhClntGetNumElements(gsluhhTable *table) {
  // Deliberate: every failure reads as 2, the same as a count of two.
  if (table == nullptr) return kNumElementsFailed;
  HeldLock lock;
  if (!lock.read(&table->lock)) {
    (void)gslu::trace(gslu::resolveContext(nullptr), kTraceError,
                      "gsluhGetNumElements: ERROR * read lock on the hash table failed\n");
    return kNumElementsFailed;
  }
  return table->element_count;
}

// ---- Re-initialisation ------------------------------------------------------------------

int gsluhhClntiInitHT(gsluctx *ctx, gsluhhTable *table) {
  if (table == nullptr) return GSLUHH_FAILED;
  ctx = gslu::resolveContext(ctx);
  if (int rc = gsluhhClntHashTableVerify(ctx, table); rc != GSLUHH_OK) return rc;
  HeldLock lock;
  if (!lock.write(&table->lock)) {
    (void)gslu::trace(ctx, kTraceError, "gsluhiInitHT:Failed to aquire hash table lock\n");
    return GSLUHH_FAILED;
  }
  if (table->ready == 0 || table->ref_count > 1) return GSLUHH_OK;
  table->ready = 0;
  emptyBuckets(ctx, *table);
  table->element_count = 0;
  return GSLUHH_OK;
}

int gsluhhClntEndInitHT(gsluctx *, gsluhhTable *table) {
  if (table == nullptr) return GSLUHH_FAILED;
  HeldLock lock;
  (void)lock.write(&table->lock);  // the flag is set even when the lock fails
  table->ready = 1;
  return GSLUHH_OK;
}

// ---- Iteration ------------------------------------------------------------------------------

gsluhhIterator *gsluhhClntHashBeginIter(gsluctx *ctx, gsluhhTable *table) {
  if (gsluhhClntHashTableVerify(ctx, table) != GSLUHH_OK) return nullptr;
  auto *it = static_cast<gsluhhIterator *>(gslummMalloc(ctx, sizeof(gsluhhIterator)));
  if (it == nullptr) return nullptr;
  new (it) gsluhhIterator{};
  positionIterator(*it, table);
  // The lock's result is not checked: the iterator is handed out either way
  // and gsluhhClntHashEndIter releases the lock.
  (void)gslu::rwlockWrite(&table->lock);
  return it;
}

int gsluhhClntHashEndIter(gsluctx *ctx, gsluhhIterator *iterator) {
  if (iterator == nullptr) return GSLUHH_FAILED;
  gslu::rwlockRelease(&iterator->table->lock);
  (void)gslumfFree(ctx, iterator);
  return GSLUHH_OK;
}

int gsluhhClntHashRDONLYBeginIter(gsluctx *ctx, gsluhhTable *table, gsluhhIterator *iterator) {
  if (iterator == nullptr || gsluhhClntHashTableVerify(ctx, table) != GSLUHH_OK) {
    return GSLUHH_FAILED;
  }
  positionIterator(*iterator, table);
  return gslu::rwlockRead(&table->lock) ? GSLUHH_OK : GSLUHH_FAILED;
}

int gsluhhClntHashRDONLYEndIter(gsluctx *, gsluhhIterator *iterator) {
  if (iterator == nullptr) return GSLUHH_FAILED;
  gslu::rwlockRelease(&iterator->table->lock);
  return GSLUHH_OK;
}

int gsluhhClntHashIterNext(gsluctx *ctx, const char **key, void **value, gsluhhIterator *iterator) {
  gsluhhElement *element = nullptr;
  const int rc = iterate(ctx, iterator, &element);
  if (key != nullptr) *key = element != nullptr ? element->key : nullptr;
  if (value != nullptr) *value = element != nullptr ? element->value : nullptr;
  return rc;
}

int gsluhhClntintHashIterNext(gsluctx *ctx, uint32_t *intKey, void **value,
                              gsluhhIterator *iterator) {
  gsluhhElement *element = nullptr;
  const int rc = iterate(ctx, iterator, &element);
  if (intKey != nullptr) *intKey = element != nullptr ? element->int_key : 0;
  if (value != nullptr) *value = element != nullptr ? element->value : nullptr;
  return rc;
}

// ---- Diagnostics ------------------------------------------------------------------------------

int gsluhhClntHashTableDump(gsluctx *ctx, gsluhhTable *table, const char *fileName) {
  if (int rc = gsluhhClntHashTableVerify(ctx, table); rc != GSLUHH_OK) return rc;
  gslufFile *file = nullptr;
  if (gslufoOpen(ctx, fileName, GSLUF_MODE_CREATE, &file) != GSLUF_OK) {
    (void)gslu::trace(ctx, kTraceError, "Error opening o/p file\n");
    return GSLUHH_FAILED;
  }
  const auto stream = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(file));
  const uint32_t array_low = low32(reinterpret_cast<uintptr_t>(table->buckets));
  const uint32_t function_low = low32(reinterpret_cast<uintptr_t>(table->hash));
  (void)gslu::fprintf(ctx, stream, "\n------------ Hash Table output ---------\n");
  (void)gslu::fprintf(ctx, stream, "num_buckets:%d\n", &table->bucket_count);
  (void)gslu::fprintf(ctx, stream, "bucket_array:%X\n", &array_low);
  (void)gslu::fprintf(ctx, stream, "hash_func:%X\n", &function_low);
  (void)gslu::fprintf(ctx, stream, "\n\n");
  for (uint32_t i = 0; i < table->bucket_count; ++i) dumpBucket(ctx, stream, table->buckets[i], i);
  (void)gslu::fprintf(ctx, stream, "-------------------------------------------\n");
  (void)gslufcClose(ctx, file);
  return GSLUHH_OK;
}

int gsluhhClntHashTableDumpinBuff(gsluctx *ctx, gsluhhTable *table, char *buffer) {
  if (buffer == nullptr) return GSLUHH_FAILED;
  buffer[0] = '\0';
  if (int rc = gsluhhClntHashTableVerify(ctx, table); rc != GSLUHH_OK) return rc;
  char *end = buffer;
  for (uint32_t i = 0; i < table->bucket_count; ++i) {
    for (const gsluhhElement *e = table->buckets[i].head; e != nullptr; e = e->next) {
      end = appendAt(ctx, end, e->key);
      end = appendAt(ctx, end, ": ");
      if (e->value != nullptr) end = appendAt(ctx, end, static_cast<const char *>(e->value));
      end = appendAt(ctx, end, "\n");
    }
  }
  return GSLUHH_OK;
}

}  // extern "C"

// Fuzz target for the string hash table (util/hash.h), run against a model
// built on std::unordered_map over random sequences of operations: the
// insertions (all three entry points, every value mode), searches, key
// searches, deletions (both entry points), counts, writing, read-only and
// integer iterations, the in-memory dump, every option (unknown ones too),
// re-initialisation, references and freeing, and allocations refused for
// one operation. The model computes buckets from the documented weights
// (byte i weighs i^3), so it knows every chain and its insertion order.
// Checked after each operation: the status, every value handed out (the
// caller's pointer, the table's copy, or the table's copy of the key), what
// the release function was given and in which order, and that no block is
// left behind once the run has emptied its table.
//
// Each run picks one of a few tables kept for the whole process and leaves
// it empty, ready, with one reference and the default options. Tables are
// not made per run because every table keeps its weight array for ever (a
// deliberate leak of 40 KB); an operation that frees a table for good makes
// a new one in its place, which the process allows a bounded number of
// times.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/memory.h"
#include "fuzz_support.h"
#include "util/hash_internal.h"
#include "util/strings.h"

namespace {

using qfuzz::CountingAllocator;

constexpr uint32_t kBucketCounts[] = {1, 2, 3, 7, 16, 17, 31, 256};
constexpr size_t kConfigs = 2 * std::size(kBucketCounts);  // without and with bucket locks
constexpr size_t kMaxKey = 40;
constexpr size_t kMaxValue = 20;
constexpr size_t kMaxOperations = 600;
// Tables freed for good and made again, each leaving its weights behind.
constexpr int kRemakeBudget = 1000;

const char *const kTokens[] = {"t0", "t1", "t2", "t3", "t4", "t5", "t6", "t7"};

// What the release function was handed, as text (every value here is one).
std::vector<std::string> g_released;
void recordRelease(void *value) { g_released.emplace_back(static_cast<const char *>(value)); }

// ---- The model ------------------------------------------------------------------

enum class ValueKind { kPointer, kCopy, kKey, kNull };

struct Element {
  std::string key;
  uint32_t bucket;
  uint64_t order;  // insertion order, across the whole run
  ValueKind kind;
  const void *pointer;  // kPointer: the caller's pointer
  std::string text;     // kCopy: the copied text
  const char *stored;   // the table's copy of the key, once known
};

struct Options {
  int32_t lang_compare = 1;
  int32_t nocase = 0;
  int32_t value_is_key = 0;
  bool nocase_mode = false;
  int32_t search_lock = 1;
  bool release = false;
};

class Model {
 public:
  explicit Model(uint32_t buckets) : buckets_(buckets), counts_(buckets, 0) {}

  // byte i of the key weighs i^3 (mod 2^32); the first byte weighs 0.
  [[nodiscard]] uint32_t bucketOf(std::string_view key) const {
    uint32_t sum = 0;
    for (size_t i = 0; i < key.size(); ++i) {
      const uint64_t n = i;
      sum += static_cast<uint32_t>(static_cast<unsigned char>(key[i])) *
             static_cast<uint32_t>(n * n * n);
    }
    return buckets_ == 16 ? (sum & 15) : sum % buckets_;
  }

  [[nodiscard]] const Element *find(const std::string &key) const {
    auto it = elements_.find(key);
    return it == elements_.end() ? nullptr : &it->second;
  }
  Element &add(const std::string &key, ValueKind kind, const void *pointer, std::string text) {
    const uint32_t b = bucketOf(key);
    ++counts_[b];
    return elements_[key] = Element{key, b, next_order_++, kind, pointer, std::move(text), nullptr};
  }
  void remove(const std::string &key) {
    --counts_[elements_.at(key).bucket];
    elements_.erase(key);
  }
  // Every element in the table's walking order: bucket by bucket, each chain
  // in insertion order.
  [[nodiscard]] std::vector<const Element *> walk() const {
    std::vector<const Element *> out;
    for (const auto &[key, e] : elements_) out.push_back(&e);
    std::sort(out.begin(), out.end(), [](const Element *a, const Element *b) {
      return a->bucket != b->bucket ? a->bucket < b->bucket : a->order < b->order;
    });
    return out;
  }
  template <class Fn>
  void forEach(Fn fn) const {
    for (const auto &[key, e] : elements_) fn(e);
  }
  void clear() {
    elements_.clear();
    std::fill(counts_.begin(), counts_.end(), 0);
  }
  [[nodiscard]] size_t size() const { return elements_.size(); }
  [[nodiscard]] bool bucketEmpty(uint32_t b) const { return counts_[b] == 0; }

  Options options;
  bool ready = true;
  uint32_t references = 1;

 private:
  uint32_t buckets_;
  std::vector<uint32_t> counts_;
  std::unordered_map<std::string, Element> elements_;
  uint64_t next_order_ = 0;
};

// ---- The tables kept across runs -------------------------------------------------

struct Pool {
  gsluhhTable *tables[kConfigs] = {};
  int remakes_left = kRemakeBudget;
};

// Tables with bucket locks are made through the process-wide entry point,
// the others through the one that takes a hash function (none here).
gsluhhTable *makeTable(size_t config) {
  gsluhhTable *t = nullptr;
  const uint32_t buckets = kBucketCounts[config % std::size(kBucketCounts)];
  if (config >= std::size(kBucketCounts)) {
    FUZZ_CHECK(gsluhhClntcCreateStrHash(nullptr, buckets, &t, 1) == GSLUHH_OK);
  } else {
    FUZZ_CHECK(gsluhhClntHashTableAlloc(nullptr, buckets, nullptr, &t, 0) == GSLUHH_OK);
  }
  FUZZ_CHECK(t != nullptr && t->bucket_count == buckets);
  return t;
}

// ---- One run -----------------------------------------------------------------------

class Run {
 public:
  Run(qfuzz::Input &in, Pool &pool, size_t config)
      : in_(in),
        pool_(pool),
        config_(config),
        table_(pool.tables[config]),
        model_(table_->bucket_count) {}

  void operate();
  void restore();
  // Blocks the run may leave behind: the weights of each table it made.
  [[nodiscard]] int64_t tablesMade() const { return made_; }

 private:
  std::string key();
  void insert();
  void search();
  void keySearch();
  void erase();
  void iterate();
  void dump();
  void setOption();
  void initialise();
  void free();
  void expectReleased(const std::vector<std::string> &texts);
  [[nodiscard]] const Element *lookupMatch(const std::string &probe, bool *bucket_empty);
  [[nodiscard]] bool lookupIgnoresCase() const;
  void checkValue(const Element &e, const void *value) const;

  qfuzz::Input &in_;
  Pool &pool_;
  size_t config_;
  gsluhhTable *table_;
  Model model_;
  std::vector<std::string> keys_;  // every key used so far, to use again
  std::deque<std::string> texts_;  // value texts, alive while the run is
  int64_t made_ = 0;
};

// A key: one used before (sometimes with its first letter's case turned),
// or a new one from the input (a C string: it ends at a NUL).
std::string Run::key() {
  const uint8_t choice = in_.byte();
  if (choice < 0xa0 && !keys_.empty()) {
    std::string k = keys_[choice % keys_.size()];
    if ((choice & 0x40) != 0) {
      for (char &c : k) {
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) {
          c = static_cast<char>(c ^ 0x20);
          break;
        }
      }
    }
    return k;
  }
  std::string k = in_.string(kMaxKey);
  k.resize(std::strlen(k.c_str()));
  keys_.push_back(k);
  return k;
}

void Run::checkValue(const Element &e, const void *value) const {
  switch (e.kind) {
    case ValueKind::kPointer: FUZZ_CHECK(value == e.pointer); break;
    case ValueKind::kNull: FUZZ_CHECK(value == nullptr); break;
    case ValueKind::kCopy:
      FUZZ_CHECK(value != nullptr &&
                 std::strcmp(static_cast<const char *>(value), e.text.c_str()) == 0);
      break;
    case ValueKind::kKey:
      FUZZ_CHECK(value != nullptr && static_cast<const char *>(value) == e.key);
      if (e.stored != nullptr) FUZZ_CHECK(value == e.stored);
      break;
  }
}

void Run::insert() {
  const std::string k = key();
  const uint8_t how = in_.byte();
  const int entry_point = how % 3;  // HashInsert, ShrdKeyHashInsert, bInsertStr
  const int32_t copy = entry_point == 2 ? 0 : (how >> 2) & 1;
  const void *value = nullptr;
  std::string text;
  switch ((how >> 3) & 3) {
    case 0:
      text = kTokens[(how >> 5) % std::size(kTokens)];
      value = kTokens[(how >> 5) % std::size(kTokens)];
      break;
    case 1: break;  // null
    default:
      // The table may keep the pointer itself: the text lives as long as
      // the run.
      text = in_.string(kMaxValue);
      text.resize(std::strlen(text.c_str()));  // as a C string
      value = texts_.emplace_back(text).c_str();
      break;
  }
  const bool refused = (how & 0x80) != 0 && in_.flag();
  if (refused) CountingAllocator::setBudget(0);
  const char *stored = reinterpret_cast<const char *>(1);  // must be cleared
  int st;
  switch (entry_point) {
    case 0:
      st = gsluhhClntHashInsert(nullptr, table_, k.c_str(), const_cast<void *>(value), copy);
      break;
    case 1:
      st = gsluhhClntShrdKeyHashInsert(nullptr, table_, k.c_str(), &stored,
                                       const_cast<void *>(value), copy);
      break;
    default: st = gsluhhClntbInsertStr(table_, k.c_str(), const_cast<void *>(value), 0); break;
  }
  CountingAllocator::setBudget(CountingAllocator::kUnlimited);
  if (entry_point == 1 && st != GSLUHH_OK) FUZZ_CHECK(stored == nullptr);
  // The element is made before the chain is searched for the key, so a
  // refused allocation fails even a duplicate.
  if (refused) {
    FUZZ_CHECK(st == GSLUHH_FAILED);
    return;
  }
  if (model_.find(k) != nullptr) {
    FUZZ_CHECK(st == (entry_point == 2 ? GSLUHH_STR_DUPLICATE : GSLUHH_DUPLICATE));
    return;
  }
  FUZZ_CHECK(st == GSLUHH_OK);
  ValueKind kind = ValueKind::kPointer;
  if (copy != 0) {
    kind = model_.options.value_is_key != 0 ? ValueKind::kKey
           : value == nullptr               ? ValueKind::kNull
                                            : ValueKind::kCopy;
  } else if (value == nullptr) {
    kind = ValueKind::kNull;
  }
  Element &e = model_.add(k, kind, value, text);
  if (entry_point == 1) {
    FUZZ_CHECK(stored != nullptr && stored != k.c_str() && k == stored);
    e.stored = stored;
  }
}

// Whether lookups ignore case, as the options say: through the language
// service's mode when its switch is exactly 1, else by the case switch.
bool Run::lookupIgnoresCase() const {
  const Options &o = model_.options;
  return o.lang_compare == 1 ? o.nocase_mode : o.nocase != 0;
}

// The element a lookup of probe finds: the first of its bucket's chain of
// the same length that compares equal as the options say. Case is folded
// by the string module's comparison, which has tests of its own.
const Element *Run::lookupMatch(const std::string &probe, bool *bucket_empty) {
  const uint32_t b = model_.bucketOf(probe);
  *bucket_empty = model_.bucketEmpty(b);
  if (!lookupIgnoresCase()) return model_.find(probe);
  const Element *match = nullptr;
  model_.forEach([&](const Element &e) {
    if (e.bucket == b && e.key.size() == probe.size() &&
        gslusicStrcasecmp(nullptr, e.key.c_str(), probe.c_str()) == 0 &&
        (match == nullptr || e.order < match->order)) {
      match = &e;
    }
  });
  return match;
}

void Run::search() {
  const std::string k = key();
  void *sentinel = &pool_;
  void *value = sentinel;
  const int st = in_.flag() ? gsluhhClntHashSearch(nullptr, table_, k.c_str(), &value)
                            : gsluhhClntdSearchStr(table_, k.c_str(), &value);
  if (!model_.ready) {
    FUZZ_CHECK(st == GSLUHH_FAILED && value == sentinel);
    return;
  }
  bool bucket_empty = false;
  const Element *match = lookupMatch(k, &bucket_empty);
  if (bucket_empty) {
    // Deliberate in the table: an empty bucket leaves the output alone.
    FUZZ_CHECK(st == GSLUHH_NOT_FOUND && value == sentinel);
  } else if (match == nullptr) {
    FUZZ_CHECK(st == GSLUHH_NOT_FOUND && value == nullptr);
  } else {
    FUZZ_CHECK(st == GSLUHH_OK);
    checkValue(*match, value);
  }
}

void Run::keySearch() {
  const std::string k = key();
  const char *found = gsluhhClntHashKeySearch(nullptr, table_, k.c_str());
  bool bucket_empty = false;
  const Element *match = model_.ready ? lookupMatch(k, &bucket_empty) : nullptr;
  if (match == nullptr) {
    FUZZ_CHECK(found == nullptr);
    return;
  }
  FUZZ_CHECK(found != nullptr && found != k.c_str() && match->key == found);
  if (match->stored != nullptr) FUZZ_CHECK(found == match->stored);
}

void Run::expectReleased(const std::vector<std::string> &texts) {
  FUZZ_CHECK(g_released == texts);
  g_released.clear();
}

// What the release function is given for an element leaving the table.
std::vector<std::string> releasedFor(const Options &o, const Element &e) {
  if (!o.release) return {};
  switch (e.kind) {
    case ValueKind::kPointer: return {static_cast<const char *>(e.pointer)};
    case ValueKind::kCopy: return {e.text};
    case ValueKind::kKey: return {e.key};
    case ValueKind::kNull: return {};
  }
  return {};
}

void Run::erase() {
  const std::string k = key();
  const bool plain = in_.flag();
  const int st = plain ? gsluhhClntHashDelete(nullptr, table_, k.c_str())
                       : gsluhhClnteRemoveStr(table_, k.c_str());
  const Element *e = model_.find(k);
  if (e == nullptr) {
    FUZZ_CHECK(st == (plain ? GSLUHH_NOT_FOUND : GSLUHH_FAILED));
    expectReleased({});
    return;
  }
  FUZZ_CHECK(st == GSLUHH_OK);
  expectReleased(releasedFor(model_.options, *e));
  model_.remove(k);
}

void Run::iterate() {
  const uint8_t how = in_.byte() % 4;  // writing, read-only, integer keys, refused iterator
  gsluhhIterator own{};
  gsluhhIterator *it = nullptr;
  if (how == 1) {
    FUZZ_CHECK(gsluhhClntHashRDONLYBeginIter(nullptr, table_, &own) == GSLUHH_OK);
    it = &own;
  } else if (how == 3) {
    CountingAllocator::setBudget(0);
    it = gsluhhClntHashBeginIter(nullptr, table_);
    CountingAllocator::setBudget(CountingAllocator::kUnlimited);
    FUZZ_CHECK(it == nullptr);
    return;
  } else {
    it = gsluhhClntHashBeginIter(nullptr, table_);
    FUZZ_CHECK(it != nullptr);
  }
  for (const Element *e : model_.walk()) {
    void *value = nullptr;
    if (how == 2) {
      uint32_t int_key = 1;
      FUZZ_CHECK(gsluhhClntintHashIterNext(nullptr, &int_key, &value, it) == GSLUHH_OK);
      FUZZ_CHECK(int_key == 0);
    } else {
      const char *k = nullptr;
      FUZZ_CHECK(gsluhhClntHashIterNext(nullptr, &k, &value, it) == GSLUHH_OK);
      FUZZ_CHECK(k != nullptr && e->key == k);
      if (e->stored != nullptr) FUZZ_CHECK(k == e->stored);
    }
    checkValue(*e, value);
  }
  for (int end = 0; end < 2; ++end) {  // the end stays the end
    const char *k = "x";
    void *value = &pool_;
    FUZZ_CHECK(gsluhhClntHashIterNext(nullptr, &k, &value, it) == GSLUHH_NOT_FOUND);
    FUZZ_CHECK(k == nullptr && value == nullptr);
  }
  if (how == 1) {
    FUZZ_CHECK(gsluhhClntHashRDONLYEndIter(nullptr, it) == GSLUHH_OK);
  } else {
    FUZZ_CHECK(gsluhhClntHashEndIter(nullptr, it) == GSLUHH_OK);
  }
}

void Run::dump() {
  std::string expected;
  for (const Element *e : model_.walk()) {
    expected += e->key + ": ";
    switch (e->kind) {
      case ValueKind::kPointer: expected += static_cast<const char *>(e->pointer); break;
      case ValueKind::kCopy: expected += e->text; break;
      case ValueKind::kKey: expected += e->key; break;
      case ValueKind::kNull: break;
    }
    expected += "\n";
  }
  std::vector<char> buffer(expected.size() + 1, 'x');
  FUZZ_CHECK(gsluhhClntHashTableDumpinBuff(nullptr, table_, buffer.data()) == GSLUHH_OK);
  FUZZ_CHECK(std::string_view(buffer.data()) == expected);
}

void Run::setOption() {
  static constexpr int32_t kCodes[] = {GSLUHH_OPT_DEFAULTS,
                                       GSLUHH_OPT_LANGCMP,
                                       GSLUHH_OPT_NOCASE,
                                       GSLUHH_OPT_VALUE_IS_KEY,
                                       GSLUHH_OPT_FREEFUNC,
                                       GSLUHH_OPT_LOCK_SEARCH,
                                       3,
                                       32};
  const uint8_t how = in_.byte();
  const int32_t code = kCodes[how % std::size(kCodes)];
  const int32_t value = (how >> 3) % 3;  // 0, 1 and a non-zero value other than 1
  const bool with_release = (how & 0x80) != 0;
  const int st =
      gsluhhClntSetHTOptions(table_, code, value, with_release ? recordRelease : nullptr);
  Options &o = model_.options;
  switch (code) {
    case GSLUHH_OPT_DEFAULTS: o = Options{}; break;
    case GSLUHH_OPT_LANGCMP: o.lang_compare = value; break;
    case GSLUHH_OPT_NOCASE:
      o.nocase = value;
      o.nocase_mode = value == 1;
      break;
    case GSLUHH_OPT_VALUE_IS_KEY: o.value_is_key = value; break;
    case GSLUHH_OPT_FREEFUNC:
      o.release = with_release;
      o.value_is_key = 0;
      break;
    case GSLUHH_OPT_LOCK_SEARCH: o.search_lock = value; break;
    default: FUZZ_CHECK(st == GSLUHH_FAILED); return;
  }
  FUZZ_CHECK(st == GSLUHH_OK);
  FUZZ_CHECK(table_->lang_compare == o.lang_compare && table_->nocase == o.nocase &&
             table_->value_is_key == o.value_is_key && table_->search_lock == o.search_lock &&
             (table_->release != nullptr) == o.release);
}

// The release function's calls as emptying the whole table makes them.
std::vector<std::string> releasedForAll(const Model &m) {
  std::vector<std::string> out;
  for (const Element *e : m.walk()) {
    for (std::string &s : releasedFor(m.options, *e)) out.push_back(std::move(s));
  }
  return out;
}

void Run::initialise() {
  if (in_.flag()) {
    FUZZ_CHECK(gsluhhClntEndInitHT(nullptr, table_) == GSLUHH_OK);
    model_.ready = true;
    return;
  }
  FUZZ_CHECK(gsluhhClntiInitHT(nullptr, table_) == GSLUHH_OK);
  if (!model_.ready || model_.references > 1) {
    expectReleased({});
    return;
  }
  expectReleased(releasedForAll(model_));
  model_.clear();
  model_.ready = false;
}

void Run::free() {
  if (in_.flag()) {
    FUZZ_CHECK(gsluhhClntIncrRefCnt(nullptr, table_) == GSLUHH_OK);
    ++model_.references;
    return;
  }
  const bool last = model_.ready && model_.references == 1;
  if (last && pool_.remakes_left == 0) return;  // the process made enough tables
  const bool destroy = in_.flag();
  const int st = destroy ? gsluhhClntaDestroyStrHash(nullptr, table_)
                         : gsluhhClntHashTableFree(nullptr, table_);
  FUZZ_CHECK(st == GSLUHH_OK);
  if (!model_.ready) {
    expectReleased({});  // freeing is refused while re-initialising
    return;
  }
  if (model_.references > 1) {
    --model_.references;
    expectReleased({});
    return;
  }
  expectReleased(releasedForAll(model_));
  --pool_.remakes_left;
  table_ = pool_.tables[config_] = makeTable(config_);
  ++made_;
  model_ = Model(table_->bucket_count);
}

void Run::operate() {
  for (size_t n = 0; n < kMaxOperations && !in_.empty(); ++n) {
    switch (in_.byte() % 12) {
      case 0:
      case 1:
      case 2: insert(); break;
      case 3:
      case 4: search(); break;
      case 5: keySearch(); break;
      case 6:
      case 7: erase(); break;
      case 8:
        FUZZ_CHECK(gsluhhClntGetNumElements(table_) == model_.size());
        FUZZ_CHECK(gsluhhClntHashTableVerify(nullptr, table_) == GSLUHH_OK);
        break;
      case 9: in_.flag() ? iterate() : dump(); break;
      case 10: in_.flag() ? setOption() : initialise(); break;
      default: free(); break;
    }
  }
}

// Leaves the table as the next run expects it: ready, one reference, empty,
// default options.
void Run::restore() {
  if (!model_.ready) FUZZ_CHECK(gsluhhClntEndInitHT(nullptr, table_) == GSLUHH_OK);
  model_.ready = true;
  for (; model_.references > 1; --model_.references) {
    FUZZ_CHECK(gsluhhClntHashTableFree(nullptr, table_) == GSLUHH_OK);
  }
  expectReleased({});
  FUZZ_CHECK(gsluhhClntiInitHT(nullptr, table_) == GSLUHH_OK);
  expectReleased(releasedForAll(model_));
  FUZZ_CHECK(gsluhhClntEndInitHT(nullptr, table_) == GSLUHH_OK);
  FUZZ_CHECK(gsluhhClntSetHTOptions(table_, GSLUHH_OPT_DEFAULTS, 0, nullptr) == GSLUHH_OK);
  FUZZ_CHECK(gsluhhClntGetNumElements(table_) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  qfuzz::setUpProcess();
  // Every block of the process goes through the counting hooks from the
  // first run on, the tables kept across runs included.
  static CountingAllocator allocator(CountingAllocator::kUnlimited);
  static Pool pool;
  qfuzz::Input in(data, size);
  const size_t config = in.below(kConfigs);
  if (pool.tables[config] == nullptr) pool.tables[config] = makeTable(config);
  g_released.clear();

  const int64_t live = CountingAllocator::live();
  Run run(in, pool, config);
  run.operate();
  run.restore();
  // Nothing stays behind but the weights of the tables the run made.
  FUZZ_CHECK(CountingAllocator::live() == live + run.tablesMade());
  return 0;
}

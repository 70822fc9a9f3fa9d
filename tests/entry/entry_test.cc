// Tests of entry/entry.h: status codes and their order of checks, the
// growth of the values array, ownership, case-insensitive lookup, the
// counted-string helpers and allocation failures.
#include "entry/entry.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "core/memory.h"
#include "tests/support/failing_allocator.h"

namespace {

using Pairs = std::vector<std::pair<uint32_t, uint32_t>>;

// A handle carrying an allocator but no core context: no context can be had.
const gsluMemCallbacks kSomeTable = {};
const gslcClientHandle kNoContext = {nullptr, &kSomeTable, nullptr};

// One entry with one attribute of each kind, not yet added to it.
struct World {
  LDAPEntry *entry = nullptr;
  LDAPAttribute *text = nullptr;    // kind 0, named "cn"
  LDAPAttribute *binary = nullptr;  // kind 128, named "photo"
  World() {
    EXPECT_EQ(gslcleceCreateLDAPEntry(nullptr, "cn=a,o=ex", &entry), GSLCLE_OK);
    EXPECT_EQ(gslcleclaCreateLDAPAttribute(nullptr, "cn", GSLCLE_VALUES_TEXT, &text), GSLCLE_OK);
    EXPECT_EQ(gslcleclaCreateLDAPAttribute(nullptr, "photo", GSLCLE_VALUES_BINARY, &binary),
              GSLCLE_OK);
  }
  ~World() {
    if (entry != nullptr) {
      EXPECT_EQ(gslcledeDestroyLDAPEntry(nullptr, entry), GSLCLE_OK);
    }
    gslcledaDestroyLDAPAttribute(nullptr, text);
    gslcledaDestroyLDAPAttribute(nullptr, binary);
  }
  // Hands attribute over to the entry; the World no longer frees it.
  int add(LDAPAttribute *&attribute) {
    const int st = gslcleaaAddLDAPAttribute(nullptr, entry, attribute);
    if (st == GSLCLE_OK) attribute = nullptr;
    return st;
  }
  int setChangeType(int type) { return gslclesctSetChangeType(nullptr, entry, type); }
};

std::vector<std::string> names(const LDAPEntry *entry) {
  std::vector<std::string> out;
  if (entry->attributes == nullptr) return out;
  for (void *e = entry->attributes->head; e != nullptr; e = static_cast<LDAPAttribute *>(e)->next) {
    out.emplace_back(static_cast<LDAPAttribute *>(e)->name);
  }
  return out;
}

// ---- Status of every rule, in the order the checks run ------------------------

struct StatusCase {
  const char *name;
  std::function<int(World &)> op;
  int status;
};

const BERVal kAb = {2, const_cast<char *>("ab")};

const StatusCase kStatusCases[] = {
    {"CreateEntryNullDn", [](World &) { LDAPEntry *e; return gslcleceCreateLDAPEntry(nullptr, nullptr, &e); }, GSLCLE_NULL_ARG},
    {"CreateEntryNullOut", [](World &) { return gslcleceCreateLDAPEntry(nullptr, "x", nullptr); }, GSLCLE_NULL_ARG},
    {"DestroyNullEntry", [](World &) { return gslcledeDestroyLDAPEntry(nullptr, nullptr); }, GSLCLE_NULL_ARG},
    {"ChangeTypeZero", [](World &w) { return w.setChangeType(0); }, GSLCLE_BAD_CHANGE_TYPE},
    {"ChangeTypeFive", [](World &w) { return w.setChangeType(GSLCLE_ATTR_ADD); }, GSLCLE_BAD_CHANGE_TYPE},
    {"ChangeTypeModrdn", [](World &w) { return w.setChangeType(GSLCLE_CHANGE_MODRDN); }, GSLCLE_OK},
    {"AttrChangeTypeFour", [](World &w) { return gslclegastSetAttrChangeType(nullptr, w.text, 4); }, GSLCLE_BAD_CHANGE_TYPE},
    {"AttrChangeTypeEight", [](World &w) { return gslclegastSetAttrChangeType(nullptr, w.text, 8); }, GSLCLE_BAD_CHANGE_TYPE},
    {"AttrChangeTypeReplace", [](World &w) { return gslclegastSetAttrChangeType(nullptr, w.text, GSLCLE_ATTR_REPLACE); }, GSLCLE_OK},
    {"AddToDeleteEntry", [](World &w) { w.setChangeType(GSLCLE_CHANGE_DELETE); return w.add(w.text); }, GSLCLE_NOT_APPLICABLE},
    {"AddToModrdnEntry", [](World &w) { w.setChangeType(GSLCLE_CHANGE_MODRDN); return w.add(w.text); }, GSLCLE_NOT_APPLICABLE},
    {"AddToModifyEntry", [](World &w) { w.setChangeType(GSLCLE_CHANGE_MODIFY); return w.add(w.text); }, GSLCLE_OK},
    {"AddNullAttribute", [](World &w) { return gslcleaaAddLDAPAttribute(nullptr, w.entry, nullptr); }, GSLCLE_NULL_ARG},
    {"AttributeKindOne", [](World &) { LDAPAttribute *a; return gslcleclaCreateLDAPAttribute(nullptr, "x", 1, &a); }, GSLCLE_BAD_VALUE_KIND},
    {"KindIsCheckedBeforeEmptyName", [](World &) { LDAPAttribute *a; return gslcleclaCreateLDAPAttribute(nullptr, "", 1, &a); }, GSLCLE_BAD_VALUE_KIND},
    {"EmptyAttributeName", [](World &) { LDAPAttribute *a; return gslcleclaCreateLDAPAttribute(nullptr, "", GSLCLE_VALUES_BINARY, &a); }, GSLCLE_EMPTY_NAME},
    {"NullNameBeforeKind", [](World &) { LDAPAttribute *a; return gslcleclaCreateLDAPAttribute(nullptr, nullptr, 1, &a); }, GSLCLE_NULL_ARG},
    {"StringToBinaryAttribute", [](World &w) { return gslcleavAddAttrValue(nullptr, w.binary, "v"); }, GSLCLE_NOT_APPLICABLE},
    {"BerValToTextAttribute", [](World &w) { return gslcleabvAddAttrBValue(nullptr, w.text, &kAb); }, GSLCLE_NOT_APPLICABLE},
    {"NullStringValue", [](World &w) { return gslcleavAddAttrValue(nullptr, w.text, nullptr); }, GSLCLE_NULL_ARG},
    {"NullBerValue", [](World &w) { return gslcleabvAddAttrBValue(nullptr, w.binary, nullptr); }, GSLCLE_NULL_ARG},
    {"StringsOfBinaryAttribute", [](World &w) { char **v; return gslclegavGetAttrValues(nullptr, w.binary, &v); }, GSLCLE_NOT_APPLICABLE},
    {"NewRdnOfAddEntry", [](World &w) { char *s; return gslclegnGetNewRDN(nullptr, w.entry, &s); }, GSLCLE_NOT_APPLICABLE},
    {"SetNewRdnOfAddEntry", [](World &w) { return gslclesnSetNewRDN(nullptr, w.entry, "cn=b"); }, GSLCLE_NOT_APPLICABLE},
    {"NullNewRdnBeforeChangeType", [](World &w) { return gslclesnSetNewRDN(nullptr, w.entry, nullptr); }, GSLCLE_NULL_ARG},
    {"NullNewSuperiorOfModrdnIsAccepted", [](World &w) { w.setChangeType(GSLCLE_CHANGE_MODRDN); return gslclesnsSetNewSuperior(nullptr, w.entry, nullptr); }, GSLCLE_OK},
    {"NewSuperiorOfModifyEntry", [](World &w) { w.setChangeType(GSLCLE_CHANGE_MODIFY); return gslclesnsSetNewSuperior(nullptr, w.entry, "o=x"); }, GSLCLE_NOT_APPLICABLE},
    {"DeleteOldRdnOfAddEntry", [](World &w) { return gslclesdoSetDeleteOldRdn(nullptr, w.entry, 1); }, GSLCLE_NOT_APPLICABLE},
    {"DestAttrNull", [](World &) { return gslcledaDestLDAPAttr(nullptr, nullptr); }, GSLCLE_NULL_ARG},
    {"CompareNullName", [](World &w) { return gslcleAttrNameCmpCBF(nullptr, w.text, nullptr); }, GSLCLE_CMP_NULL_ARG},
    {"CompareNullAttribute", [](World &) { return gslcleAttrNameCmpCBF(nullptr, nullptr, "cn"); }, GSLCLE_CMP_NULL_ARG},
    {"CompareIgnoresCase", [](World &w) { return gslcleAttrNameCmpCBF(nullptr, w.text, "CN"); }, GSLCLE_CMP_EQUAL},
    // Without a core context nothing else is looked at, null arguments included.
    {"NoContextCreateEntry", [](World &) { return gslcleceCreateLDAPEntry(&kNoContext, nullptr, nullptr); }, GSLCLE_NO_CONTEXT},
    {"NoContextCreateAttribute", [](World &) { return gslcleclaCreateLDAPAttribute(&kNoContext, "", 1, nullptr); }, GSLCLE_NO_CONTEXT},
    {"NoContextAddAttribute", [](World &w) { return gslcleaaAddLDAPAttribute(&kNoContext, w.entry, w.text); }, GSLCLE_NO_CONTEXT},
    {"NoContextSetChangeType", [](World &w) { return gslclesctSetChangeType(&kNoContext, w.entry, 9); }, GSLCLE_NO_CONTEXT},
    {"NoContextAddValue", [](World &w) { return gslcleavAddAttrValue(&kNoContext, w.text, "v"); }, GSLCLE_NO_CONTEXT},
    {"NoContextSize", [](World &w) { uint32_t n; return gslclesSize(&kNoContext, w.entry, &n); }, GSLCLE_NO_CONTEXT},
    {"NoContextCompare", [](World &) { return gslcleAttrNameCmpCBF(&kNoContext, nullptr, nullptr); }, GSLCLE_CMP_NO_CONTEXT},
};

class EntryStatusTest : public ::testing::TestWithParam<StatusCase> {};

TEST_P(EntryStatusTest, ReturnsTheDocumentedStatus) {
  World w;
  EXPECT_EQ(GetParam().op(w), GetParam().status);
}

INSTANTIATE_TEST_SUITE_P(Rules, EntryStatusTest, ::testing::ValuesIn(kStatusCases),
                         [](const auto &info) { return std::string(info.param.name); });

// ---- Change types and rename fields ----------------------------------------------

TEST(EntryTest, FreshEntryIsAPlainAddUntilAChangeTypeIsSet) {
  World w;
  EXPECT_STREQ(w.entry->dn, "cn=a,o=ex");
  EXPECT_EQ(w.entry->attributes, nullptr);
  uint8_t type = 0;
  ASSERT_EQ(gslclegctGetChangeType(nullptr, w.entry, &type), GSLCLE_OK);
  EXPECT_EQ(type, GSLCLE_CHANGE_ADD);
  EXPECT_EQ(w.entry->explicit_change_type, 0);
  EXPECT_EQ(w.setChangeType(9), GSLCLE_BAD_CHANGE_TYPE);
  EXPECT_EQ(w.entry->explicit_change_type, 0);  // a refused value changes nothing
  ASSERT_EQ(w.setChangeType(GSLCLE_CHANGE_ADD), GSLCLE_OK);
  EXPECT_EQ(w.entry->change_type, GSLCLE_CHANGE_ADD);
  EXPECT_EQ(w.entry->explicit_change_type, 1);
  uint8_t attr_type = 0;
  ASSERT_EQ(gslclegactGetAttrChangeType(nullptr, w.text, &attr_type), GSLCLE_OK);
  EXPECT_EQ(attr_type, GSLCLE_ATTR_ADD);
}

TEST(EntryTest, RenameFieldsAreCopiesAndSuperiorMayBeCleared) {
  World w;
  ASSERT_EQ(w.setChangeType(GSLCLE_CHANGE_MODRDN), GSLCLE_OK);
  char rdn_source[] = "cn=b";
  ASSERT_EQ(gslclesnSetNewRDN(nullptr, w.entry, rdn_source), GSLCLE_OK);
  rdn_source[3] = 'z';  // the entry keeps its own copy
  ASSERT_EQ(gslclesnSetNewRDN(nullptr, w.entry, "cn=c"), GSLCLE_OK);  // the old one is freed
  char *rdn = nullptr;
  ASSERT_EQ(gslclegnGetNewRDN(nullptr, w.entry, &rdn), GSLCLE_OK);
  EXPECT_STREQ(rdn, "cn=c");
  EXPECT_NE(rdn, w.entry->new_rdn);
  gslumfFree(nullptr, rdn);

  char *superior = reinterpret_cast<char *>(1);
  ASSERT_EQ(gslclegnsGetNewSuperior(nullptr, w.entry, &superior), GSLCLE_OK);
  EXPECT_EQ(superior, nullptr);
  ASSERT_EQ(gslclesnsSetNewSuperior(nullptr, w.entry, "o=new"), GSLCLE_OK);
  ASSERT_EQ(gslclegnsGetNewSuperior(nullptr, w.entry, &superior), GSLCLE_OK);
  EXPECT_STREQ(superior, "o=new");
  gslumfFree(nullptr, superior);
  ASSERT_EQ(gslclesnsSetNewSuperior(nullptr, w.entry, nullptr), GSLCLE_OK);
  EXPECT_EQ(w.entry->new_superior, nullptr);

  uint8_t flag = 9;
  ASSERT_EQ(gslclesdoSetDeleteOldRdn(nullptr, w.entry, 7), GSLCLE_OK);
  ASSERT_EQ(gslclegdoGetDeleteOldRdn(nullptr, w.entry, &flag), GSLCLE_OK);
  EXPECT_EQ(flag, 1);
  ASSERT_EQ(gslclesdoSetDeleteOldRdn(nullptr, w.entry, 0), GSLCLE_OK);
  ASSERT_EQ(gslclegdoGetDeleteOldRdn(nullptr, w.entry, &flag), GSLCLE_OK);
  EXPECT_EQ(flag, 0);
}

TEST(EntryTest, SetterKeepsNullAndReportsSuccessWhenItsCopyFails) {
  World w;
  ASSERT_EQ(w.setChangeType(GSLCLE_CHANGE_MODRDN), GSLCLE_OK);
  ASSERT_EQ(gslclesnSetNewRDN(nullptr, w.entry, "cn=b"), GSLCLE_OK);
  qtest::FailingAllocator allocator;
  allocator.failAfter(0);
  EXPECT_EQ(gslclesnSetNewRDN(nullptr, w.entry, "cn=c"), GSLCLE_OK);
  EXPECT_EQ(w.entry->new_rdn, nullptr);
  EXPECT_EQ(gslclesnsSetNewSuperior(nullptr, w.entry, "o=x"), GSLCLE_OK);
  EXPECT_EQ(w.entry->new_superior, nullptr);
  char *dn = reinterpret_cast<char *>(1);
  EXPECT_EQ(gslclegdGetDN(nullptr, w.entry, &dn), GSLCLE_NO_MEMORY);  // a getter does say so
  EXPECT_EQ(dn, nullptr);
}

// ---- Attributes in the entry -------------------------------------------------------

TEST(EntryTest, AttributesKeepInsertionOrderWhateverTheListCursor) {
  World w;
  LDAPAttribute *third = nullptr;
  ASSERT_EQ(gslcleclaCreateLDAPAttribute(nullptr, "sn", GSLCLE_VALUES_TEXT, &third), GSLCLE_OK);
  LDAPAttribute *const text = w.text;
  ASSERT_EQ(w.add(w.text), GSLCLE_OK);
  ASSERT_EQ(w.add(w.binary), GSLCLE_OK);
  void *first = nullptr;  // a reader walking the list leaves the cursor at 1
  ASSERT_EQ(gslulsgeGetElementAt(nullptr, w.entry->attributes, 1, 1, &first), GSLULS_OK);
  ASSERT_EQ(w.add(third), GSLCLE_OK);
  EXPECT_EQ(names(w.entry), (std::vector<std::string>{"cn", "photo", "sn"}));
  uint32_t count = 0;
  ASSERT_EQ(gslclesSize(nullptr, w.entry, &count), GSLCLE_OK);
  EXPECT_EQ(count, 3u);
  GslulsList *list = nullptr;
  ASSERT_EQ(gslclegaGetAttributes(nullptr, w.entry, &list), GSLCLE_OK);
  EXPECT_EQ(list, w.entry->attributes);
  EXPECT_EQ(first, text);  // the entry holds the attribute itself, not a copy
}

struct LookupCase {
  const char *name;
  std::vector<const char *> attributes;
  const char *key;
  int found_at;  // index in attributes, -1 for none
};

const LookupCase kLookups[] = {
    {"NoAttributes", {}, "cn", -1},
    {"ExactCase", {"cn", "sn"}, "sn", 1},
    {"OtherCase", {"cn", "sn"}, "CN", 0},
    {"FirstOfTwoAlike", {"Mail", "mail"}, "MAIL", 0},
    {"Absent", {"cn"}, "c", -1},
    {"OptionsArePartOfTheName", {"photo;binary"}, "photo", -1},
};

class LookupTest : public ::testing::TestWithParam<LookupCase> {};

TEST_P(LookupTest, FindsTheFirstAttributeOfThatNameIgnoringCase) {
  World w;
  std::vector<LDAPAttribute *> made;
  for (const char *name : GetParam().attributes) {
    LDAPAttribute *a = nullptr;
    ASSERT_EQ(gslcleclaCreateLDAPAttribute(nullptr, name, GSLCLE_VALUES_TEXT, &a), GSLCLE_OK);
    made.push_back(a);
    ASSERT_EQ(w.add(a), GSLCLE_OK);
  }
  LDAPAttribute *found = reinterpret_cast<LDAPAttribute *>(1);
  ASSERT_EQ(gslcleganGetAttributeByName(nullptr, w.entry, GetParam().key, &found), GSLCLE_OK);
  EXPECT_EQ(found, GetParam().found_at < 0 ? nullptr : made[GetParam().found_at]);
}

INSTANTIATE_TEST_SUITE_P(Names, LookupTest, ::testing::ValuesIn(kLookups),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(EntryTest, RefusedAttributeStaysWithTheCaller) {
  World w;
  ASSERT_EQ(w.setChangeType(GSLCLE_CHANGE_DELETE), GSLCLE_OK);
  EXPECT_EQ(w.add(w.text), GSLCLE_NOT_APPLICABLE);
  EXPECT_NE(w.text, nullptr);  // World frees it: a wrong hand-over is a double free
  EXPECT_EQ(w.entry->attributes, nullptr);
}

// ---- Values --------------------------------------------------------------------------

// The array grows by five slots when the count is a multiple of five, and
// every reallocation is told the old size; the allocator copies only that
// much, so a wrong old size loses earlier values.
class GrowthTest : public ::testing::TestWithParam<int> {};

TEST_P(GrowthTest, GrowsInStepsOfFiveKeepingOrder) {
  const int kind = GetParam();
  qtest::FailingAllocator allocator;
  LDAPAttribute *a = nullptr;
  ASSERT_EQ(gslcleclaCreateLDAPAttribute(nullptr, "v", kind, &a), GSLCLE_OK);
  std::vector<std::string> want;
  constexpr uint32_t kSlot = sizeof(void *);
  const Pairs growth = {{5 * kSlot, 0}, {10 * kSlot, 5 * kSlot}, {15 * kSlot, 10 * kSlot}};
  for (int i = 0; i < 11; ++i) {
    // The NUL is kept by counted values and ends a string value.
    want.push_back(std::string{'v', static_cast<char>('a' + i), '\0', 'x'});
    if (kind == GSLCLE_VALUES_BINARY) {
      const BERVal v{want.back().size(), want.back().data()};
      ASSERT_EQ(gslcleabvAddAttrBValue(nullptr, a, &v), GSLCLE_OK);
    } else {
      want.back().resize(want.back().find('\0'));  // strings end at their NUL
      ASSERT_EQ(gslcleavAddAttrValue(nullptr, a, want.back().c_str()), GSLCLE_OK);
    }
    const size_t grown = i < 5 ? 1 : i < 10 ? 2 : 3;
    EXPECT_EQ(allocator.reallocations(), Pairs(growth.begin(), growth.begin() + grown)) << i;
  }
  uint32_t count = 0;
  ASSERT_EQ(gslcleasAttrSize(nullptr, a, &count), GSLCLE_OK);
  EXPECT_EQ(count, 11u);
  BERVal **values = nullptr;
  ASSERT_EQ(gslclegabvGetAttrBValues(nullptr, a, &values), GSLCLE_OK);
  for (size_t i = 0; i < want.size(); ++i) {
    ASSERT_NE(values[i], nullptr);
    EXPECT_EQ(std::string(values[i]->bytes, values[i]->length), want[i]);
  }
  EXPECT_EQ(values[want.size()], nullptr);
  gslcleBERValsFree(nullptr, values);
  gslcledaDestroyLDAPAttribute(nullptr, a);
  EXPECT_EQ(allocator.live(), 0);
}

INSTANTIATE_TEST_SUITE_P(Kinds, GrowthTest,
                         ::testing::Values(GSLCLE_VALUES_TEXT, GSLCLE_VALUES_BINARY));

TEST(ValueTest, StringGettersHandOutCopiesWithATerminator) {
  World w;
  ASSERT_EQ(gslcleavAddAttrValue(nullptr, w.text, "Ann"), GSLCLE_OK);
  ASSERT_EQ(gslcleavAddAttrValue(nullptr, w.text, ""), GSLCLE_OK);
  char **strings = nullptr;
  ASSERT_EQ(gslclegavGetAttrValues(nullptr, w.text, &strings), GSLCLE_OK);
  EXPECT_STREQ(strings[0], "Ann");
  EXPECT_NE(strings[0], w.text->values[0]);
  EXPECT_STREQ(strings[1], "");
  EXPECT_EQ(strings[2], nullptr);
  gslcleValsFree(nullptr, strings);
  BERVal **counted = nullptr;  // text values as counted strings, without their NUL
  ASSERT_EQ(gslclegabvGetAttrBValues(nullptr, w.text, &counted), GSLCLE_OK);
  EXPECT_EQ(std::string(counted[0]->bytes, counted[0]->length), "Ann");
  EXPECT_EQ(counted[1]->length, 0u);
  EXPECT_EQ(counted[1]->bytes, nullptr);
  EXPECT_EQ(counted[2], nullptr);
  gslcleBERValsFree(nullptr, counted);
  gslcleValsFree(nullptr, nullptr);
  gslcleBERValsFree(nullptr, nullptr);
  char *name = nullptr;
  ASSERT_EQ(gslclegatnGetAttrName(nullptr, w.text, &name), GSLCLE_OK);
  EXPECT_STREQ(name, "cn");
  gslumfFree(nullptr, name);
}

TEST(ValueTest, EmptyAttributeGivesATerminatorOnly) {
  World w;
  char **strings = nullptr;
  ASSERT_EQ(gslclegavGetAttrValues(nullptr, w.text, &strings), GSLCLE_OK);
  ASSERT_NE(strings, nullptr);
  EXPECT_EQ(strings[0], nullptr);
  gslcleValsFree(nullptr, strings);
}

struct BerValCase {
  const char *name;
  const char *bytes;
  size_t length;
  std::string want;
  bool has_bytes;
};

const BerValCase kBerVals[] = {
    {"NullSourceIsEmptyNotNull", nullptr, 5, "", false},
    {"EmptySourceHasNoBlock", "abc", 0, "", false},
    {"BytesAreCopiedExactlyNulIncluded", "a\0b", 3, std::string("a\0b", 3), true},
    {"OnlyLengthBytesAreTaken", "abcdef", 2, "ab", true},
};

class BerValTest : public ::testing::TestWithParam<BerValCase> {};

TEST_P(BerValTest, NewAndDupCopyTheCountedBytes) {
  const BerValCase &c = GetParam();
  BERVal *v = gslcleBERValNEW(nullptr, c.bytes, c.length);
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(v->bytes != nullptr, c.has_bytes);
  EXPECT_EQ(std::string(v->bytes != nullptr ? v->bytes : "", v->length), c.want);
  if (c.has_bytes) {
    EXPECT_NE(v->bytes, c.bytes);  // a copy, not the source
  }
  BERVal *dup = gslcleBERValDUP(nullptr, v);
  ASSERT_NE(dup, nullptr);
  EXPECT_EQ(std::string(dup->bytes != nullptr ? dup->bytes : "", dup->length), c.want);
  BERVal *array[] = {v, dup, nullptr};
  auto **owned = static_cast<BERVal **>(gslummMalloc(nullptr, sizeof array));
  std::copy(std::begin(array), std::end(array), owned);
  gslcleBERValsFree(nullptr, owned);
}

INSTANTIATE_TEST_SUITE_P(Sources, BerValTest, ::testing::ValuesIn(kBerVals),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(BerValTest, NullArgumentsAndMissingContext) {
  EXPECT_EQ(gslcleBERValDUP(nullptr, nullptr), nullptr);
  EXPECT_EQ(gslcleBERValNEW(&kNoContext, "a", 1), nullptr);
  EXPECT_EQ(gslcleBERValDUP(&kNoContext, &kAb), nullptr);
}

// ---- Allocation failures ----------------------------------------------------------------

// Builds an entry with two attributes of six values each and reads them
// back; every step reports a failure and stops.
int buildAndRead() {
  LDAPEntry *entry = nullptr;
  int st = gslcleceCreateLDAPEntry(nullptr, "cn=a", &entry);
  for (int k = 0; st == GSLCLE_OK && k < 2; ++k) {
    LDAPAttribute *a = nullptr;
    st = gslcleclaCreateLDAPAttribute(nullptr, k == 0 ? "cn" : "jpeg",
                                      k == 0 ? GSLCLE_VALUES_TEXT : GSLCLE_VALUES_BINARY, &a);
    for (int i = 0; st == GSLCLE_OK && i < 6; ++i) {
      st = k == 0 ? gslcleavAddAttrValue(nullptr, a, "value") : gslcleabvAddAttrBValue(nullptr, a, &kAb);
    }
    BERVal **values = nullptr;
    if (st == GSLCLE_OK) st = gslclegabvGetAttrBValues(nullptr, a, &values);
    gslcleBERValsFree(nullptr, values);
    if (st == GSLCLE_OK) st = gslcleaaAddLDAPAttribute(nullptr, entry, a);
    if (st != GSLCLE_OK) gslcledaDestroyLDAPAttribute(nullptr, a);
  }
  if (entry != nullptr) gslcledeDestroyLDAPEntry(nullptr, entry);
  return st;
}

TEST(EntryAllocationTest, EveryFailureIsReportedAndLeavesNothingBehind) {
  qtest::FailingAllocator allocator;
  int st = GSLCLE_NO_MEMORY;
  size_t n = 0;
  for (; st != GSLCLE_OK && n < 1000; ++n) {
    allocator.failAfter(n);
    st = buildAndRead();
    if (st != GSLCLE_OK) {
      EXPECT_EQ(st, GSLCLE_NO_MEMORY) << "allocation " << n;
    }
    EXPECT_EQ(allocator.live(), 0) << "allocation " << n;
  }
  EXPECT_EQ(st, GSLCLE_OK);
  EXPECT_GT(n, 30u);  // the sweep went through every step
}

}  // namespace

// Tests of entry/entry.h: status codes and the order of their checks, the
// growth of the values array, ownership, case-insensitive lookup, the
// counted-string helpers and allocation failures.
#include "entry/entry.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/test_allocator.h"

namespace {

// A handle with an allocator but no core context: no context can be had.
const gsluMemCallbacks kSomeTable = {};
const gslcClientHandle kNoContext = {nullptr, &kSomeTable, nullptr};
const BERVal kAb = {2, const_cast<char *>("ab")};

// An entry and one attribute of each kind, not yet added to it.
struct World {
  LDAPEntry *entry = nullptr;
  LDAPAttribute *text = nullptr;    // kind 0, "cn"
  LDAPAttribute *binary = nullptr;  // kind 128, "photo"
  World() {
    EXPECT_EQ(gslcleceCreateLDAPEntry(nullptr, "cn=a", &entry), GSLCLE_OK);
    EXPECT_EQ(gslcleclaCreateLDAPAttribute(nullptr, "cn", GSLCLE_VALUES_TEXT, &text), GSLCLE_OK);
    EXPECT_EQ(gslcleclaCreateLDAPAttribute(nullptr, "photo", GSLCLE_VALUES_BINARY, &binary),
              GSLCLE_OK);
  }
  ~World() {
    gslcledeDestroyLDAPEntry(nullptr, entry);
    gslcledaDestroyLDAPAttribute(nullptr, text);
    gslcledaDestroyLDAPAttribute(nullptr, binary);
  }
  // Hands attribute over to the entry when accepted.
  int add(LDAPAttribute *&attribute) {
    const int st = gslcleaaAddLDAPAttribute(nullptr, entry, attribute);
    if (st == GSLCLE_OK) attribute = nullptr;
    return st;
  }
  int type(int t) { return gslclesctSetChangeType(nullptr, entry, t); }
};

struct StatusCase {
  const char *name;
  std::function<int(World &)> op;
  int status;
};

LDAPEntry *g_entry;
LDAPAttribute *g_attribute;
char *g_text;
char **g_texts;

const StatusCase kStatusCases[] = {
    {"NullDn", [](World &) { return gslcleceCreateLDAPEntry({}, {}, &g_entry); }, GSLCLE_NULL_ARG},
    {"ChangeTypeZero", [](World &w) { return w.type(0); }, GSLCLE_BAD_CHANGE_TYPE},
    {"ChangeTypeFive", [](World &w) { return w.type(5); }, GSLCLE_BAD_CHANGE_TYPE},
    {"AttrChangeTypeFour", [](World &w) { return gslclegastSetAttrChangeType({}, w.text, 4); },
     GSLCLE_BAD_CHANGE_TYPE},
    {"AttrChangeTypeEight", [](World &w) { return gslclegastSetAttrChangeType({}, w.text, 8); },
     GSLCLE_BAD_CHANGE_TYPE},
    {"AddToDeleteEntry", [](World &w) { return w.type(2) + w.add(w.text); }, GSLCLE_NOT_APPLICABLE},
    {"AddToModrdnEntry", [](World &w) { return w.type(4) + w.add(w.text); }, GSLCLE_NOT_APPLICABLE},
    {"AddToModifyEntry", [](World &w) { return w.type(3) + w.add(w.text); }, GSLCLE_OK},
    {"KindOne", [](World &) { return gslcleclaCreateLDAPAttribute({}, "", 1, &g_attribute); },
     GSLCLE_BAD_VALUE_KIND},
    {"EmptyName", [](World &) { return gslcleclaCreateLDAPAttribute({}, "", 128, &g_attribute); },
     GSLCLE_EMPTY_NAME},
    {"StringToKind128", [](World &w) { return gslcleavAddAttrValue({}, w.binary, "v"); },
     GSLCLE_NOT_APPLICABLE},
    {"BerValToKind0", [](World &w) { return gslcleabvAddAttrBValue({}, w.text, &kAb); },
     GSLCLE_NOT_APPLICABLE},
    {"StringsOfKind128", [](World &w) { return gslclegavGetAttrValues({}, w.binary, &g_texts); },
     GSLCLE_NOT_APPLICABLE},
    {"NewRdnOfAddEntry", [](World &w) { return gslclegnGetNewRDN({}, w.entry, &g_text); },
     GSLCLE_NOT_APPLICABLE},
    {"NullNewRdnBeforeType", [](World &w) { return gslclesnSetNewRDN({}, w.entry, nullptr); },
     GSLCLE_NULL_ARG},
    {"NullSuperiorAccepted",
     [](World &w) { return w.type(4) + gslclesnsSetNewSuperior({}, w.entry, nullptr); }, GSLCLE_OK},
    {"OldRdnOfModifyEntry",
     [](World &w) { return w.type(3) + gslclesdoSetDeleteOldRdn({}, w.entry, 1); },
     GSLCLE_NOT_APPLICABLE},
    {"DestAttrNull", [](World &) { return gslcledaDestLDAPAttr(nullptr, nullptr); },
     GSLCLE_NULL_ARG},
    {"CompareNull", [](World &w) { return gslcleAttrNameCmpCBF({}, w.text, nullptr); },
     GSLCLE_CMP_NULL_ARG},
    {"ControlNullOid", [](World &w) { return gslcleacAddControl({}, w.entry, nullptr, 0, {}); },
     GSLCLE_NULL_ARG},
    {"ControlOfAnyChangeType",
     [](World &w) { return w.type(2) + gslcleacAddControl({}, w.entry, "1.2", 1, &kAb); },
     GSLCLE_OK},
    {"IncrementNull", [](World &) { return gslclesiSetAttrIncrement({}, nullptr); },
     GSLCLE_NULL_ARG},
    // Without a core context nothing else is looked at.
    {"NoContextCreate", [](World &) { return gslcleceCreateLDAPEntry(&kNoContext, {}, {}); },
     GSLCLE_NO_CONTEXT},
    {"NoContextAdd",
     [](World &w) { return gslcleaaAddLDAPAttribute(&kNoContext, w.entry, w.text); },
     GSLCLE_NO_CONTEXT},
};

void PrintTo(const StatusCase &c, std::ostream *os) { *os << c.name; }

class EntryStatusTest : public ::testing::TestWithParam<StatusCase> {};

TEST_P(EntryStatusTest, ReturnsTheDocumentedStatus) {
  World w;
  EXPECT_EQ(GetParam().op(w), GetParam().status);
}

INSTANTIATE_TEST_SUITE_P(Rules, EntryStatusTest, ::testing::ValuesIn(kStatusCases),
                         [](const auto &info) { return std::string(info.param.name); });

// The getter hands out a copy; a setter whose copy fails keeps null and
// still reports success, where a getter says it failed.
TEST(EntryTest, SetterKeepsNullAndReportsSuccessWhenItsCopyFails) {
  World w;
  ASSERT_EQ(w.type(GSLCLE_CHANGE_MODRDN), GSLCLE_OK);
  ASSERT_EQ(gslclesnSetNewRDN(nullptr, w.entry, "cn=b"), GSLCLE_OK);
  char *rdn = nullptr;
  ASSERT_EQ(gslclegnGetNewRDN(nullptr, w.entry, &rdn), GSLCLE_OK);
  EXPECT_STREQ(rdn, "cn=b");
  gslumfFree(nullptr, rdn);
  qtest::TestAllocator::Scope allocator;
  qtest::TestAllocator::budget = 0;
  EXPECT_EQ(gslclesnSetNewRDN(nullptr, w.entry, "cn=c"), GSLCLE_OK);
  EXPECT_EQ(gslclegnGetNewRDN(nullptr, w.entry, &rdn), GSLCLE_OK);  // null: nothing to copy
  EXPECT_EQ(rdn, nullptr);
  EXPECT_EQ(gslclegdGetDN(nullptr, w.entry, &rdn), GSLCLE_NO_MEMORY);
}

// Attributes keep insertion order even after a reader moved the list's
// cursor; lookups ignore case and point into the entry.
TEST(EntryTest, AttributesKeepOrderAndAreFoundIgnoringCase) {
  World w;
  LDAPAttribute *found = &w.text[0], *third = nullptr;
  ASSERT_EQ(gslcleganGetAttributeByName(nullptr, w.entry, "cn", &found), GSLCLE_OK);
  EXPECT_EQ(found, nullptr);  // no attribute list yet
  ASSERT_EQ(gslcleclaCreateLDAPAttribute(nullptr, "sn", GSLCLE_VALUES_TEXT, &third), GSLCLE_OK);
  ASSERT_EQ(w.add(w.text) + w.add(w.binary), GSLCLE_OK);
  GslulsList *list = nullptr;
  void *at = nullptr;
  ASSERT_EQ(gslclegaGetAttributes(nullptr, w.entry, &list), GSLCLE_OK);
  ASSERT_EQ(gslulsgeGetElementAt(nullptr, list, 1, 1, &at), GSLULS_OK);  // a reader's cursor
  ASSERT_EQ(w.add(third), GSLCLE_OK);
  std::string names;
  for (uint32_t i = 1; gslulsgeGetElementAt(nullptr, list, i, 0, &at) == GSLULS_OK; ++i)
    names += static_cast<LDAPAttribute *>(at)->name + std::string(" ");
  EXPECT_EQ(names, "cn photo sn ");
  const std::pair<const char *, const char *> lookups[] = {
      {"CN", "cn"}, {"Photo", "photo"}, {"c", nullptr}};
  for (const auto &[key, name] : lookups) {
    ASSERT_EQ(gslcleganGetAttributeByName(nullptr, w.entry, key, &found), GSLCLE_OK);
    EXPECT_STREQ(found != nullptr ? found->name : nullptr, name) << key;
  }
  uint32_t count = 0;
  ASSERT_EQ(gslclesSize(nullptr, w.entry, &count), GSLCLE_OK);
  EXPECT_EQ(count, 3u);
}

// The array grows by five slots when the count is a multiple of five, each
// reallocation told the old size (the test allocator copies only that).
class GrowthTest : public ::testing::TestWithParam<int> {};

TEST_P(GrowthTest, GrowsInStepsOfFiveKeepingOrder) {
  qtest::TestAllocator::Scope allocator;
  LDAPAttribute *a = nullptr;
  ASSERT_EQ(gslcleclaCreateLDAPAttribute(nullptr, "v", GetParam(), &a), GSLCLE_OK);
  std::vector<std::string> want;
  for (int i = 0; i < 11; ++i) {
    want.push_back(std::string{'v', static_cast<char>('a' + i), '\0', 'x'});
    if (GetParam() == GSLCLE_VALUES_BINARY) {
      const BERVal v{want.back().size(), want.back().data()};
      ASSERT_EQ(gslcleabvAddAttrBValue(nullptr, a, &v), GSLCLE_OK);
    } else {
      want.back().resize(2);  // a string value ends at its NUL
      ASSERT_EQ(gslcleavAddAttrValue(nullptr, a, want.back().c_str()), GSLCLE_OK);
    }
  }
  constexpr uint32_t kSlot = sizeof(void *);
  EXPECT_EQ(qtest::TestAllocator::reallocations,
            (std::vector<std::pair<uint32_t, uint32_t>>{
                {5 * kSlot, 0}, {10 * kSlot, 5 * kSlot}, {15 * kSlot, 10 * kSlot}}));
  BERVal **values = nullptr;
  ASSERT_EQ(gslclegabvGetAttrBValues(nullptr, a, &values), GSLCLE_OK);
  for (size_t i = 0; i < want.size(); ++i)
    EXPECT_EQ(std::string(values[i]->bytes, values[i]->length), want[i]);
  EXPECT_EQ(values[want.size()], nullptr);
  gslcleBERValsFree(nullptr, values);
  gslcledaDestroyLDAPAttribute(nullptr, a);
  EXPECT_EQ(qtest::TestAllocator::live, 0);
}

INSTANTIATE_TEST_SUITE_P(Kinds, GrowthTest,
                         ::testing::Values(GSLCLE_VALUES_TEXT, GSLCLE_VALUES_BINARY));

// Counted bytes are copied by the growth test above; here the edges.
TEST(BerValTest, NoBytesMakeAnEmptyValueAndNoContextNone) {
  for (const char *bytes : {static_cast<const char *>(nullptr), "x"}) {
    BERVal *empty = gslcleBERValNEW(nullptr, bytes, bytes == nullptr ? 5 : 0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->length, 0u);
    EXPECT_EQ(empty->bytes, nullptr);
    gslumfFree(nullptr, empty);
  }
  EXPECT_EQ(gslcleBERValDUP(nullptr, nullptr), nullptr);
  EXPECT_EQ(gslcleBERValNEW(&kNoContext, "a", 1), nullptr);
}

// Builds an entry with attributes of six values of each kind and reads them
// back; the first failing step stops it.
int buildAndRead() {
  LDAPEntry *entry = nullptr;
  int st = gslcleceCreateLDAPEntry(nullptr, "cn=a", &entry);
  for (const int kind : {GSLCLE_VALUES_TEXT, GSLCLE_VALUES_BINARY}) {
    LDAPAttribute *a = nullptr;
    if (st == GSLCLE_OK) st = gslcleclaCreateLDAPAttribute(nullptr, "cn", kind, &a);
    for (int i = 0; st == GSLCLE_OK && i < 6; ++i) {
      st = kind == GSLCLE_VALUES_TEXT ? gslcleavAddAttrValue(nullptr, a, "v")
                                      : gslcleabvAddAttrBValue(nullptr, a, &kAb);
    }
    BERVal **values = nullptr;
    char **strings = nullptr;
    if (st == GSLCLE_OK) st = gslclegabvGetAttrBValues(nullptr, a, &values);
    if (st == GSLCLE_OK && kind == GSLCLE_VALUES_TEXT)
      st = gslclegavGetAttrValues(nullptr, a, &strings);
    gslcleBERValsFree(nullptr, values);
    gslcleValsFree(nullptr, strings);
    if (st == GSLCLE_OK) st = gslcleaaAddLDAPAttribute(nullptr, entry, a);
    if (st != GSLCLE_OK) gslcledaDestroyLDAPAttribute(nullptr, a);
  }
  gslcledeDestroyLDAPEntry(nullptr, entry);
  return st;
}

TEST(EntryAllocationTest, EveryFailureIsReportedAndLeavesNothingBehind) {
  qtest::TestAllocator::Scope allocator;
  size_t n = 0;
  for (int st = GSLCLE_NO_MEMORY; st != GSLCLE_OK; ++n) {
    ASSERT_LT(n, 1000u);
    qtest::TestAllocator::budget = n;
    st = buildAndRead();
    EXPECT_TRUE(st == GSLCLE_OK || st == GSLCLE_NO_MEMORY) << st << " at allocation " << n;
    EXPECT_EQ(qtest::TestAllocator::live, 0) << "allocation " << n;
  }
  EXPECT_GT(n, 30u);
}

// ---- Controls ---------------------------------------------------------------------

// Control types are written as they stand on a "control:" line, so only
// numeric OIDs are taken.
TEST(ControlTest, OnlyNumericOidsAreTaken) {
  const std::pair<const char *, int> oids[] = {
      {"1.2", GSLCLE_OK},          {"2.5.4.3", GSLCLE_OK},        {"0.0", GSLCLE_OK},
      {"1.2.840.113556.1.4.319", GSLCLE_OK}, {"", GSLCLE_BAD_OID}, {"1", GSLCLE_BAD_OID},
      {"3.1", GSLCLE_BAD_OID},     {"1.", GSLCLE_BAD_OID},        {"1..2", GSLCLE_BAD_OID},
      {".1.2", GSLCLE_BAD_OID},    {"12.3", GSLCLE_BAD_OID},      {"1.2 ", GSLCLE_BAD_OID},
      {" 1.2", GSLCLE_BAD_OID},    {"1.2\ncontrol: 1.3", GSLCLE_BAD_OID},
      {"cn", GSLCLE_BAD_OID},      {"1.2a", GSLCLE_BAD_OID}};
  for (const auto &[oid, expected] : oids) {
    EXPECT_EQ(gslclecoCheckControlOid(oid), expected) << '"' << oid << '"';
    World w;
    EXPECT_EQ(gslcleacAddControl(nullptr, w.entry, oid, 0, nullptr), expected) << oid;
    EXPECT_EQ(w.entry->controls != nullptr && w.entry->controls->count == 1,
              expected == GSLCLE_OK);
  }
  EXPECT_EQ(gslclecoCheckControlOid(nullptr), GSLCLE_BAD_OID);
}

// Out of memory, the entry is left as it was (and nothing leaks: the
// sanitizer build watches).
TEST(ControlTest, AFailedAllocationChangesNothing) {
  World w;
  for (size_t budget : {0, 1}) {
    qtest::TestAllocator::Scope allocator;
    qtest::TestAllocator::budget = budget;
    const int st = gslcleacAddControl(nullptr, w.entry, "1.2", 0, &kAb);
    qtest::TestAllocator::budget = qtest::TestAllocator::kUnlimited;
    EXPECT_EQ(st, GSLCLE_NO_MEMORY) << budget;
    EXPECT_TRUE(w.entry->controls == nullptr || w.entry->controls->count == 0) << budget;
  }
}

}  // namespace

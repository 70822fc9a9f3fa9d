// Tests of entry/ldif_record.h: each record kind as the worked examples show
// it, the cases without attributes, exact-size text and a failed allocation.
#include "entry/ldif_record.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "core/memory.h"
#include "entry/entry.h"
#include "entry/ldif_line.h"
#include "entry/names.h"
#include "tests/support/test_allocator.h"

namespace {

struct AttrSpec {
  const char *name;
  int change_type;
  std::vector<std::string> values;
};

// Builds an entry from a compact description; change_type 0 leaves the
// entry's change type as created (add, not set explicitly).
LDAPEntry *makeEntry(const char *dn, int change_type, const std::vector<AttrSpec> &attrs) {
  LDAPEntry *e = nullptr;
  EXPECT_EQ(gslcleceCreateLDAPEntry(nullptr, dn, &e), GSLCLE_OK);
  if (change_type == GSLCLE_CHANGE_DELETE || change_type == GSLCLE_CHANGE_MODRDN) {
    EXPECT_EQ(gslclesctSetChangeType(nullptr, e, change_type), GSLCLE_OK);
    return e;
  }
  for (const AttrSpec &spec : attrs) {
    LDAPAttribute *a = nullptr;
    EXPECT_EQ(gslcleclaCreateLDAPAttribute(nullptr, spec.name, GSLCLE_VALUES_BINARY, &a),
              GSLCLE_OK);
    EXPECT_EQ(spec.change_type == GSLCLE_ATTR_INCREMENT
                  ? gslclesiSetAttrIncrement(nullptr, a)
                  : gslclegastSetAttrChangeType(nullptr, a, spec.change_type),
              GSLCLE_OK);
    for (const std::string &v : spec.values) {
      BERVal bv{v.size(), const_cast<char *>(v.data())};
      EXPECT_EQ(gslcleabvAddAttrBValue(nullptr, a, &bv), GSLCLE_OK);
    }
    EXPECT_EQ(gslcleaaAddLDAPAttribute(nullptr, e, a), GSLCLE_OK);
  }
  if (change_type != 0) {
    EXPECT_EQ(gslclesctSetChangeType(nullptr, e, change_type), GSLCLE_OK);
  }
  return e;
}

std::string recordOf(const LDAPEntry *e) {
  char *text = nullptr;
  EXPECT_EQ(gslclegalGetAsLDIF(nullptr, e, &text), GSLCLEGAL_OK);
  std::string s = text != nullptr ? text : "<null>";
  gslumfFree(nullptr, text);
  return s;
}

// The record in the RFC 2849 form; the length handed back must be the
// text's.
std::string rfcRecordOf(const LDAPEntry *e) {
  char *text = nullptr;
  size_t length = 1;
  EXPECT_EQ(gslclegalfGetAsLDIFForm(nullptr, e, GSLCLE_LDIF_FORM_RFC2849, &text, &length, nullptr),
            GSLCLEGAL_OK);
  std::string s = text != nullptr ? text : "<null>";
  EXPECT_EQ(length, text != nullptr ? std::strlen(text) : 0);
  gslumfFree(nullptr, text);
  return s;
}

constexpr int kAdd = GSLCLE_ATTR_ADD;
constexpr int kDelete = GSLCLE_ATTR_DELETE;
constexpr int kReplace = GSLCLE_ATTR_REPLACE;

struct RecordCase {
  const char *name;
  int change_type;
  std::vector<AttrSpec> attrs;
  std::string expected;
};

void PrintTo(const RecordCase &c, std::ostream *os) { *os << c.name; }

const RecordCase kRecords[] = {
    {"Content",
     0,
     {{"objectclass", kAdd, {"person", "top"}},
      {"cn", kAdd, {"Ann Lee"}},
      {"description", kAdd, {}}},
     "dn: cn=Ann Lee,o=ex\nobjectclass: person\nobjectclass: top\ncn: Ann Lee\ndescription: \n"},
    {"ContentWithoutAttributes", 0, {}, "dn: cn=Ann Lee,o=ex\n"},
    {"Modify",
     GSLCLE_CHANGE_MODIFY,
     {{"title", kReplace, {"Engineer"}},
      {"telephonenumber", kDelete, {}},
      {"description", kAdd, {"hi"}}},
     "dn: cn=Ann Lee,o=ex\nchangetype: modify\nreplace: title\ntitle: Engineer\n-\n"
     "delete: telephonenumber\n-\nadd: description\ndescription: hi\n"},
    {"ModifyWithOneAttributeHasNoDashLine",
     GSLCLE_CHANGE_MODIFY,
     {{"title", kReplace, {}}},
     "dn: cn=Ann Lee,o=ex\nchangetype: modify\nreplace: title\n"},
    {"ModifyWithoutAttributesIsTheDnLineAlone", GSLCLE_CHANGE_MODIFY, {}, "dn: cn=Ann Lee,o=ex\n"},
    {"ExplicitAdd",
     GSLCLE_CHANGE_ADD,
     {{"cn", kAdd, {"Ann Lee"}}, {"sn", kAdd, {"Lee"}}},
     "dn: cn=Ann Lee,o=ex\nchangetype: add\nadd: cn\ncn: Ann Lee\n-\nadd: sn\nsn: Lee\n"},
    {"ExplicitAddWithoutAttributesIsTheDnLineAlone",
     GSLCLE_CHANGE_ADD,
     {},
     "dn: cn=Ann Lee,o=ex\n"},
    {"Delete", GSLCLE_CHANGE_DELETE, {}, "dn: cn=Ann Lee,o=ex\nchangetype: delete\n"},
    {"ValuesAreEncodedInEveryRecord",
     GSLCLE_CHANGE_MODIFY,
     {{"cn", kAdd, {" lead"}}},
     "dn: cn=Ann Lee,o=ex\nchangetype: modify\nadd: cn\ncn:: IGxlYWQ=\n"},
};

class RecordTest : public ::testing::TestWithParam<RecordCase> {};

TEST_P(RecordTest, RendersTheRecord) {
  LDAPEntry *e = makeEntry("cn=Ann Lee,o=ex", GetParam().change_type, GetParam().attrs);
  EXPECT_EQ(recordOf(e), GetParam().expected);
  gslcledeDestroyLDAPEntry(nullptr, e);
}

INSTANTIATE_TEST_SUITE_P(Kinds, RecordTest, ::testing::ValuesIn(kRecords),
                         [](const auto &info) { return std::string(info.param.name); });

// ---- The RFC 2849 forms ----------------------------------------------------------

constexpr int kIncrement = GSLCLE_ATTR_INCREMENT;

struct ControlSpec {
  const char *oid;
  bool critical;
  const char *value;  // null: none
};

struct RfcCase {
  const char *name;
  int change_type;  // 0: content (never set)
  std::vector<AttrSpec> attrs;
  std::vector<ControlSpec> controls;
  std::string expected;
};

void PrintTo(const RfcCase &c, std::ostream *os) { *os << c.name; }

const std::string kDn = "dn: cn=Ann Lee,o=ex\n";

const RfcCase kRfcRecords[] = {
    {"ContentIsTheLibraryFormAndDropsControls",
     0,
     {{"cn", kAdd, {"Ann Lee"}}, {"description", kAdd, {}}},
     {{"1.2.3", true, nullptr}},
     kDn + "cn: Ann Lee\ndescription: \n"},
    {"AddIsAContentRecordAfterItsChangetype",
     GSLCLE_CHANGE_ADD,
     {{"cn", kAdd, {"Ann Lee"}}, {"sn", kAdd, {"Lee", " Lee"}}, {"description", kAdd, {}}},
     {},
     kDn + "changetype: add\ncn: Ann Lee\nsn: Lee\nsn:: IExlZQ==\ndescription: \n"},
    {"AddWithoutAttributes", GSLCLE_CHANGE_ADD, {}, {}, kDn + "changetype: add\n"},
    {"ModifyEndsEveryModificationWithADash",
     GSLCLE_CHANGE_MODIFY,
     {{"title", kReplace, {"Engineer"}},
      {"telephoneNumber", kDelete, {}},
      {"mail", kAdd, {}},
      {"uidNumber", kIncrement, {"1"}}},
     {},
     kDn +
         "changetype: modify\nreplace: title\ntitle: Engineer\n-\ndelete: telephoneNumber\n-\n"
         "add: mail\n-\nincrement: uidNumber\nuidNumber: 1\n-\n"},
    {"ModifyWithoutModifications", GSLCLE_CHANGE_MODIFY, {}, {}, kDn + "changetype: modify\n"},
    {"ControlsComeRightAfterTheDnInOrder",
     GSLCLE_CHANGE_DELETE,
     {},
     {{"1.2.840.113556.1.4.805", true, nullptr},
      {"1.3.6.1.4.1.4203.1.10.1", false, "text"},
      {"2.5", true, ""},
      {"1.2.3", false, "\x30\x03\x02\x01\x05"},
      {"1.2.4", true, "\xc3\xa9"}},
     kDn +
         "control: 1.2.840.113556.1.4.805 true\ncontrol: 1.3.6.1.4.1.4203.1.10.1 false: text\n"
         "control: 2.5 true: \ncontrol: 1.2.3 false:: MAMCAQU=\ncontrol: 1.2.4 true:: w6k=\n"
         "changetype: delete\n"},
    {"ControlsOfAnAdd",
     GSLCLE_CHANGE_ADD,
     {{"cn", kAdd, {"a"}}},
     {{"1.2.3", false, nullptr}},
     kDn + "control: 1.2.3 false\nchangetype: add\ncn: a\n"},
    // A long control value folds counting the whole "control: OID true"
    // as the line's type.
    {"ALongControlValueFolds",
     GSLCLE_CHANGE_DELETE,
     {},
     {{"1.2.3", true, "0123456789012345678901234567890123456789012345678901234567890123456789"}},
     kDn +
         "control: 1.2.3 true: 012345678901234567890123456789012345678901234567890123456\n"
         " 7890123456789\nchangetype: delete\n"},
};

class RfcRecordTest : public ::testing::TestWithParam<RfcCase> {};

TEST_P(RfcRecordTest, RendersTheRecord) {
  const RfcCase &c = GetParam();
  LDAPEntry *e = makeEntry("cn=Ann Lee,o=ex", c.change_type, c.attrs);
  for (const ControlSpec &ctl : c.controls) {
    const BERVal value{ctl.value != nullptr ? std::strlen(ctl.value) : 0,
                       const_cast<char *>(ctl.value)};
    ASSERT_EQ(gslcleacAddControl(nullptr, e, ctl.oid, ctl.critical ? 5 : 0,
                                 ctl.value != nullptr ? &value : nullptr),
              GSLCLE_OK);
  }
  EXPECT_EQ(rfcRecordOf(e), c.expected);
  gslcledeDestroyLDAPEntry(nullptr, e);
}

INSTANTIATE_TEST_SUITE_P(Kinds, RfcRecordTest, ::testing::ValuesIn(kRfcRecords),
                         [](const auto &info) { return std::string(info.param.name); });

// The rename fields are value lines: base64 when they need it, folded, so
// that nothing in them is refused; an absent new RDN is an empty value and
// an empty new superior is written.
TEST(ModRdnRecord, TheRfcFormWritesTheRenameFieldsAsValues) {
  LDAPEntry *e = makeEntry("cn=Ann Lee,o=ex", GSLCLE_CHANGE_MODRDN, {});
  EXPECT_EQ(rfcRecordOf(e), kDn + "changetype: modrdn\nnewrdn: \ndeleteoldrdn: 0\n");
  ASSERT_EQ(gslclesnSetNewRDN(nullptr, e, " cn=Ann Sm\xc3\xafth"), GSLCLE_OK);
  ASSERT_EQ(gslclesdoSetDeleteOldRdn(nullptr, e, 1), GSLCLE_OK);
  ASSERT_EQ(gslclesnsSetNewSuperior(nullptr, e, ""), GSLCLE_OK);
  EXPECT_EQ(rfcRecordOf(e), kDn +
                                "changetype: modrdn\nnewrdn:: IGNuPUFubiBTbcOvdGg=\n"
                                "deleteoldrdn: 1\nnewsuperior: \n");
  ASSERT_EQ(gslclesnSetNewRDN(nullptr, e, "cn=a\ndn: cn=b"), GSLCLE_OK);
  ASSERT_EQ(gslclesnsSetNewSuperior(nullptr, e, "o=other"), GSLCLE_OK);
  EXPECT_EQ(rfcRecordOf(e), kDn +
                                "changetype: modrdn\nnewrdn:: Y249YQpkbjogY249Yg==\n"
                                "deleteoldrdn: 1\nnewsuperior: o=other\n");
  gslcledeDestroyLDAPEntry(nullptr, e);
}

// A record past the stack buffer is sized, then written, with the same
// bytes as its lines one by one, into one block of exactly its size.
TEST(RecordBlock, ALargeRfcRecordIsWrittenInTwoPassesExactly) {
  const std::string big(20000, 'v');
  const std::string encoded(7000, '\x80');
  LDAPEntry *e = makeEntry("cn=x", GSLCLE_CHANGE_MODIFY, {{"description", kReplace, {big}}});
  const BERVal value{encoded.size(), const_cast<char *>(encoded.data())};
  ASSERT_EQ(gslcleacAddControl(nullptr, e, "1.2.3", 1, &value), GSLCLE_OK);
  auto line = [](const char *type, const std::string &v) {
    char *l = gsldlDLdifTypeAndValue(type, v.data(), static_cast<uint32_t>(v.size()));
    std::string out = l;
    gslumfFree(nullptr, l);
    return out;
  };
  const std::string expected = "dn: cn=x\n" + line("control: 1.2.3 true", encoded) +
                               "changetype: modify\nreplace: description\n" +
                               line("description", big) + "-\n";
  qtest::TestAllocator::Scope allocator;
  EXPECT_EQ(rfcRecordOf(e), expected);
  EXPECT_EQ(qtest::TestAllocator::sizes.back(), static_cast<uint32_t>(expected.size() + 1));
  gslcledeDestroyLDAPEntry(nullptr, e);
}

TEST(ModRdnRecord, WritesTheRenameFieldsAsTheyStand) {
  LDAPEntry *e = makeEntry("cn=Ann Lee,o=ex", GSLCLE_CHANGE_MODRDN, {});
  EXPECT_EQ(recordOf(e), "dn: cn=Ann Lee,o=ex\nchangetype: modrdn\nnewrdn: \ndeleteoldrdn: 0\n");
  ASSERT_EQ(gslclesnSetNewRDN(nullptr, e, " cn=Ann Sm\xc3\xafth"), GSLCLE_OK);
  ASSERT_EQ(gslclesdoSetDeleteOldRdn(nullptr, e, 7), GSLCLE_OK);
  ASSERT_EQ(gslclesnsSetNewSuperior(nullptr, e, "o=other"), GSLCLE_OK);
  // A DN that needs base64 is encoded; the same text as new RDN is not.
  EXPECT_EQ(recordOf(e),
            "dn: cn=Ann Lee,o=ex\nchangetype: modrdn\nnewrdn:  cn=Ann Sm\xc3\xafth\n"
            "deleteoldrdn: 1\nnewsuperior: o=other\n");
  gslcledeDestroyLDAPEntry(nullptr, e);
}

// Names an LDIF reader would take for record structure, names RFC 4512
// does not allow, and names that only look odd: each with what the two
// rules say of it.
struct NameCase {
  const char *name;
  int ldif;     // under GSLCLE_NAMES_LDIF
  int rfc4512;  // under GSLCLE_NAMES_RFC4512
};

void PrintTo(const NameCase &c, std::ostream *os) { *os << '"' << c.name << '"'; }

constexpr int kOk = GSLCLEGAL_OK;
constexpr int kNo = GSLCLEGAL_REFUSED;

const NameCase kNames[] = {
    {"description\n\ndn: cn=admin,o=ex\nchangetype: delete\n\ndn: cn=Ann Lee,o=ex\ncn", kNo, kNo},
    {"cn\r", kNo, kNo},
    {"c\tn", kNo, kNo},
    {" cn", kNo, kNo},
    {"#cn", kNo, kNo},
    {"dn", kNo, kNo},
    {"DN", kNo, kNo},
    {"dn  ", kNo, kNo},
    {"changetype", kNo, kNo},
    {"ChangeType", kNo, kNo},
    {"control", kNo, kNo},
    // A colon ends the type: the value would be read as base64, or as a URL
    // that ldapadd fetches.
    {"seeAlso:", kNo, kNo},
    {"description:< file:///etc/shadow", kNo, kNo},
    {"a:b", kNo, kNo},
    {"cn", kOk, kOk},
    {"dnQualifier", kOk, kOk},
    {"dn;binary", kOk, kOk},
    {"userCertificate;binary;lang-en", kOk, kOk},
    {"controls", kOk, kOk},
    {"changetypes", kOk, kOk},
    {"x-my-attr", kOk, kOk},
    {"2.5.4.3", kOk, kOk},
    {"0.9.2342.19200300.100.1.1;x", kOk, kOk},
    {"\xc3\xa9", kOk, kNo},
    {"a b", kOk, kNo},
    {"cn ", kOk, kNo},
    {"1cn", kOk, kNo},
    {"-cn", kOk, kNo},
    {"cn_x", kOk, kNo},
    {"cn;", kOk, kNo},
    {"cn;;x", kOk, kNo},
    {"cn;a_b", kOk, kNo},
    {"2.5", kOk, kOk},
    {"2", kOk, kNo},
    {"2.05", kOk, kNo},
    {"02.5", kOk, kNo},
    {"2.5.", kOk, kNo},
    {"2..5", kOk, kNo},
};

class NameTest : public ::testing::TestWithParam<NameCase> {};

// A refused name refuses the whole record, whatever its place, so that no
// record of the document's making ever reaches the output; the strict
// writer holds names to RFC 4512.
TEST_P(NameTest, RefusesOnlyNamesTheRuleRefuses) {
  const NameCase &c = GetParam();
  EXPECT_EQ(gslclecnCheckAttrName(c.name), c.ldif);
  EXPECT_EQ(gslclenaAttrNameLength(c.name, GSLCLE_NAMES_LDIF) >= 0, c.ldif == kOk);
  EXPECT_EQ(gslclenaAttrNameLength(c.name, GSLCLE_NAMES_RFC4512) >= 0, c.rfc4512 == kOk);
  for (int change_type : {0, static_cast<int>(GSLCLE_CHANGE_MODIFY)}) {
    LDAPEntry *e =
        makeEntry("cn=Ann Lee,o=ex", change_type, {{"sn", kAdd, {"Lee"}}, {c.name, kAdd, {"v"}}});
    char *text = reinterpret_cast<char *>(1);
    EXPECT_EQ(gslclegalGetAsLDIF(nullptr, e, &text), c.ldif);
    EXPECT_EQ(text == nullptr, c.ldif != kOk);
    gslumfFree(nullptr, text);
    char *body = change_type == 0 ? gslcleGetAddStr(nullptr, e) : gslcleGetModifyStr(nullptr, e);
    EXPECT_EQ(body == nullptr, c.ldif != kOk);
    gslumfFree(nullptr, body);
    EXPECT_EQ(gslclegalfGetAsLDIFForm(nullptr, e, GSLCLE_LDIF_FORM_RFC2849 | GSLCLE_LDIF_STRICT,
                                      &text, nullptr, nullptr),
              c.rfc4512);
    gslumfFree(nullptr, text);
    gslcledeDestroyLDAPEntry(nullptr, e);
  }
}

INSTANTIATE_TEST_SUITE_P(Names, NameTest, ::testing::ValuesIn(kNames));

// The writer checks a name as it stands when it writes it, also one given
// to the record after the attribute was created.
TEST(NameTest, ANameReplacedAfterCreationIsCheckedAsItStands) {
  const std::pair<const char *, const char *> swaps[] = {
      {"cn", "dn"}, {"dn", "cn"}, {"cn", "c\nn"}};
  for (const auto &[created, replaced] : swaps) {
    LDAPEntry *e = makeEntry("o=ex", 0, {{created, kAdd, {"v"}}});
    auto *a = static_cast<LDAPAttribute *>(e->attributes->head);
    char *const own = a->name;
    a->name = const_cast<char *>(replaced);
    const int expected = gslclecnCheckAttrName(replaced);
    char *text = nullptr;
    EXPECT_EQ(gslclegalGetAsLDIF(nullptr, e, &text), expected) << created << " -> " << replaced;
    EXPECT_EQ(text != nullptr, expected == GSLCLEGAL_OK);
    gslumfFree(nullptr, text);
    char *lines = gslcleGetAttrAsLDIF(nullptr, a, GSLCLE_LDIF_NO_HEADER);
    EXPECT_EQ(lines != nullptr, expected == GSLCLEGAL_OK);
    gslumfFree(nullptr, lines);
    a->name = own;
    gslcledeDestroyLDAPEntry(nullptr, e);
  }
}

TEST(ModRdnRecord, RenameFieldsWithALineBreakAreRefused) {
  for (const char *field : {"cn=a\ndn: cn=b", "cn=a\r"}) {
    LDAPEntry *e = makeEntry("cn=Ann Lee,o=ex", GSLCLE_CHANGE_MODRDN, {});
    ASSERT_EQ(gslclesnSetNewRDN(nullptr, e, "cn=b"), GSLCLE_OK);
    ASSERT_EQ(gslclesnsSetNewSuperior(nullptr, e, field), GSLCLE_OK);
    char *text = nullptr;
    EXPECT_EQ(gslclegalGetAsLDIF(nullptr, e, &text), GSLCLEGAL_REFUSED);
    ASSERT_EQ(gslclesnsSetNewSuperior(nullptr, e, nullptr), GSLCLE_OK);
    ASSERT_EQ(gslclesnSetNewRDN(nullptr, e, field), GSLCLE_OK);
    EXPECT_EQ(gslcleGetModRDNStr(nullptr, e), nullptr);
    gslcledeDestroyLDAPEntry(nullptr, e);
  }
}

TEST(RecordArguments, StatusesForNullArguments) {
  char *text = reinterpret_cast<char *>(1);
  EXPECT_EQ(gslclegalGetAsLDIF(nullptr, nullptr, &text), GSLCLEGAL_NULL_ARG);
  LDAPEntry *e = makeEntry("o=ex", 0, {});
  EXPECT_EQ(gslclegalGetAsLDIF(nullptr, e, nullptr), GSLCLEGAL_NULL_ARG);
  EXPECT_EQ(gslcleGetAddStr(nullptr, e), nullptr);  // no attributes
  EXPECT_EQ(gslcleGetModifyStr(nullptr, e), nullptr);
  gslcledeDestroyLDAPEntry(nullptr, e);
}

TEST(AttributeText, HeaderAndEmptyForms) {
  LDAPAttribute *a = nullptr;
  ASSERT_EQ(gslcleclaCreateLDAPAttribute(nullptr, "member", GSLCLE_VALUES_TEXT, &a), GSLCLE_OK);
  char *s = gslcleGetAttrAsLDIF(nullptr, a, GSLCLE_LDIF_HEADER);
  EXPECT_STREQ(s, "add: member\nmember: \n");
  gslumfFree(nullptr, s);
  ASSERT_EQ(gslclegastSetAttrChangeType(nullptr, a, kDelete), GSLCLE_OK);
  s = gslcleGetAttrAsLDIF(nullptr, a, GSLCLE_LDIF_NO_HEADER);
  EXPECT_STREQ(s, "");  // no header, no values, not an add
  gslumfFree(nullptr, s);
  ASSERT_EQ(gslcleavAddAttrValue(nullptr, a, "cn=a"), GSLCLE_OK);
  ASSERT_EQ(gslcleavAddAttrValue(nullptr, a, "cn=\xc3\xa9"), GSLCLE_OK);
  s = gslcleGetAttrAsLDIF(nullptr, a, GSLCLE_LDIF_HEADER);
  EXPECT_STREQ(s, "delete: member\nmember: cn=a\nmember:: Y249w6k=\n");
  gslumfFree(nullptr, s);
  gslcledaDestroyLDAPAttribute(nullptr, a);
}

// A failed allocation of the record is reported, not a cut text.
TEST(RecordBlock, AFailedAllocationIsReported) {
  LDAPEntry *e = makeEntry("cn=Ann Lee,o=ex", 0, {{"cn", kAdd, {"Ann Lee"}}});
  {
    qtest::TestAllocator::Scope allocator;
    qtest::TestAllocator::budget = 0;
    char *text = reinterpret_cast<char *>(1);
    EXPECT_EQ(gslclegalGetAsLDIF(nullptr, e, &text), GSLCLEGAL_NO_MEMORY);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(gslcleGetModRDNStr(nullptr, e), nullptr);
  }
  gslcledeDestroyLDAPEntry(nullptr, e);
}

// Values of every form, many more than the writer keeps decisions for, are
// written as their lines would be one by one, into one block of exactly
// the record's size.
TEST(RecordBlock, RecordsOfManyValuesMatchTheirLinesOneByOne) {
  const std::string forms[] = {"plain",
                               " lead",
                               std::string("nul\0cut", 7),
                               "",
                               std::string(170, 'f'),
                               "\xc3\xa9t\xc3\xa9",
                               std::string(100, '\x80')};
  for (size_t count : {1, 127, 128, 129, 400}) {
    std::vector<std::string> values;
    for (size_t i = 0; i < count; ++i) values.push_back(forms[i % std::size(forms)]);
    LDAPEntry *e = makeEntry("cn=x", GSLCLE_CHANGE_MODIFY,
                             {{"description", kReplace, values}, {"sn", kAdd, {"Lee"}}});
    std::string expected = "dn: cn=x\nchangetype: modify\nreplace: description\n";
    for (const std::string &v : values) {
      char *line = gsldlDLdifTypeAndValue("description", v.data(), static_cast<uint32_t>(v.size()));
      expected += line;
      gslumfFree(nullptr, line);
    }
    expected += "-\nadd: sn\nsn: Lee\n";
    {
      qtest::TestAllocator::Scope allocator;
      EXPECT_EQ(recordOf(e), expected) << count << " values";
      EXPECT_EQ(qtest::TestAllocator::sizes,
                (std::vector<uint32_t>{static_cast<uint32_t>(expected.size() + 1)}))
          << count << " values";
    }
    gslcledeDestroyLDAPEntry(nullptr, e);
  }
}

}  // namespace

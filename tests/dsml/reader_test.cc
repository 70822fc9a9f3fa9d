// Tests of dsml/reader.h: real documents read through expat in chunks of 1,
// 2, 7 and 4096 bytes (every outcome must agree), the transition table, the
// kept oddities, the handlers' failure paths and allocation failures.
#include "dsml/reader.h"

#include <gtest/gtest.h>

#include <cctype>
#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "dsml/reader_table.h"
#include "tests/support/failing_allocator.h"
#include "tests/support/test_support.h"

namespace {

constexpr size_t kChunkSizes[] = {1, 2, 7, 4096};
constexpr size_t kNever = SIZE_MAX;
constexpr int32_t kRefusal = 77;  // what the callback returns when told to fail

// An entry as text: the DN, then per attribute "|name=" and its values
// separated by ",".
using Entries = std::vector<std::string>;

std::string describe(const LDAPEntry *entry) {
  std::string out = entry->dn;
  if (entry->attributes == nullptr) return out;
  for (void *e = entry->attributes->head; e != nullptr; e = static_cast<LDAPAttribute *>(e)->next) {
    const auto *a = static_cast<const LDAPAttribute *>(e);
    out += std::string("|") + a->name + "=";
    for (uint32_t i = 0; i < a->count; ++i) {
      const auto *v = static_cast<const BERVal *>(a->values[i]);
      if (i > 0) out += ",";
      if (v->length > 0) out.append(v->bytes, v->length);
    }
  }
  return out;
}

// The entry callback: records every entry; the one numbered fail_at (from 0)
// is recorded and refused. on_entry runs first when set.
struct Recorder {
  Entries entries;
  size_t fail_at = kNever;
  std::function<void(LDAPEntry *)> on_entry;
};

int32_t recordEntry(LDAPEntry *entry, void *arg) {
  auto *r = static_cast<Recorder *>(arg);
  if (r->on_entry) r->on_entry(entry);
  r->entries.push_back(describe(entry));
  return r->entries.size() - 1 == r->fail_at ? kRefusal : GSLXDV_OK;
}

struct Outcome {
  int32_t status;
  Entries entries;
  bool operator==(const Outcome &) const = default;
};

void PrintTo(const Outcome &o, std::ostream *os) {
  *os << "status " << o.status << ", entries {";
  for (const std::string &e : o.entries) *os << " [" << e << "]";
  *os << " }";
}

// One parser context fed with temporary documents.
class Reader {
 public:
  Reader() {
    EXPECT_EQ(gslxdv1cpCreateParserCtx(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &ctx_),
              GSLXDV_OK);
  }
  ~Reader() {
    if (ctx_ != nullptr) {
      EXPECT_EQ(gslxdv1cCleanup(&ctx_), GSLXDV_OK);
    }
    xmlSetChunkSizeForTesting(0);
  }
  Reader(const Reader &) = delete;
  Reader &operator=(const Reader &) = delete;

  std::string write(const std::string &document) { return dir_.write("doc.dsml", document); }

  Outcome parse(const std::string &path, uint32_t kind = GSLXDV_SOURCE_URI) {
    recorder.entries.clear();
    const int32_t st = gslxdv1pParse(path.c_str(), kind, ctx_, recordEntry, &recorder);
    return {st, recorder.entries};
  }

  // Parses path with every chunk size, requires the same outcome from each
  // and returns it.
  Outcome parseInChunks(const std::string &path) {
    Outcome first{-1, {}};
    for (size_t chunk : kChunkSizes) {
      xmlSetChunkSizeForTesting(chunk);
      const Outcome o = parse(path);
      if (chunk == kChunkSizes[0]) {
        first = o;
      } else {
        EXPECT_EQ(o, first) << "chunk size " << chunk;
      }
    }
    return first;
  }

  Recorder recorder;
  GslxdvParserCtx *ctx_ = nullptr;

 private:
  qtest::TempDir dir_;
};

std::string inEntries(const std::string &content) {
  return "<dsml><directory-entries>" + content + "</directory-entries></dsml>";
}

const std::string kAnnLee =
    "<entry dn=\"cn=Ann Lee,o=ex\"><objectclass><oc-value>person</oc-value>"
    "<oc-value>top</oc-value></objectclass><attr name=\"cn\"><value>Ann Lee</value></attr>"
    "</entry>";
const std::string kAnnLeeEntry = "cn=Ann Lee,o=ex|objectclass=person,top|cn=Ann Lee";

// ---- Documents ----------------------------------------------------------------------

struct DocumentCase {
  const char *name;
  std::string document;
  int32_t status;
  Entries entries;
};

void PrintTo(const DocumentCase &c, std::ostream *os) { *os << c.name; }

const DocumentCase kDocuments[] = {
    {"OneEntry", "<?xml version=\"1.0\"?>\n" + inEntries(kAnnLee), GSLXDV_OK, {kAnnLeeEntry}},
    {"Prefixed",
     "<dsml:dsml xmlns:dsml=\"http://www.dsml.org/DSML\"><dsml:directory-entries>"
     "<dsml:entry dsml:dn=\"cn=x\"><dsml:attr dsml:name=\"sn\"><dsml:value>X</dsml:value>"
     "</dsml:attr></dsml:entry></dsml:directory-entries></dsml:dsml>",
     GSLXDV_OK, {"cn=x|sn=X"}},
    {"DefaultNamespace",
     "<dsml xmlns=\"http://www.dsml.org/DSML\">"
     "<directory-entries><entry dn=\"cn=x\"/></directory-entries></dsml>",
     GSLXDV_OK, {"cn=x"}},
    {"AnyLetterCase",
     "<DSML><Directory-Entries><ENTRY DN=\"cn=x\"><ObjectClass><OC-Value>top</OC-Value>"
     "</ObjectClass><Attr NAME=\"mail\"><VALUE Encoding=\"b64\">YUBi</VALUE></Attr></ENTRY>"
     "</Directory-Entries></DSML>",
     GSLXDV_OK, {"cn=x|objectclass=top|mail=a@b"}},
    {"AttributesKeepDocumentOrder",
     inEntries("<entry dn=\"cn=a\"><attr name=\"sn\"><value>1</value><value>2</value></attr>"
               "<objectclass><oc-value>top</oc-value></objectclass><attr name=\"cn\"/></entry>"
               "<entry dn=\"cn=b\"/>"),
     GSLXDV_OK, {"cn=a|sn=1,2|objectclass=top|cn=", "cn=b"}},
    {"TextIsKeptExactly",
     inEntries("<entry dn=\" cn=a \"><attr name=\"d\"><value>  two  words\n\t</value>"
               "<value>\xc3\xa9t\xc3\xa9</value></attr></entry>"),
     GSLXDV_OK, {" cn=a |d=  two  words\n\t,\xc3\xa9t\xc3\xa9"}},
    {"ReferencesAndCdataMakeOneValue",
     inEntries("<entry dn=\"cn=a&amp;b\"><attr name=\"d\">"
               "<value>a&amp;b&#x41;<![CDATA[<c>]]>d&lt;<!--x-->e</value></attr></entry>"),
     GSLXDV_OK, {"cn=a&b|d=a&bA<c>d<e"}},
    {"TextOutsideValuesIsIgnored",
     inEntries("stray<entry dn=\"cn=a\">one<attr name=\"d\">two<value>v</value>three</attr>"
               "four<objectclass>five<oc-value>top</oc-value></objectclass></entry>"),
     GSLXDV_OK, {"cn=a|d=v|objectclass=top"}},
    {"EmptyValues",
     inEntries("<entry dn=\"cn=a\"><attr name=\"d\"><value/><value></value><value>x</value>"
               "</attr><objectclass><oc-value/></objectclass></entry>"),
     GSLXDV_OK, {"cn=a|d=,,x|objectclass="}},
    {"EmptyDnIsAccepted", inEntries("<entry dn=\"\"/>"), GSLXDV_OK, {""}},
    {"Base64Values",
     inEntries("<entry dn=\"cn=a\"><attr name=\"d\">"
               "<value encoding=\"base64\">QW5u\n IExl ZQ==</value>"
               "<value encoding=\"anything\">AAEC/w==</value><value encoding=\"\">YQ==</value>"
               "<value>QW5u</value></attr></entry>"),
     GSLXDV_OK, {"cn=a|d=Ann Lee," + std::string("\0\1\2\xff", 4) + ",a,QW5u"}},
    {"EncodingOnOcValueIsIgnored",
     inEntries("<entry dn=\"cn=a\"><objectclass><oc-value encoding=\"base64\">dG9w</oc-value>"
               "</objectclass></entry>"),
     GSLXDV_OK, {"cn=a|objectclass=dG9w"}},
    {"SchemaYieldsNothing",
     "<dsml><directory-schema>"
     "<class id=\"p\" superior=\"#top\" type=\"structural\"><name>person</name>"
     "<description>a person</description><object-identifier>2.5.6.6</object-identifier>"
     "<attribute ref=\"#cn\" required=\"true\"/><other>x</other></class>"
     "<attribute-type id=\"cn\"><name>cn</name><description>d</description>"
     "<object-identifier>2.5.4.3</object-identifier><syntax>1.3.6.1.4.1.1466.115.121.1.15"
     "</syntax><equality>caseIgnoreMatch</equality><ordering>o</ordering>"
     "<substring>caseIgnoreSubstringsMatch</substring></attribute-type>"
     "</directory-schema><directory-entries><entry dn=\"cn=a\"/></directory-entries></dsml>",
     GSLXDV_OK, {"cn=a"}},
    {"UnknownElementsAreSkippedWithTheirContent",
     "<dsml><extra><entry dn=\"cn=no\"/></extra><directory-entries>"
     "<entry dn=\"cn=a\"><description><attr name=\"no\"><value>no</value></attr>"
     "</description><attr name=\"d\"><junk>no</junk><value>v<b>x</b></value></attr></entry>"
     "<extra/></directory-entries></dsml>",
     GSLXDV_OK, {"cn=a|d=v"}},
    {"EntryDirectlyUnderDsmlIsSkipped",
     "<dsml><entry dn=\"cn=no\"><attr name=\"d\"><value>v</value></attr></entry></dsml>",
     GSLXDV_OK, {}},
    {"NoDsmlRootYieldsNothing", "<directory-entries><entry dn=\"cn=no\"/></directory-entries>",
     GSLXDV_OK, {}},
    {"MissingDnFails", inEntries("<entry dn=\"cn=a\"/><entry name=\"cn=b\"/><entry dn=\"cn=c\"/>"),
     GSLXDV_FAILED, {"cn=a"}},
    {"MissingAttrNameFails", inEntries("<entry dn=\"cn=a\"><attr><value>v</value></attr></entry>"),
     GSLXDV_FAILED, {}},
    {"EmptyAttrNameFails", inEntries("<entry dn=\"cn=a\"><attr name=\"\"/></entry>"),
     GSLXDV_FAILED, {}},
    {"UndecodableBase64Fails",
     inEntries("<entry dn=\"cn=a\"/><entry dn=\"cn=b\"><attr name=\"d\">"
               "<value encoding=\"base64\">!!!</value></attr></entry>"),
     GSLXDV_FAILED, {"cn=a"}},
    {"UnpaddedBase64Fails",
     inEntries("<entry dn=\"cn=b\"><attr name=\"d\"><value encoding=\"base64\">QQ</value>"
               "</attr></entry>"),
     GSLXDV_FAILED, {}},
    {"MalformedXmlFailsAfterTheEntriesBeforeIt",
     inEntries("<entry dn=\"cn=a\"/><entry dn=\"cn=b\"/><entry dn=\"cn=c\"><attr name=\"d\">"
               "</entry>"),
     GSLXDV_FAILED, {"cn=a", "cn=b"}},
    {"TruncatedDocumentFails", "<dsml><directory-entries><entry dn=\"cn=a\"/>", GSLXDV_FAILED,
     {"cn=a"}},
    {"EmptyDocumentFails", "", GSLXDV_FAILED, {}},
    // Kept oddities.
    {"Base64MarkIsClearedAfterTheFirstPiece",
     inEntries("<entry dn=\"cn=a\"><attr name=\"d\"><value encoding=\"b\">QUJD<x/>REVG</value>"
               "<value encoding=\"b\">QUJD</value></attr></entry>"),
     GSLXDV_OK, {"cn=a|d=REVG,ABC"}},
    {"EmptyEncodedValueLeavesTheMarkForTheNextText",
     inEntries("<entry dn=\"cn=a\"><attr name=\"d\"><value encoding=\"b\"/><value>QUJD</value>"
               "<value>QUJD</value></attr></entry>"),
     GSLXDV_OK, {"cn=a|d=,ABC,QUJD"}},
    {"OnlyTheLastPieceOfAValueIsKept",
     inEntries("<entry dn=\"cn=a\"><attr name=\"d\"><value>one<x/>two<y>z</y>three</value>"
               "</attr></entry>"),
     GSLXDV_OK, {"cn=a|d=three"}},
    // The skip of x ends at the inner </x>; the outer </x> then closes the
    // entry early, and the closing tags that follow pop states until none is
    // left.
    {"SkipEndsEarlyAtANestedElementOfTheSameName",
     inEntries("<entry dn=\"cn=a\"><x><X/></x><attr name=\"cn\"><value>v</value></attr></entry>"
               "<entry dn=\"cn=b\"/>"),
     GSLXDV_FAILED, {"cn=a"}},
};

class ReaderDocumentTest : public ::testing::TestWithParam<DocumentCase> {};

TEST_P(ReaderDocumentTest, GivesTheSameEntriesForEveryChunkSize) {
  Reader reader;
  const DocumentCase &c = GetParam();
  EXPECT_EQ(reader.parseInChunks(reader.write(c.document)), (Outcome{c.status, c.entries}));
  // Whatever happened, the context reads the next document.
  EXPECT_EQ(reader.parseInChunks(reader.write(inEntries(kAnnLee))),
            (Outcome{GSLXDV_OK, {kAnnLeeEntry}}));
}

INSTANTIATE_TEST_SUITE_P(Documents, ReaderDocumentTest, ::testing::ValuesIn(kDocuments),
                         [](const auto &info) { return std::string(info.param.name); });

// ---- The reader's operations ----------------------------------------------------------

struct KindCase {
  uint32_t kind;
  int32_t status;
  bool reads;
};

const KindCase kKinds[] = {
    {GSLXDV_SOURCE_URI, GSLXDV_OK, true},
    {GSLXDV_SOURCE_URI + 0x10000, GSLXDV_OK, true},  // only the low 16 bits count
    {GSLXDV_SOURCE_NOT_READ_512, GSLXDV_OK, false},
    {GSLXDV_SOURCE_NOT_READ_2048, GSLXDV_OK, false},
    {GSLXDV_SOURCE_NOT_READ_4096, GSLXDV_OK, false},
    {8, GSLXDV_UNKNOWN_KIND, false},
    {0, GSLXDV_UNKNOWN_KIND, false},
    {1025, GSLXDV_UNKNOWN_KIND, false},
};

class ReaderKindTest : public ::testing::TestWithParam<KindCase> {};

TEST_P(ReaderKindTest, OnlyTheUriKindReads) {
  Reader reader;
  for (size_t chunk : kChunkSizes) {
    xmlSetChunkSizeForTesting(chunk);
    const Outcome o = reader.parse(reader.write(inEntries(kAnnLee)), GetParam().kind);
    EXPECT_EQ(o, (Outcome{GetParam().status, GetParam().reads ? Entries{kAnnLeeEntry} : Entries{}}));
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, ReaderKindTest, ::testing::ValuesIn(kKinds),
                         [](const auto &info) { return "kind" + std::to_string(info.param.kind); });

TEST(ReaderApiTest, NullArguments) {
  EXPECT_EQ(gslxdv1cpCreateParserCtx(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
            GSLXDV_NULL_ARG);
  GslxdvParserCtx *none = nullptr;
  EXPECT_EQ(gslxdv1cCleanup(nullptr), GSLXDV_NULL_ARG);
  EXPECT_EQ(gslxdv1cCleanup(&none), GSLXDV_NULL_ARG);
  Reader reader;
  EXPECT_EQ(gslxdv1pParse(nullptr, GSLXDV_SOURCE_URI, reader.ctx_, recordEntry, nullptr),
            GSLXDV_NULL_ARG);
  EXPECT_EQ(gslxdv1pParse("x", GSLXDV_SOURCE_URI, nullptr, recordEntry, nullptr), GSLXDV_NULL_ARG);
  EXPECT_EQ(gslxdv1pParse("x", 8, nullptr, recordEntry, nullptr), GSLXDV_NULL_ARG);  // before the kind
}

TEST(ReaderApiTest, UnreadableSourceFailsAndTheContextStaysUsable) {
  Reader reader;
  EXPECT_EQ(reader.parse("/nonexistent/doc.dsml"), (Outcome{GSLXDV_FAILED, {}}));
  EXPECT_EQ(reader.parseInChunks(reader.write(inEntries(kAnnLee))),
            (Outcome{GSLXDV_OK, {kAnnLeeEntry}}));
}

TEST(ReaderApiTest, NullCallbackReadsAndDiscardsEntries) {
  Reader reader;
  const std::string path = reader.write(inEntries(kAnnLee + kAnnLee));
  for (size_t chunk : kChunkSizes) {
    xmlSetChunkSizeForTesting(chunk);
    EXPECT_EQ(gslxdv1pParse(path.c_str(), GSLXDV_SOURCE_URI, reader.ctx_, nullptr, nullptr),
              GSLXDV_OK);
  }
}

// Refusing each entry in turn stops the document there: the entries before
// it and the refused one were seen, none after.
TEST(ReaderApiTest, CallbackRefusalStopsTheDocument) {
  Reader reader;
  const std::string path =
      reader.write(inEntries("<entry dn=\"cn=a\"/><entry dn=\"cn=b\"/><entry dn=\"cn=c\"/>"));
  const Entries all = {"cn=a", "cn=b", "cn=c"};
  for (size_t refused = 0; refused < all.size(); ++refused) {
    reader.recorder.fail_at = refused;
    EXPECT_EQ(reader.parseInChunks(path),
              (Outcome{GSLXDV_FAILED, Entries(all.begin(), all.begin() + refused + 1)}));
  }
  reader.recorder.fail_at = kNever;
  EXPECT_EQ(reader.parseInChunks(path), (Outcome{GSLXDV_OK, all}));
}

// A callback that starts another document, or cleans up, on the context
// that is reading is refused; the document being read goes on unharmed.
TEST(ReaderApiTest, ParseAndCleanupAreRefusedFromTheCallback) {
  Reader reader;
  const std::string path = reader.write(inEntries(kAnnLee + "<entry dn=\"cn=b\"/>"));
  std::vector<int32_t> inner;
  reader.recorder.on_entry = [&](LDAPEntry *) {
    inner.push_back(gslxdv1pParse(path.c_str(), GSLXDV_SOURCE_URI, reader.ctx_, nullptr, nullptr));
    inner.push_back(gslxdv1pParse(path.c_str(), GSLXDV_SOURCE_NOT_READ_512, reader.ctx_, nullptr,
                                  nullptr));
    inner.push_back(gslxdv1cCleanup(&reader.ctx_));
  };
  EXPECT_EQ(reader.parseInChunks(path), (Outcome{GSLXDV_OK, {kAnnLeeEntry, "cn=b"}}));
  EXPECT_EQ(inner, std::vector<int32_t>(3 * 2 * std::size(kChunkSizes), GSLXDV_FAILED));
  ASSERT_NE(reader.ctx_, nullptr);
}

// ---- The transition table, event by event -----------------------------------------

// A machine driven by direct handler calls, with a fresh stack.
class Machine {
 public:
  Machine() {
    gslxdv1iInitSMachine(&m);
    EXPECT_EQ(sax_startDocument(&m), GSLXDV_OK);
  }
  ~Machine() { EXPECT_EQ(gslxdv1fsmFreeStateMacMemb(&m), GSLXDV_OK); }
  Machine(const Machine &) = delete;
  Machine &operator=(const Machine &) = delete;
  GslxdvStateMachine m{};
};

std::string upper(const char *s) {
  std::string out(s);
  for (char &c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

// Every state the table names, plus the document's own.
std::vector<uint16_t> tableStates() {
  std::vector<uint16_t> states;
  for (uint16_t s = GSLXDV_STATE_DOCUMENT; s <= GSLXDV_STATE_SUBSTRING; ++s) states.push_back(s);
  return states;
}

const gslxdv::Transition *rowFor(uint16_t state, const std::string &element) {
  for (const gslxdv::Transition &t : gslxdv::kTransitions) {
    if (t.state == state && upper(t.element) == upper(element.c_str())) return &t;
  }
  return nullptr;
}

// Each element of the table, opened in every state: where the table has a
// row it moves there (rows that need an XML attribute fail with 3 and move
// nowhere), elsewhere the element is skipped; closing it returns to the
// state it was opened in. An entry and an attribute are at hand for the
// closing actions.
TEST(ReaderTransitionTest, EveryElementMovesOnlyWhereTheTableSays) {
  for (const gslxdv::Transition &t : gslxdv::kTransitions) {
    const std::string name = upper(t.element);
    for (uint16_t state : tableStates()) {
      Machine machine;
      GslxdvStateMachine &m = machine.m;
      m.state = state;
      const gslxdv::Transition *row = rowFor(state, name);
      const bool creates_attribute =
          row != nullptr && row->action == gslxdv::Action::kCreateObjectclass;
      ASSERT_EQ(gslcleceCreateLDAPEntry(nullptr, "cn=a", &m.entry), GSLCLE_OK);
      if (!creates_attribute) {
        ASSERT_EQ(gslcleclaCreateLDAPAttribute(nullptr, "a", GSLCLE_VALUES_BINARY, &m.attribute),
                  GSLCLE_OK);
      }
      const bool needs_attribute =
          row != nullptr && (row->action == gslxdv::Action::kCreateEntry ||
                             row->action == gslxdv::Action::kCreateAttribute);
      const int st = sax_startElement(&m, name.c_str(), nullptr);
      if (needs_attribute) {
        EXPECT_EQ(st, GSLXDV_MISSING_ATTRIBUTE) << name << " in " << state;
        EXPECT_EQ(m.state, state);
        continue;
      }
      ASSERT_EQ(st, GSLXDV_OK) << name << " in " << state;
      const uint16_t want = row != nullptr ? row->next : uint16_t{GSLXDV_STATE_SKIPPING};
      EXPECT_EQ(m.state, want) << name << " in " << state;
      EXPECT_EQ(m.skip_depth, row != nullptr ? 0 : 1);
      if (creates_attribute) {
        ASSERT_NE(m.attribute, nullptr);
        EXPECT_STREQ(m.attribute->name, "objectclass");
        EXPECT_EQ(m.attribute->value_kind, GSLCLE_VALUES_BINARY);
      }
      EXPECT_EQ(sax_endElement(&m, t.element), GSLXDV_OK) << name << " in " << state;
      EXPECT_EQ(m.state, state);
    }
  }
}

TEST(ReaderTransitionTest, HandlersRefuseANullMachine) {
  EXPECT_EQ(sax_startDocument(nullptr), GSLXDV_NULL_ARG);
  EXPECT_EQ(sax_endDocument(nullptr), GSLXDV_NULL_ARG);
  EXPECT_EQ(sax_startElement(nullptr, "dsml", nullptr), GSLXDV_NULL_ARG);
  EXPECT_EQ(sax_endElement(nullptr, "dsml"), GSLXDV_NULL_ARG);
  EXPECT_EQ(sax_characters(nullptr, "x", 1), GSLXDV_NULL_ARG);
  EXPECT_EQ(gslxdv1fsmFreeStateMacMemb(nullptr), GSLXDV_NULL_ARG);
  EXPECT_EQ(gslxdv1fseFreeStElem(nullptr, nullptr), GSLXDV_NULL_ARG);
  gslxdv1iInitSMachine(nullptr);
}

TEST(ReaderTransitionTest, EndOfDocumentReleasesAndResets) {
  Machine machine;
  GslxdvStateMachine &m = machine.m;
  m.callback = recordEntry;
  ASSERT_EQ(sax_startElement(&m, "dsml", nullptr), GSLXDV_OK);
  ASSERT_EQ(sax_startElement(&m, "unknown", nullptr), GSLXDV_OK);
  ASSERT_NE(m.skip_name, nullptr);
  ASSERT_EQ(sax_endDocument(&m), GSLXDV_OK);
  EXPECT_EQ(m.state, GSLXDV_STATE_ENDED);
  EXPECT_EQ(m.stack, nullptr);
  EXPECT_EQ(m.skip_name, nullptr);
  EXPECT_EQ(m.skip_depth, 0);
  EXPECT_EQ(m.callback, nullptr);
}

// A closing tag with no state left to return to fails instead of reading
// past the stack.
TEST(ReaderTransitionTest, ClosingTagWithNothingToPopFails) {
  Machine machine;
  EXPECT_EQ(sax_endElement(&machine.m, "dsml"), GSLXDV_FAILED);
  EXPECT_EQ(machine.m.state, GSLXDV_STATE_DOCUMENT);
}

TEST(ReaderTransitionTest, SkipCountFailsRatherThanWrap) {
  Machine machine;
  GslxdvStateMachine &m = machine.m;
  ASSERT_EQ(sax_startElement(&m, "x", nullptr), GSLXDV_OK);
  m.skip_depth = UINT16_MAX - 1;
  EXPECT_EQ(sax_startElement(&m, "y", nullptr), GSLXDV_OK);
  EXPECT_EQ(sax_startElement(&m, "y", nullptr), GSLXDV_FAILED);
  EXPECT_EQ(m.skip_depth, UINT16_MAX);
}

// ---- Text ----------------------------------------------------------------------------

TEST(ReaderTextTest, TextCopyStopsAtANulByteButKeepsTheLength) {
  Machine machine;
  GslxdvStateMachine &m = machine.m;
  m.state = GSLXDV_STATE_VALUE;
  ASSERT_EQ(sax_characters(&m, "a\0b", 3), GSLXDV_OK);
  ASSERT_EQ(m.text_length, 3u);
  EXPECT_EQ(std::string(m.text, 4), std::string("a\0\0\0", 4));
}

struct TextFailureCase {
  const char *name;
  const char *text;
  size_t allocations;  // allowed before the failure
  int status;
};

const TextFailureCase kTextFailures[] = {
    {"CopyOutOfMemory", "QUJD", 0, GSLXDV_NO_MEMORY},
    {"DecodeBufferOutOfMemory", "QUJD", 1, GSLXDV_NO_MEMORY},
    {"Undecodable", "!!!", qtest::FailingAllocator::kUnlimited, GSLXDV_BAD_BASE64},
    {"CleansToNothing", " \n ", qtest::FailingAllocator::kUnlimited, GSLXDV_BAD_BASE64},
};

class ReaderTextFailureTest : public ::testing::TestWithParam<TextFailureCase> {};

// The pending text is released first and nothing refers to it afterwards:
// the release of the members that follows a failure must not free it again.
TEST_P(ReaderTextFailureTest, FailureLeavesNoTextBehind) {
  Machine machine;
  GslxdvStateMachine &m = machine.m;
  m.state = GSLXDV_STATE_VALUE;
  qtest::FailingAllocator allocator;
  ASSERT_EQ(sax_characters(&m, "old", 3), GSLXDV_OK);
  m.base64 = 1;
  allocator.failAfter(GetParam().allocations);
  EXPECT_EQ(sax_characters(&m, GetParam().text, std::strlen(GetParam().text)), GetParam().status);
  EXPECT_EQ(m.text, nullptr);
  EXPECT_EQ(m.text_length, 0u);
  EXPECT_EQ(allocator.live(), 0);  // "old" released, nothing new kept
}

INSTANTIATE_TEST_SUITE_P(Failures, ReaderTextFailureTest, ::testing::ValuesIn(kTextFailures),
                         [](const auto &info) { return std::string(info.param.name); });

// ---- Failures of the element-state stack ---------------------------------------------

TEST(ReaderStackFailureTest, RecordAllocationFailsBeforeAnythingIsPushed) {
  Machine machine;
  GslxdvStateMachine &m = machine.m;
  qtest::FailingAllocator allocator;
  allocator.failAfter(0);
  EXPECT_EQ(sax_startElement(&m, "dsml", nullptr), GSLXDV_NO_MEMORY);
  EXPECT_EQ(sax_startElement(&m, "unknown", nullptr), GSLXDV_NO_MEMORY);
  allocator.failAfter(1);  // the record, not the skipped name
  EXPECT_EQ(sax_startElement(&m, "unknown", nullptr), GSLXDV_NO_MEMORY);
  EXPECT_EQ(m.state, GSLXDV_STATE_DOCUMENT);
  EXPECT_EQ(m.skip_name, nullptr);
  EXPECT_EQ(m.stack->count, 0u);
  EXPECT_EQ(allocator.live(), 0);
}

TEST(ReaderStackFailureTest, PushThatAddsNothingReleasesTheRecord) {
  Machine machine;
  GslxdvStateMachine &m = machine.m;
  GslulsList *stack = m.stack;
  m.stack = nullptr;  // the push silently adds nothing
  qtest::FailingAllocator allocator;
  EXPECT_EQ(sax_startElement(&m, "dsml", nullptr), GSLXDV_FAILED);
  EXPECT_EQ(sax_startElement(&m, "unknown", nullptr), GSLXDV_FAILED);
  EXPECT_EQ(m.state, GSLXDV_STATE_DOCUMENT);
  EXPECT_EQ(m.skip_name, nullptr);
  EXPECT_EQ(allocator.live(), 0);
  m.stack = stack;
}

// ---- Allocation failures over a whole document ----------------------------------------

const std::string kSample =
    "<?xml version=\"1.0\"?><dsml:dsml xmlns:dsml=\"http://www.dsml.org/DSML\">"
    "<dsml:directory-schema><dsml:class id=\"p\"><dsml:name>person</dsml:name></dsml:class>"
    "</dsml:directory-schema><dsml:directory-entries>" +
    kAnnLee +
    "<entry dn=\"cn=b\"><attr name=\"jpegPhoto\"><value encoding=\"base64\">AAEC/w==</value>"
    "</attr><comment><attr name=\"x\"><value>no</value></attr></comment>"
    "<attr name=\"mail\"><value>b@ex</value><value>b2@ex</value></attr></entry>"
    "<entry dn=\"cn=c\"/></dsml:directory-entries></dsml:dsml>";
const Entries kSampleEntries = {
    kAnnLeeEntry, "cn=b|jpegPhoto=" + std::string("\0\1\2\xff", 4) + "|mail=b@ex,b2@ex", "cn=c"};

class ReaderAllocationTest : public ::testing::TestWithParam<size_t> {};

// Fails the Nth allocation for N = 0, 1, ... until the document is read
// whole. Every failing run reports 2, holds on to nothing, and leaves the
// context able to read the whole document at once.
TEST_P(ReaderAllocationTest, EveryFailureIsReportedAndTheContextRecovers) {
  Reader reader;
  const std::string path = reader.write(kSample);
  xmlSetChunkSizeForTesting(GetParam());
  qtest::FailingAllocator allocator;
  ASSERT_EQ(reader.parse(path), (Outcome{GSLXDV_OK, kSampleEntries}));  // the parser's buffers grow once
  const long baseline = allocator.live();
  int32_t status = GSLXDV_FAILED;
  size_t n = 0;
  for (; status != GSLXDV_OK && n < 10000; ++n) {
    allocator.failAfter(n);
    const Outcome o = reader.parse(path);
    status = o.status;
    allocator.succeedAlways();
    EXPECT_EQ(allocator.live(), baseline) << "allocation " << n;
    if (status == GSLXDV_OK) {
      EXPECT_EQ(o.entries, kSampleEntries);
      break;
    }
    EXPECT_EQ(status, GSLXDV_FAILED) << "allocation " << n;
    EXPECT_EQ(reader.parse(path), (Outcome{GSLXDV_OK, kSampleEntries})) << "allocation " << n;
  }
  EXPECT_EQ(status, GSLXDV_OK);
  EXPECT_GT(n, 40u);  // the sweep reached through expat, the machine and the entry model
}

INSTANTIATE_TEST_SUITE_P(AllChunkSizes, ReaderAllocationTest, ::testing::ValuesIn(kChunkSizes));

TEST(ReaderCreateAllocationTest, EveryFailureIsReportedAndLeavesNothing) {
  qtest::FailingAllocator allocator;
  size_t n = 0;
  for (; n < 100; ++n) {
    allocator.failAfter(n);
    GslxdvParserCtx *ctx = nullptr;
    const int32_t status =
        gslxdv1cpCreateParserCtx(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &ctx);
    allocator.succeedAlways();
    if (status == GSLXDV_OK) {
      EXPECT_EQ(gslxdv1cCleanup(&ctx), GSLXDV_OK);
      EXPECT_EQ(ctx, nullptr);
      EXPECT_EQ(allocator.live(), 0);
      break;
    }
    // The parser instance's own allocation failing shows as 1.
    EXPECT_TRUE(status == GSLXDV_NO_MEMORY || status == GSLXDV_XML_INIT_FAILED) << status;
    EXPECT_EQ(ctx, nullptr);
    EXPECT_EQ(allocator.live(), 0) << "allocation " << n;
  }
  EXPECT_GE(n, 3u);  // machine, parser instance, context
  EXPECT_LT(n, 100u);
}

}  // namespace

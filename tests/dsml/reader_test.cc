// Tests of dsml/reader.h: real documents read through expat in chunks of 1,
// 2, 7 and 4096 bytes (every outcome must agree), the kept oddities, the
// guards of the machine and allocation failures.
#include "dsml/reader_internal.h"
#include "dsml/reader_table.h"
#include "dsml/xml_internal.h"

#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/test_allocator.h"
#include "tests/support/test_support.h"

namespace {

constexpr size_t kChunkSizes[] = {1, 2, 7, 4096};
constexpr size_t kNever = SIZE_MAX;
constexpr int32_t kRefusal = 77;

// The status of a document and its entries, each as its DN, then per
// attribute "|name=" and its values joined by ",".
struct Outcome {
  int32_t status;
  std::vector<std::string> entries;
  bool operator==(const Outcome &) const = default;
};

void PrintTo(const Outcome &o, std::ostream *os) {
  *os << "status " << o.status << ", entries:";
  for (const std::string &e : o.entries) *os << " [" << e << "]";
}

// One parser context fed with temporary documents. Its callback runs
// on_entry, records the entry and refuses entry number `refuse` (from 0).
struct Reader {
  Reader() {
    EXPECT_EQ(gslxdv1cpCreateParserCtx(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &ctx),
              0);
  }
  ~Reader() {
    if (ctx != nullptr) {
      EXPECT_EQ(gslxdv1cCleanup(&ctx), GSLXDV_OK);
    }
    xmlSetChunkSizeForTesting(0);
  }
  static int32_t record(LDAPEntry *entry, void *arg) {
    auto *r = static_cast<Reader *>(arg);
    if (r->on_entry) r->on_entry();
    std::string out = entry->dn;
    for (auto *a =
             static_cast<LDAPAttribute *>(entry->attributes ? entry->attributes->head : nullptr);
         a != nullptr; a = static_cast<LDAPAttribute *>(a->next)) {
      out += std::string("|") + a->name + "=";
      for (uint32_t i = 0; i < a->count; ++i) {
        const auto *v = static_cast<const BERVal *>(a->values[i]);
        out.append(i > 0 ? "," : "").append(v->bytes != nullptr ? v->bytes : "", v->length);
      }
    }
    r->entries.push_back(out);
    return r->entries.size() - 1 == r->refuse ? kRefusal : GSLXDV_OK;
  }
  Outcome parse(const std::string &path, uint32_t kind = GSLXDV_SOURCE_URI) {
    entries.clear();
    const int32_t st = gslxdv1pParse(path.c_str(), kind, ctx, record, this);
    return {st, entries};
  }
  // The outcome of the document, which must not depend on the chunk size.
  Outcome parseInChunks(const std::string &document) {
    const std::string path = dir.write("doc.dsml", document);
    std::vector<Outcome> outcomes;
    for (size_t chunk : kChunkSizes) {
      xmlSetChunkSizeForTesting(chunk);
      outcomes.push_back(parse(path));
      EXPECT_EQ(outcomes.back(), outcomes.front()) << "chunk size " << chunk;
    }
    return outcomes.front();
  }
  qtest::TempDir dir;
  std::vector<std::string> entries;
  size_t refuse = kNever;
  std::function<void()> on_entry;
  GslxdvParserCtx *ctx = nullptr;
};

std::string inEntries(const std::string &content) {
  return "<dsml><directory-entries>" + content + "</directory-entries></dsml>";
}
// Attributes of one entry "cn=a".
std::string inEntry(const std::string &content) {
  return inEntries("<entry dn=\"cn=a\">" + content + "</entry>");
}

const std::string kAnnLee = inEntries(
    "<entry dn=\"cn=Ann Lee,o=ex\"><objectclass><oc-value>person</oc-value><oc-value>top</oc-value>"
    "</objectclass><attr name=\"cn\"><value>Ann Lee</value></attr></entry>");
const Outcome kAnnLeeOutcome = {GSLXDV_OK, {"cn=Ann Lee,o=ex|objectclass=person,top|cn=Ann Lee"}};
const std::string kBytes("\0\1\2\xff", 4);

struct DocumentCase {
  const char *name;
  std::string document;
  Outcome outcome;
  size_t refuse = kNever;
};

void PrintTo(const DocumentCase &c, std::ostream *os) { *os << c.name; }

// The documents of the golden cases (prefixes and letter case, schema and
// unknown elements, missing names, undecodable text, malformed XML) are not
// repeated here.
const DocumentCase kDocuments[] = {
    {"SeveralColonsMatchOnTheLastPart",
     "<a:b:dsml xmlns:a=\"urn:a\"><a:b:directory-entries><x:y:z:entry x:y:dn=\"cn=x\"><q:r:attr "
     "q:r:name=\"sn\">"
     "<s:t:value>X</s:t:value></q:r:attr></x:y:z:entry><a:entry:x "
     "dn=\"cn=no\"/></a:b:directory-entries></a:b:dsml>",
     {GSLXDV_OK, {"cn=x|sn=X"}}},
    {"ValuesKeptExactlyInDocumentOrder",
     inEntries("<entry dn=\"cn=a\">x<attr name=\"d\"> <value> "
               "a&amp;b&#x41;<![CDATA[<c>]]>d<!--x-->\n</value><value/>"
               "<value>\xc3\xa9</value></attr><objectclass><oc-value/></objectclass><attr "
               "name=\"e\"/></entry>"
               "<entry dn=\"\"/>"),
     {GSLXDV_OK, {"cn=a|d= a&bA<c>d\n,,\xc3\xa9|objectclass=|e=", ""}}},
    {"Base64Values",
     inEntry("<attr name=\"d\"><value encoding=\"base64\">QW5u\n IExl ZQ==</value><value "
             "encoding=\"\">AAEC/w==</value>"
             "<value>QW5u</value></attr><objectclass><oc-value "
             "encoding=\"base64\">dG9w</oc-value></objectclass>"),
     {GSLXDV_OK, {"cn=a|d=Ann Lee," + kBytes + ",QW5u|objectclass=dG9w"}}},
    {"EmptyAttrNameFails", inEntry("<attr name=\"\"/>"), {GSLXDV_FAILED, {}}},
    // Odd but harmless names are kept as written (the refused ones are the
    // driver suite's), but a colon would end the type early.
    {"OddAttrNamesAreKept",
     inEntry("<attr name=\"a b\"><value>v</value></attr><attr name=\"dnQualifier\"/>"),
     {GSLXDV_OK, {"cn=a|a b=v|dnQualifier="}}},
    {"AColonInANameFails",
     inEntries("<entry dn=\"cn=a\"/><entry dn=\"cn=b\"><attr name=\"seeAlso:\"/></entry>"),
     {GSLXDV_FAILED, {"cn=a"}}},
    {"CallbackRefusalStopsTheDocument",
     inEntries("<entry dn=\"cn=a\"/><entry dn=\"cn=b\"/><entry dn=\"cn=c\"/>"),
     {GSLXDV_FAILED, {"cn=a", "cn=b"}},
     1},
    // Kept oddities. Of a value in pieces only the last is kept, and only the
    // first is decoded.
    {"Base64MarkIsClearedAfterTheFirstPiece",
     inEntry("<attr name=\"d\"><value "
             "encoding=\"b\">QUJD<x/>REVG</value><value>a<y/>b<z>c</z>d</value></attr>"),
     {GSLXDV_OK, {"cn=a|d=REVG,d"}}},
    {"EmptyEncodedValueLeavesTheMarkForTheNextText",
     inEntry(
         "<attr name=\"d\"><value encoding=\"b\"/><value>QUJD</value><value>QUJD</value></attr>"),
     {GSLXDV_OK, {"cn=a|d=,ABC,QUJD"}}},
    // The skip of x ends at the inner </X>; the outer </x> then closes the
    // entry early. The skip's count stays above zero, so the next entry is
    // only counted, and the closing tags pop states until none is left.
    {"SkipEndsEarlyAtANestedElementOfTheSameName",
     inEntries("<entry dn=\"cn=a\"><x><X/></x><entry dn=\"cn=b\"/><attr "
               "name=\"cn\"><value>v</value></attr></entry>"
               "<entry dn=\"cn=c\"/>"),
     {GSLXDV_FAILED, {"cn=a"}}},
};

class ReaderDocumentTest : public ::testing::TestWithParam<DocumentCase> {};

// After each document the same context reads another one whole.
TEST_P(ReaderDocumentTest, GivesTheSameEntriesForEveryChunkSize) {
  Reader reader;
  reader.refuse = GetParam().refuse;
  EXPECT_EQ(reader.parseInChunks(GetParam().document), GetParam().outcome);
  reader.refuse = kNever;
  EXPECT_EQ(reader.parseInChunks(kAnnLee), kAnnLeeOutcome);
}

INSTANTIATE_TEST_SUITE_P(Documents, ReaderDocumentTest, ::testing::ValuesIn(kDocuments),
                         [](const auto &info) { return std::string(info.param.name); });

// Kept: the kinds 512, 2048 and 4096 are accepted and read nothing.
TEST(ReaderApiTest, OtherAcceptedKindsReadNothingAndSucceed) {
  Reader reader;
  const std::string path = reader.dir.write("doc.dsml", kAnnLee);
  EXPECT_EQ(reader.parse(path, GSLXDV_SOURCE_URI + 0x10000), kAnnLeeOutcome);  // low 16 bits only
  for (uint32_t kind :
       {GSLXDV_SOURCE_NOT_READ_512, GSLXDV_SOURCE_NOT_READ_2048, GSLXDV_SOURCE_NOT_READ_4096}) {
    EXPECT_EQ(reader.parse(path, kind), (Outcome{GSLXDV_OK, {}})) << kind;
  }
  EXPECT_EQ(reader.parse(path, 8), (Outcome{GSLXDV_UNKNOWN_KIND, {}}));
  EXPECT_EQ(reader.parse("/nonexistent.dsml"), (Outcome{GSLXDV_FAILED, {}}));
  EXPECT_EQ(gslxdv1pParse(nullptr, GSLXDV_SOURCE_URI, reader.ctx, nullptr, nullptr),
            GSLXDV_NULL_ARG);
  EXPECT_EQ(gslxdv1pParse("x", 8, nullptr, nullptr, nullptr), GSLXDV_NULL_ARG);
}

// Starting a document or cleaning up from the callback of the context that
// is reading is refused, and the document being read goes on unharmed.
TEST(ReaderApiTest, ParseAndCleanupAreRefusedFromTheCallback) {
  Reader reader;
  std::vector<int32_t> inner;
  reader.on_entry = [&] {
    inner.push_back(gslxdv1pParse("x", GSLXDV_SOURCE_NOT_READ_512, reader.ctx, nullptr, nullptr));
    inner.push_back(gslxdv1cCleanup(&reader.ctx));
  };
  EXPECT_EQ(reader.parseInChunks(kAnnLee), kAnnLeeOutcome);
  EXPECT_EQ(inner, std::vector<int32_t>(2 * std::size(kChunkSizes), GSLXDV_FAILED));
}

// ---- The machine, event by event -------------------------------------------------
// The guards no test document reaches: a closing tag with no state to pop
// and a skip 65535 elements deep. (Text with a NUL byte cannot come from an
// XML document; undecodable text is golden case 008.)

struct Machine {
  Machine() {
    gslxdv1iInitSMachine(&m);
    EXPECT_EQ(sax_startDocument(&m), GSLXDV_OK);
  }
  ~Machine() { EXPECT_EQ(gslxdv1fsmFreeStateMacMemb(&m), GSLXDV_OK); }
  GslxdvStateMachine m{};
};

// The element-state stack is a fixed array: the transitions must never lead
// deeper than it holds, one skipped element included.
TEST(ReaderMachineTest, TheTransitionsFitTheStateStack) {
  std::function<int(uint16_t)> longest = [&](uint16_t state) {
    int deepest = 0;
    for (const gslxdv::Transition &t : gslxdv::kTransitions) {
      if (t.state == state) deepest = std::max(deepest, 1 + longest(t.next));
    }
    return deepest;
  };
  EXPECT_LE(longest(GSLXDV_STATE_DOCUMENT) + 1, GSLXDV_MAX_DEPTH);
}

TEST(ReaderMachineTest, EmptyStackAndSkipCountLimitFail) {
  Machine machine;
  GslxdvStateMachine &m = machine.m;
  EXPECT_EQ(sax_endElement(&m, "dsml"), GSLXDV_FAILED);  // nothing to pop
  EXPECT_EQ(m.state, GSLXDV_STATE_DOCUMENT);
  ASSERT_EQ(sax_startElement(&m, "x", nullptr), GSLXDV_OK);
  m.skip_depth = UINT16_MAX;
  EXPECT_EQ(sax_startElement(&m, "y", nullptr), GSLXDV_FAILED);  // rather than wrap to 0
  EXPECT_EQ(m.skip_depth, UINT16_MAX);
}

// ---- Memory -------------------------------------------------------------------------

// Text that no value keeps is dropped as it arrives, however long; the
// buffer of a long value is given back once the value was taken.
TEST(ReaderMemoryTest, OnlyValuesCostMemoryAndOnlyWhileRead) {
  const std::string text(10 << 20, 't');
  const std::string skipped = "<dsml>" + text + "<directory-entries><extra>" + text +
                              "</extra><entry dn=\"cn=a\">" + text + "<attr name=\"d\">" + text +
                              "<value>v</value></attr></entry></directory-entries></dsml>";
  Reader reader;
  qtest::TestAllocator::Scope allocator;
  ASSERT_EQ(reader.parseInChunks(kAnnLee), kAnnLeeOutcome);  // buffers of a small document
  const size_t small = qtest::TestAllocator::peak;
  qtest::TestAllocator::peak = qtest::TestAllocator::bytes;
  EXPECT_EQ(reader.parse(reader.dir.write("skipped.dsml", skipped)),
            (Outcome{GSLXDV_OK, {"cn=a|d=v"}}));
  EXPECT_LT(qtest::TestAllocator::peak, small + (1u << 20)) << "skipped text was kept";
  const size_t before = qtest::TestAllocator::bytes;
  EXPECT_EQ(reader
                .parse(reader.dir.write(
                    "long.dsml", inEntry("<attr name=\"d\"><value>" + text + "</value></attr>")))
                .status,
            GSLXDV_OK);
  EXPECT_LT(qtest::TestAllocator::bytes, before + (64u << 10))
      << "the long value's buffer was kept";
}

// ---- Allocation failures ----------------------------------------------------------

const std::string kSample =
    "<dsml:dsml "
    "xmlns:dsml=\"http://www.dsml.org/DSML\"><dsml:directory-schema><class><name>p</name></class>"
    "</dsml:directory-schema><dsml:directory-entries><entry "
    "dn=\"cn=b\"><objectclass><oc-value>top</oc-value>"
    "</objectclass><attr name=\"jpegPhoto\"><value "
    "encoding=\"base64\">AAEC/w==</value></attr><comment><attr "
    "name=\"x\"/></comment><attr "
    "name=\"mail\"><value>b@ex</value><value>c@ex</value></attr></entry>"
    "<entry dn=\"cn=c\"/></dsml:directory-entries></dsml:dsml>";
const Outcome kSampleOutcome = {
    GSLXDV_OK, {"cn=b|objectclass=top|jpegPhoto=" + kBytes + "|mail=b@ex,c@ex", "cn=c"}};

// Fails the Nth allocation for N = 0, 1, ... until the document is read
// whole: every failing run reports 2, keeps nothing, and leaves the context
// able to read the whole document.
class ReaderAllocationTest : public ::testing::TestWithParam<size_t> {};

TEST_P(ReaderAllocationTest, EveryFailureIsReportedAndTheContextRecovers) {
  Reader reader;
  const std::string path = reader.dir.write("doc.dsml", kSample);
  xmlSetChunkSizeForTesting(GetParam());
  qtest::TestAllocator::Scope allocator;
  ASSERT_EQ(reader.parse(path), kSampleOutcome);  // the parser's buffers grow once
  const size_t n = qtest::sweepAllocationFailures(
      [&] { return reader.parse(path); },
      [&](const Outcome &o, size_t attempt) {
        if (o.status == GSLXDV_OK) {
          EXPECT_EQ(o, kSampleOutcome);
          return true;
        }
        EXPECT_EQ(o.status, GSLXDV_FAILED) << "allocation " << attempt;
        EXPECT_EQ(reader.parse(path), kSampleOutcome) << "allocation " << attempt;
        return false;
      });
  EXPECT_GT(n, 40u);  // the sweep reached through expat, the machine and the entry model
}

INSTANTIATE_TEST_SUITE_P(AllChunkSizes, ReaderAllocationTest, ::testing::ValuesIn(kChunkSizes));

}  // namespace

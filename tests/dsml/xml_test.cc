// Tests of dsml/xml.h: the event sequence of real documents read in chunks
// of 1, 2, 7 and 4096 bytes, whole texts, local names, stopping, sources,
// entity safety and allocation failures.
#include "dsml/xml_internal.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "tests/support/test_allocator.h"
#include "tests/support/test_support.h"

namespace {

constexpr size_t kChunkSizes[] = {1, 2, 7, 4096};
constexpr size_t kNeverFail = SIZE_MAX;
using Events = std::vector<std::string>;

// Records every event as text; the handler of event number fail_at (from 0)
// records it and then fails.
struct Recorder {
  Events events;
  size_t fail_at = kNeverFail;
  int record(std::string event) {
    events.push_back(std::move(event));
    return events.size() - 1 == fail_at ? 1 : 0;
  }
};

Recorder *rec(void *user) { return static_cast<Recorder *>(user); }
int startDocument(void *u) { return rec(u)->record("S"); }
int endDocument(void *u) { return rec(u)->record("E"); }
int startElement(void *u, const char *name, const xmlattrs *attrs) {
  std::string e = std::string("<") + name;
  for (uint32_t i = 0; i < numAttributes(attrs); ++i) {
    const xmlattr *a = getAttributeIndex(attrs, i);
    e += std::string(" ") + getAttrLocal(a) + "=" + getAttrValue(a);
  }
  return rec(u)->record(e + ">");
}
int endElement(void *u, const char *name) { return rec(u)->record(std::string("</") + name + ">"); }
int characters(void *u, const char *bytes, uint32_t length) {
  return rec(u)->record("T:" + std::string(bytes, length));
}

constexpr xmlsaxcb kRecordingHandlers = {startDocument, endDocument, startElement,
                                         endElement,    characters,  {}};

xmlctx *newParser(Recorder *recorder, int *err = nullptr) {
  return xmlinit(err, nullptr, nullptr, nullptr, &kRecordingHandlers, recorder, nullptr, nullptr,
                 nullptr);
}

// A temporary directory and a parser instance feeding a Recorder.
class XmlFixture {
 protected:
  ~XmlFixture() {
    xmlterm(xml_);
    xmlSetChunkSizeForTesting(0);
  }
  int parse(const std::string &source) {
    recorder_.events.clear();
    return xmlparse(xml_, source.c_str(), nullptr, XMLIF_READER_FLAGS);
  }

  qtest::TempDir dir_;
  Recorder recorder_;
  xmlctx *xml_ = newParser(&recorder_);
};

const std::string kLongText(20000, 'x');

// Nine levels of ten references each: a billion "lol"s once expanded.
std::string billionLaughs() {
  std::string doc = "<!DOCTYPE lolz [<!ENTITY lol0 \"lol\">";
  for (int i = 1; i <= 9; ++i) {
    doc += "<!ENTITY lol" + std::to_string(i) + " \"";
    for (int j = 0; j < 10; ++j) doc += "&lol" + std::to_string(i - 1) + ";";
    doc += "\">";
  }
  return doc + "]><lolz>&lol9;</lolz>";
}

struct DocumentCase {
  const char *name;
  std::string document;  // "@SECRET@" stands for the path of a secret local file
  int status;
  Events events;
};

void PrintTo(const DocumentCase &c, std::ostream *os) { *os << c.name; }

const DocumentCase kDocuments[] = {
    {"NamespaceDeclarationsAreNotAttributes",
     "<a xmlns=\"u\" k1=\"1\" xmlns:p=\"v\" p:k2=\"2\"/>",
     XMLIF_OK,
     {"S", "<a k1=1 k2=2>", "</a>", "E"}},
    {"InternalEntityIsExpanded",
     "<!DOCTYPE v [<!ENTITY e \"one&amp;two\">]><v>[&e;]</v>",
     XMLIF_OK,
     {"S", "<v>", "T:[one&two]", "</v>", "E"}},
    {"LongTextArrivesWhole",
     "<v>" + kLongText + "</v>",
     XMLIF_OK,
     {"S", "<v>", "T:" + kLongText, "</v>", "E"}},
    {"TextIsFlushedBeforeEachTag",
     "<?xml version=\"1.0\"?>\n<a x=\"1\" y='2'>\n <b/>x<c>y</c>\n</a>",
     XMLIF_OK,
     {"S", "<a x=1 y=2>", "T:\n ", "<b>", "</b>", "T:x", "<c>", "T:y", "</c>", "T:\n", "</a>",
      "E"}},
    {"MalformedFailsAfterEarlierEvents",
     "<a><b>x</b><c>y</a>",
     XMLIF_NOT_WELL_FORMED,
     {"S", "<a>", "<b>", "T:x", "</b>", "<c>"}},
    {"EmptyDocument", "", XMLIF_NOT_WELL_FORMED, {"S"}},
    {"ExternalEntityIsNotLoaded",
     "<!DOCTYPE a [<!ENTITY e SYSTEM \"@SECRET@\">]><a>pre&e;</a>",
     XMLIF_ENTITY_REFUSED,
     {"S", "<a>"}},
    {"ExternalDtdIsNotLoaded",
     "<!DOCTYPE a SYSTEM \"@SECRET@\"><a>ok</a>",
     XMLIF_OK,
     {"S", "<a>", "T:ok", "</a>", "E"}},
    {"EntityOfUnreadDtdFails",
     "<!DOCTYPE a SYSTEM \"@SECRET@\"><a>&e;</a>",
     XMLIF_ENTITY_REFUSED,
     {"S", "<a>"}},
    {"BillionLaughsIsRefused", billionLaughs(), XMLIF_ENTITY_REFUSED, {"S", "<lolz>"}},
};

class DocumentTest : public XmlFixture,
                     public ::testing::TestWithParam<std::tuple<DocumentCase, size_t>> {};

TEST_P(DocumentTest, DeliversTheExpectedEvents) {
  const auto &[c, chunk] = GetParam();
  // Were this file read, as an entity or as a DTD, it would show up or break the parse.
  const std::string secret = dir_.write("secret.txt", "TOPSECRET <!ENTITY e 'leak'>");
  std::string doc = c.document;
  if (const size_t at = doc.find("@SECRET@"); at != std::string::npos) doc.replace(at, 8, secret);
  xmlSetChunkSizeForTesting(chunk);
  ASSERT_NE(xml_, nullptr);
  EXPECT_EQ(parse(dir_.write("doc.xml", doc)), c.status);
  EXPECT_EQ(recorder_.events, c.events);
}

INSTANTIATE_TEST_SUITE_P(AllChunkSizes, DocumentTest,
                         ::testing::Combine(::testing::ValuesIn(kDocuments),
                                            ::testing::ValuesIn(kChunkSizes)),
                         [](const auto &info) {
                           return std::string(std::get<0>(info.param).name) + "_chunk" +
                                  std::to_string(std::get<1>(info.param));
                         });

struct SourceCase {
  const char *name;
  const char *source;  // "@DIR@" stands for the temporary directory
  int status;
};

void PrintTo(const SourceCase &c, std::ostream *os) { *os << c.name; }

const SourceCase kSources[] = {
    {"PlainPath", "@DIR@/a b.xml", XMLIF_OK},
    {"FileUriEmptyHost", "file://@DIR@/a%20b.xml", XMLIF_OK},
    {"FileUriLocalhost", "FILE://localhost@DIR@/a%20b.xml", XMLIF_OK},
    {"FileUriNoHostWithFragment", "file:@DIR@/a%20b.xml#frag", XMLIF_OK},
    {"DecodedOnce", "file://@DIR@/a%2520b.xml", XMLIF_SOURCE_UNREADABLE},
    {"FileUriOtherHost", "file://elsewhere@DIR@/a%20b.xml", XMLIF_UNSUPPORTED_SOURCE},
    {"TruncatedEscape", "file://@DIR@/a%2", XMLIF_BAD_URI},
    {"NonHexEscape", "file://@DIR@/a%zz", XMLIF_BAD_URI},
    {"EscapedNul", "file://@DIR@/a%00b.xml", XMLIF_BAD_URI},
};

class SourceTest : public XmlFixture, public ::testing::TestWithParam<SourceCase> {};

TEST_P(SourceTest, ReadsLocalFilesOnly) {
  dir_.write("a b.xml", "<a/>");
  std::string source = GetParam().source;
  if (const size_t at = source.find("@DIR@"); at != std::string::npos)
    source.replace(at, 5, dir_.path());
  EXPECT_EQ(parse(source), GetParam().status) << source;
  EXPECT_EQ(recorder_.events,
            GetParam().status == XMLIF_OK ? (Events{"S", "<a>", "</a>", "E"}) : Events{});
}

INSTANTIATE_TEST_SUITE_P(Sources, SourceTest, ::testing::ValuesIn(kSources),
                         [](const auto &info) { return std::string(info.param.name); });

class XmlApiTest : public XmlFixture, public ::testing::Test {};

// Failing at every event in turn: that event is the last one seen (expat
// would still report the end of <b/>), and the instance parses the next
// document as if nothing had happened.
TEST_F(XmlApiTest, HandlerFailureStopsAtOnceAndInstanceStaysUsable) {
  const std::string path = dir_.write("doc.xml", "<a k='v'><b/>t&amp;u<c>w</c></a>");
  for (size_t chunk : kChunkSizes) {
    xmlSetChunkSizeForTesting(chunk);
    ASSERT_EQ(parse(path), XMLIF_OK);
    const Events all = recorder_.events;
    for (size_t i = 0; i < all.size(); ++i) {
      recorder_.fail_at = i;
      EXPECT_EQ(parse(path), XMLIF_HANDLER_FAILED)
          << "failing at " << all[i] << ", chunk size " << chunk;
      EXPECT_EQ(recorder_.events, Events(all.begin(), all.begin() + static_cast<long>(i) + 1));
    }
    recorder_.fail_at = kNeverFail;
  }
}

// Fails the Nth allocation (expat's own included) for N = 0, 1, ... until
// the parse succeeds: each failure is reported as such and leaves nothing
// allocated, and the run that succeeds reports what a plain run does.
TEST_F(XmlApiTest, EveryAllocationFailureIsReportedAndLeaksNothing) {
  const std::string path =
      dir_.write("d.xml", "<!DOCTYPE a [<!ENTITY e 'ee'>]><p:a xmlns:p='u' p:k='v'>" + kLongText +
                              "&e;<b/></p:a>");
  xmlSetChunkSizeForTesting(7);
  ASSERT_EQ(parse(path), XMLIF_OK);
  const Events all = recorder_.events;
  qtest::TestAllocator::Scope allocator;
  size_t n = 0;
  for (int status = XMLIF_NO_MEMORY; status != XMLIF_OK; ++n) {
    ASSERT_LT(n, 10000u);
    qtest::TestAllocator::budget = n;
    int err = -1;
    xmlctx *x = newParser(&recorder_, &err);
    recorder_.events.clear();
    status = x != nullptr ? xmlparse(x, path.c_str(), nullptr, XMLIF_READER_FLAGS) : err;
    EXPECT_TRUE(status == XMLIF_OK || status == XMLIF_NO_MEMORY)
        << status << " at allocation " << n;
    xmlterm(x);
    EXPECT_EQ(qtest::TestAllocator::live, 0) << "allocation " << n;
  }
  EXPECT_GT(n, 10u);  // the sweep did reach into expat
  EXPECT_EQ(recorder_.events, all);
}

}  // namespace

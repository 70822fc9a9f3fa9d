// Tests of DSML v2 reading (gslxdvpParse, dsml/reader_v2_internal.h): the
// entries each kind of document gives, read through expat in chunks of 1, 7
// and 4096 bytes (every outcome must agree), the payload found inside a SOAP
// Envelope or not at all, the warnings' counts, every truncated prefix of a
// document, and allocation failures. The LDIF these entries become, every
// failure's cause and the warnings' lines are the golden cases' business.
#include "dsml/reader_v2_internal.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "dsml/xml_internal.h"
#include "tests/support/test_allocator.h"
#include "tests/support/test_support.h"

namespace {

using namespace std::string_literals;

constexpr size_t kChunkSizes[] = {1, 7, 4096};

// An entry as one line: its kind (C content, A add, M modify, D delete,
// R modrdn with "newrdn,deleteoldrdn,newsuperior"), its DN, its controls
// "[oid!=value]" (! when critical, no "=" without a value), then per
// attribute "|name" with its change type (+ - = ^ for add, delete,
// replace, increment) and its values joined by ",".
std::string describe(const LDAPEntry *e) {
  std::string out;
  switch (e->change_type) {
    case GSLCLE_CHANGE_ADD: out = e->explicit_change_type != 0 ? "A " : "C "; break;
    case GSLCLE_CHANGE_MODIFY: out = "M "; break;
    case GSLCLE_CHANGE_DELETE: out = "D "; break;
    default:
      out = std::string("R(") + (e->new_rdn != nullptr ? e->new_rdn : "-") + "," +
            (e->delete_old_rdn != 0 ? "1" : "0") + "," +
            (e->new_superior != nullptr ? e->new_superior : "-") + ") ";
  }
  out += e->dn;
  if (e->controls != nullptr) {
    for (auto *c = static_cast<const LDAPEntryControl *>(e->controls->head); c != nullptr;
         c = static_cast<const LDAPEntryControl *>(c->next)) {
      out += std::string("[") + c->oid + (c->critical != 0 ? "!" : "");
      if (c->has_value != 0) out += "=" + std::string(c->value.bytes ? c->value.bytes : "", c->value.length);
      out += "]";
    }
  }
  if (e->attributes == nullptr) return out;
  for (auto *a = static_cast<const LDAPAttribute *>(e->attributes->head); a != nullptr;
       a = static_cast<const LDAPAttribute *>(a->next)) {
    static constexpr char kTypes[] = "+-=^";
    out += std::string("|") + a->name + kTypes[a->change_type - GSLCLE_ATTR_ADD];
    for (uint32_t i = 0; i < a->count; ++i) {
      const auto *v = static_cast<const BERVal *>(a->values[i]);
      out.append(i > 0 ? "," : "").append(v->bytes != nullptr ? v->bytes : "", v->length);
    }
  }
  return out;
}

// The status of a document, its entries, the cause of its failure or
// warning with its detail, and its warning counts in short.
struct Outcome {
  int32_t status;
  std::vector<std::string> entries;
  std::string cause = "";     // "cause:detail" when there is one
  std::string warnings = "";  // see warningsOf
  bool operator==(const Outcome &) const = default;
};

void PrintTo(const Outcome &o, std::ostream *os) {
  *os << "status " << o.status << ", cause [" << o.cause << "], warnings [" << o.warnings
      << "], entries:";
  for (const std::string &e : o.entries) *os << " [" << e << "]";
}

std::string listOf(const GslxdvTextList &l) {
  std::string out;
  for (uint32_t i = 0; i < l.count; ++i) out += std::string(i > 0 ? "," : "") + l.texts[i];
  return out + (l.more != 0 ? ",..." : "");
}

// "kind=count" for every skipped kind, then "done=N(codes)", "error=N(types)"
// and "controls=N" when not zero.
std::string warningsOf(const GslxdvWarnings &w) {
  std::string out;
  for (int32_t k = 0; k < GSLXDV_SKIPPED_KINDS; ++k) {
    if (w.skipped[k] != 0) {
      out += std::string(gslxdvskSkippedKindName(k)) + "=" + std::to_string(w.skipped[k]) + " ";
    }
  }
  if (w.failed_searches != 0) {
    out += "done=" + std::to_string(w.failed_searches) + "(" + listOf(w.result_codes) + ") ";
  }
  if (w.error_responses != 0) {
    out += "error=" + std::to_string(w.error_responses) + "(" + listOf(w.error_types) + ") ";
  }
  if (w.dropped_controls != 0) out += "controls=" + std::to_string(w.dropped_controls) + " ";
  return out;
}

// One parser context fed with temporary documents through gslxdvpParse.
struct Reader {
  Reader() {
    EXPECT_EQ(gslxdv1cpCreateParserCtx(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &ctx),
              0);
  }
  ~Reader() {
    EXPECT_EQ(gslxdv1cCleanup(&ctx), GSLXDV_OK);
    xmlSetChunkSizeForTesting(0);
  }
  static int32_t record(LDAPEntry *entry, void *arg) {
    auto *r = static_cast<Reader *>(arg);
    r->entries.push_back(describe(entry));
    r->versions.push_back(gslxdvgvGetVersion(r->ctx));
    return r->entries.size() - 1 == r->refuse ? 77 : GSLXDV_OK;
  }
  Outcome parse(const std::string &path) {
    entries.clear();
    versions.clear();
    const int32_t st = gslxdvpParse(path.c_str(), GSLXDV_SOURCE_URI, ctx, record, this);
    GslxdvDiagnostic d{};
    EXPECT_EQ(gslxdv1gdGetDiagnostic(ctx, &d), GSLXDV_OK);
    GslxdvWarnings w{};
    EXPECT_EQ(gslxdvgwGetWarnings(ctx, &w), GSLXDV_OK);
    std::string cause = d.cause != GSLXDV_CAUSE_NONE ? std::to_string(d.cause) + ":" + d.detail : "";
    // Nothing is left pending, whatever happened.
    EXPECT_EQ(ctx->busy, 0);
    EXPECT_EQ(ctx->machine2->entry, nullptr);
    EXPECT_EQ(ctx->machine2->attribute, nullptr);
    EXPECT_EQ(ctx->machine2->control_oid, nullptr);
    EXPECT_EQ(ctx->machine2->text.bytes, nullptr);
    EXPECT_EQ(ctx->machine->entry, nullptr);
    return {st, entries, cause, warningsOf(w)};
  }
  Outcome parseInChunks(const std::string &document) {
    const std::string path = dir.write("doc.xml", document);
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
  std::vector<int32_t> versions;
  size_t refuse = SIZE_MAX;
  GslxdvParserCtx *ctx = nullptr;
};

std::string request(const std::string &content) {
  return "<batchRequest xmlns=\"urn:oasis:names:tc:DSML:2:0:core\" "
         "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">" +
         content + "</batchRequest>";
}
std::string response(const std::string &content) {
  return "<batchResponse xmlns=\"urn:oasis:names:tc:DSML:2:0:core\">" + content +
         "</batchResponse>";
}
std::string soap(const std::string &body) {
  return "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Header><b:Body "
         "xmlns:b=\"x\"><dsml/></b:Body></s:Header><s:Body>" +
         body + "</s:Body></s:Envelope>";
}

std::string cause(int32_t c, const std::string &detail = "") {
  return std::to_string(c) + ":" + detail;
}

struct DocumentCase {
  const char *name;
  std::string document;
  Outcome outcome;
  size_t refuse = SIZE_MAX;
};

void PrintTo(const DocumentCase &c, std::ostream *os) { *os << c.name; }

const DocumentCase kDocuments[] = {
    {"EveryOperation",
     request("<addRequest dn=\"cn=a\"><attr name=\"cn\"><value>a</value><value>b</value></attr>"
             "<attr name=\"d\"/></addRequest>"
             "<modifyRequest dn=\"cn=a\"><modification name=\"t\" operation=\"replace\"><value>x"
             "</value></modification><modification name=\"u\" operation=\" DELETE \"/>"
             "<modification name=\"n\" operation=\"increment\"><value>1</value></modification>"
             "<modification name=\"m\" operation=\"add\"/></modifyRequest>"
             "<delRequest dn=\"cn=a\"/>"
             "<modDNRequest dn=\"cn=a\" newrdn=\"cn=b\"/>"
             "<modDNRequest dn=\"cn=a\" newrdn=\"cn=b\" deleteoldrdn=\" 0\n\" newSuperior=\"\"/>"
             "<modDNRequest dn=\"cn=a\" newrdn=\"cn=b\" deleteoldrdn=\"true\" "
             "newSuperior=\"o=x\"/>"),
     {GSLXDV_OK,
      {"A cn=a|cn+a,b|d+", "M cn=a|t=x|u-|n^1|m+", "D cn=a", "R(cn=b,1,-) cn=a",
       "R(cn=b,0,) cn=a", "R(cn=b,1,o=x) cn=a"}}},
    {"ControlsOfRequests",
     request("<delRequest dn=\"cn=a\"><control type=\"1.2.3\" criticality=\"1\"/>"
             "<control type=\"1.2.4\"><controlValue>v<!-- c -->w</controlValue></control>"
             "<control type=\"1.2.5\" criticality=\"false\"><controlValue "
             "xsi:type=\"xsd:base64Binary\">AAE=</controlValue></control>"
             "<control type=\"1.2.6\"><controlValue/></control></delRequest>"),
     {GSLXDV_OK, {"D cn=a[1.2.3!][1.2.4=vw][1.2.5=\0\1][1.2.6=]"s}}},
    // Text on both sides of a comment, CDATA, a reference or a child element
    // is one value; base64 is decoded from the whole of it, and white space
    // alone is an empty binary value.
    {"ValuesAreAllTheTextDirectlyInside",
     request("<addRequest dn=\"cn=a\"><attr name=\"d\"><value> a&amp;<![CDATA[<b>]]><!--x-->c"
             "<x>skipped</x>d\n</value><value xsi:type=\"xsd:base64Binary\">QU<!--x-->Jj\n"
             "</value><value xsi:type=\" base64Binary \">  </value><value "
             "xsi:type=\"xsd:string\">QUJj</value><value>QUJj</value></attr></addRequest>"),
     {GSLXDV_OK, {"A cn=a|d+ a&<b>cd\n,ABc,,QUJj,QUJj"}}},
    {"SearchResponses",
     response("<searchResponse><searchResultEntry dn=\"cn=a\"><attr name=\"cn\"><value>a</value>"
              "</attr><control type=\"1.2.3\"/></searchResultEntry><searchResultReference><ref>"
              "ldap://h/</ref></searchResultReference><searchResultDone><resultCode code=\"0\"/>"
              "</searchResultDone></searchResponse><searchResultEntry dn=\"cn=b\"/>"
              "<addResponse><resultCode code=\"68\"/></addResponse>"
              "<searchResponse><searchResultDone><resultCode code=\" 32\"/></searchResultDone>"
              "<searchResponse/><errorResponse type=\"notAttempted\"/></searchResponse>"
              "<errorResponse/><searchResultDone><resultCode code=\"00\"/></searchResultDone>"),
     {GSLXDV_OK,
      {"C cn=a|cn+a", "C cn=b"},
      "",
      "searchResultReference=1 addResponse=1 other=1 done=1(32) error=2(notAttempted) "
      "controls=1 "}},
    {"SkippedRequestsAreCountedByKind",
     request("<searchRequest dn=\"o=ex\"><filter><present name=\"cn\"/></filter></searchRequest>"
             "<searchRequest dn=\"o=ex\"><searchRequest/></searchRequest><compareRequest/>"
             "<extendedRequest/><abandonRequest/><authRequest/><batchRequest/><fooRequest/>"
             "<addRequest dn=\"cn=a\"><filter/><attr name=\"cn\"><x/></attr></addRequest>"),
     {GSLXDV_OK,
      {"A cn=a|cn+"},
      "",
      "searchRequest=2 compareRequest=1 extendedRequest=1 abandonRequest=1 authRequest=1 "
      "other=2 "}},
    // Only the first element of the first Body is read.
    {"SoapPayloadWithHeaderAndAfterIt",
     soap(response("<searchResultEntry dn=\"cn=a\"/>") + "<batchRequest><delRequest "
                                                          "dn=\"cn=x\"/></batchRequest>"),
     {GSLXDV_OK, {"C cn=a"}}},
    {"SoapWithoutAPayloadWarns",
     "<Envelope><Body/><Body><batchRequest/></Body></Envelope>",
     {GSLXDV_OK, {}, cause(GSLXDV_CAUSE_NOT_DSML, "Envelope")}},
    // The failures and their causes are the golden cases'; a refusing
    // callback is not, and the entries before it stay delivered.
    {"CallbackRefusal",
     request("<delRequest dn=\"a\"/><delRequest dn=\"b\"/><delRequest dn=\"c\"/>"),
     {GSLXDV_FAILED, {"D a", "D b"}, cause(GSLXDV_CAUSE_CALLBACK, "77")},
     1},
};

class ReaderV2DocumentTest : public ::testing::TestWithParam<DocumentCase> {};

// After each document the same context reads a v1 and a v2 document whole.
TEST_P(ReaderV2DocumentTest, GivesTheSameEntriesForEveryChunkSize) {
  Reader reader;
  reader.refuse = GetParam().refuse;
  EXPECT_EQ(reader.parseInChunks(GetParam().document), GetParam().outcome);
  reader.refuse = SIZE_MAX;
  EXPECT_EQ(reader.parseInChunks(request("<delRequest dn=\"a\"/>")),
            (Outcome{GSLXDV_OK, {"D a"}}));
  EXPECT_EQ(reader.versions, std::vector<int32_t>(1, GSLXDV_VERSION_2));
  EXPECT_EQ(reader.parseInChunks("<dsml><directory-entries><entry dn=\"a\"/></directory-entries>"
                                 "</dsml>"),
            (Outcome{GSLXDV_OK, {"C a"}}));
  EXPECT_EQ(reader.versions, std::vector<int32_t>(1, GSLXDV_VERSION_1));
}

INSTANTIATE_TEST_SUITE_P(Documents, ReaderV2DocumentTest, ::testing::ValuesIn(kDocuments),
                         [](const auto &info) { return std::string(info.param.name); });

// The element-state stack is a fixed array: the transitions must never lead
// deeper than it holds, one skipped element included.
TEST(ReaderV2MachineTest, TheTransitionsFitTheStateStack) {
  std::size_t count = 0;
  const gslxdv2::Transition *rows = gslxdv2::transitions(&count);
  std::function<uint32_t(uint16_t)> longest = [&](uint16_t state) {
    uint32_t deepest = 0;
    for (std::size_t i = 0; i < count; ++i) {
      if (rows[i].state == state && rows[i].next != gslxdv2::kSkipping) {
        deepest = std::max(deepest, 1 + longest(rows[i].next));
      }
    }
    return deepest;
  };
  EXPECT_LE(longest(gslxdv2::kDocument) + 1, gslxdv2::kMaxDepth);
}

// ---- Truncated documents ------------------------------------------------------------

const std::string kSample = soap(request(
    "<addRequest dn=\"cn=a\"><control type=\"1.2.3\"><controlValue>v</controlValue></control>"
    "<attr name=\"cn\"><value>a</value></attr><attr name=\"p\"><value "
    "xsi:type=\"xsd:base64Binary\">AAEC</value></attr></addRequest><searchRequest/>"
    "<modifyRequest dn=\"cn=a\"><modification name=\"t\" operation=\"replace\"><value>x</value>"
    "</modification></modifyRequest><modDNRequest dn=\"cn=a\" newrdn=\"cn=b\" "
    "newSuperior=\"o=x\"/><delRequest dn=\"cn=b,o=x\"/>"));
const Outcome kSampleOutcome = {
    GSLXDV_OK,
    {"A cn=a[1.2.3=v]|cn+a|p+\0\1\2"s, "M cn=a|t=x", "R(cn=b,1,o=x) cn=a",
     "D cn=b,o=x"},
    "",
    "searchRequest=1 "};

// Every prefix of a document is XML cut short, so it fails, even when cut
// after the payload's end; the entries it delivered first are whole ones,
// the first entries of the whole document.
TEST(ReaderV2TruncationTest, EveryPrefixFailsCleanlyWithWholeEntriesOnly) {
  Reader reader;
  ASSERT_EQ(reader.parse(reader.dir.write("whole.xml", kSample)), kSampleOutcome);
  for (size_t n = 0; n < kSample.size(); ++n) {
    const Outcome o = reader.parse(reader.dir.write("cut.xml", kSample.substr(0, n)));
    ASSERT_EQ(o.status, GSLXDV_FAILED) << n;
    ASSERT_LE(o.entries.size(), kSampleOutcome.entries.size()) << n;
    for (size_t i = 0; i < o.entries.size(); ++i) {
      ASSERT_EQ(o.entries[i], kSampleOutcome.entries[i]) << n;
    }
  }
}

// ---- Allocation failures -------------------------------------------------------------

// Fails the Nth allocation for N = 0, 1, ... until the document is read
// whole: every failing run reports 2 with whole entries only, keeps
// nothing, and leaves the context able to read the whole document.
class ReaderV2AllocationTest : public ::testing::TestWithParam<size_t> {};

TEST_P(ReaderV2AllocationTest, EveryFailureIsReportedAndTheContextRecovers) {
  Reader reader;
  const std::string path = reader.dir.write("doc.xml", kSample);
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
        for (size_t i = 0; i < o.entries.size(); ++i) {
          EXPECT_EQ(o.entries[i], kSampleOutcome.entries[i]) << "allocation " << attempt;
        }
        EXPECT_EQ(reader.parse(path), kSampleOutcome) << "allocation " << attempt;
        return false;
      });
  EXPECT_GT(n, 30u);  // the sweep reached through expat, the machine and the entry model
}

INSTANTIATE_TEST_SUITE_P(AllChunkSizes, ReaderV2AllocationTest, ::testing::ValuesIn(kChunkSizes));

}  // namespace

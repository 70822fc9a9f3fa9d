// LDAP URLs: every documented example and the kept oddities in one table,
// prefix recognition, truncated URLs, allocation failures, no core context.
#include "ber/url.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/ber/ber_test_support.h"
#include "tests/support/test_allocator.h"

namespace {

// The text in a heap block of exactly its size, so that the sanitizer build
// reports any read past its terminator.
std::vector<char> exactCopy(const char *text, size_t length) {
  std::vector<char> block(text, text + length);
  block.push_back('\0');
  return block;
}

// A record as "host|port|dn|attr,attr,|scope given|filter": "-" for a null
// text and for the default filter.
std::string describe(const LDAPURLDesc *lud) {
  if (lud == nullptr) return "";
  auto show = [](const char *s) { return s != nullptr ? std::string(s) : "-"; };
  std::string attrs = lud->lud_attrs != nullptr ? "" : "-";
  for (char **a = lud->lud_attrs; a != nullptr && *a != nullptr; ++a)
    attrs += std::string(*a) + ",";
  return show(lud->lud_host) + "|" + std::to_string(lud->lud_port) + "|" + show(lud->lud_dn) + "|" +
         attrs + "|" + std::to_string(lud->lud_scope) + " " + std::to_string(lud->lud_scope_given) +
         "|" + (std::strcmp(lud->lud_filter, LDAP_URL_DEFAULT_FILTER) == 0 ? "-" : lud->lud_filter);
}

struct UrlCase {
  const char *name, *url;
  int result;
  const char *record;  // describe() of the record; "" unless the result is 0
};

constexpr int kOk = LDAP_URL_OK;
const UrlCase kUrlCases[] = {
    // The documented examples.
    {"HostPortDn", "ldap://host:389/o=ex", kOk, "host|389|o=ex|-|0 0|-"},
    {"AttrsScopeFilter", "LDAP://host/o=ex?cn,mail?sub?(cn=a%20b)", kOk,
     "host|0|o=ex|cn,mail,|2 1|(cn=a b)"},
    {"NoSlash", "ldap://host", LDAP_URL_NO_DN_SLASH, ""},
    {"OtherScheme", "http://host/o=ex", LDAP_URL_NOT_LDAP_URL, ""},
    {"UrlLabelNoHost", "URL:ldap:///o=ex", kOk, "-|0|o=ex|-|0 0|-"},
    {"Ipv6WithPort", "ldap://[::1]:636/o=ex", kOk, "[::1]|636|o=ex|-|0 0|-"},
    {"KeptBracketedHostWithoutPortRefused", "ldap://[::1]/o=ex", LDAP_URL_BAD_BRACKETS, ""},
    {"Enclosed", "<ldap://host/o=ex>", kOk, "host|0|o=ex|-|0 0|-"},
    {"ScopeWithoutAttrs", "ldap://h/o=ex??one", kOk, "h|0|o=ex|-|1 1|-"},
    {"OnelevelUnknown", "ldap://h/o=ex?cn?onelevel", LDAP_URL_BAD_SCOPE, ""},
    // Prefix forms: only an enclosed URL loses its ">", and only one.
    {"LdapsEnclosedLabel", "<URL:ldaps://h/o=ex>>", kOk, "h|0|o=ex>|-|0 0|-"},
    {"CloserKeptWhenNotEnclosed", "ldap://h/o=ex>", kOk, "h|0|o=ex>|-|0 0|-"},
    {"EnclosedNoSlash", "<ldap://h>", LDAP_URL_NO_DN_SLASH, ""},
    {"LabelAnyCase", "<uRl:LdAp://h/>", kOk, "h|0|-|-|0 0|-"},
    {"LabelWithoutScheme", "<URL:http://h/>", LDAP_URL_NOT_LDAP_URL, ""},
    {"SchemeCut", "ldaps:/h/", LDAP_URL_NOT_LDAP_URL, ""},
    {"LabelAfterEnclosing", "URL:<ldap://h/>", LDAP_URL_NOT_LDAP_URL, ""},
    {"NullText", nullptr, LDAP_URL_NOT_LDAP_URL, ""},
    // Hosts and ports: the port is whatever the decimal reading makes of it.
    {"PortWithoutHost", "ldap://:389/", kOk, "-|389|-|-|0 0|-"},
    {"PortNotANumber", "ldap://h:x1/", kOk, "h|0|-|-|0 0|-"},
    {"PortSaturates", "ldap://h:99999999999:2/", kOk, "h|2147483647|-|-|0 0|-"},
    {"Ipv6ZoneEscapedEmptyPort", "ldap://[fe80::1%25en0]:/", kOk, "[fe80::1%en0]|0|-|-|0 0|-"},
    {"CloseBracketWithoutOpen", "ldap://::1]:636/", LDAP_URL_BAD_BRACKETS, ""},
    {"CloseBracketThenText", "ldap://[::1]x:636/", LDAP_URL_BAD_BRACKETS, ""},
    {"OpenBracketAlone", "ldap://[::1/", kOk, "[|0|-|-|0 0|-"},
    // Escapes in every component; escaped separators stay in theirs, and a
    // "%" too close to the end is kept as it stands.
    {"EscapedSeparators", "ldap://h%3a1/o=a%3fb%2F?c%2Cn,m%41il", kOk,
     "h:1|0|o=a?b/|c,n,mAil,|0 0|-"},
    {"TruncatedEscapesKept", "ldap://h%4/o%?a%,b%2?sub?(x=%4", kOk, "h%4|0|o%|a%,b%2,|2 1|(x=%4"},
    {"EscapeBytes", "ldap:///??\?\?(%C3%a9%2541%zz%7g%FF)", kOk,
     "-|0|-|-|0 0|(\xc3\xa9%41S\x80\xff)"},
    {"AttrsEmptyNames", "ldap://h/?cn,,mail,", kOk, "h|0|-|cn,,mail,,|0 0|-"},
    // Scopes in any case, taken as written; filters keep later "?".
    {"ScopeBaseMixedCase", "ldap://h/o?cn?BaSe", kOk, "h|0|o|cn,|0 1|-"},
    {"ScopeSubUpper", "ldap://h/o??SUB?", kOk, "h|0|o|-|2 1|-"},
    {"ScopeEmpty", "ldap://h/o?cn?", kOk, "h|0|o|cn,|0 0|-"},
    {"ScopeEscapedIsNoKeyword", "ldap://h/o??%73ub", LDAP_URL_BAD_SCOPE, ""},
    {"FilterKeepsQuestionMarks", "ldap://h/o?cn?one?(cn=a?b)", kOk, "h|0|o|cn,|1 1|(cn=a?b)"},
    {"FilterAfterThreeMarks", "ldap://h/o=ex?cn??\?(cn=a)", kOk, "h|0|o=ex|cn,|0 0|(cn=a)"},
    {"KeptEmptyScopeFailsTakingFilterAsScope", "ldap://h/o=ex?cn?\?(cn=a)", LDAP_URL_BAD_SCOPE, ""},
    {"KeptEmptyScopeTakesFilterTextAsScope", "ldap://h/o=ex?cn??sub", kOk, "h|0|o=ex|cn,|2 1|-"},
};

class UrlParseTest : public ::testing::TestWithParam<UrlCase> {};

TEST_P(UrlParseTest, GivesTheDocumentedRecord) {
  const UrlCase &c = GetParam();
  qtest::TestAllocator::Scope allocator;
  const std::vector<char> text =
      exactCopy(c.url != nullptr ? c.url : "", c.url != nullptr ? std::strlen(c.url) : 0);
  EXPECT_EQ(ldap_is_ldap_url(text.data()), c.url != nullptr && c.result != LDAP_URL_NOT_LDAP_URL);
  EXPECT_EQ(vsx_ldap_is_ldap_url(text.data()), ldap_is_ldap_url(text.data()));
  for (auto parse : {ldap_url_parse, vsx_ldap_url_parse}) {
    LDAPURLDesc stale{}, *lud = &stale;
    ASSERT_EQ(parse(c.url != nullptr ? text.data() : nullptr, &lud), c.result);
    EXPECT_EQ(describe(lud), c.record);
    (parse == ldap_url_parse ? ldap_free_urldesc : vsx_ldap_free_urldesc)(lud);
  }
  EXPECT_EQ(qtest::TestAllocator::live, 0);
}

void PrintTo(const UrlCase &c, std::ostream *os) { *os << c.name; }

INSTANTIATE_TEST_SUITE_P(Urls, UrlParseTest, ::testing::ValuesIn(kUrlCases),
                         [](const auto &info) { return std::string(info.param.name); });

// Null arguments, the trace of each parse, and no core context: 89 except
// for the yes/no question.
TEST(UrlTest, NullArgumentsTraceAndMissingContext) {
  const gsluMemCallbacks some_table = {};
  const gslcClientHandle no_context = {nullptr, &some_table, nullptr};
  const char *text = "ldap://h/o";
  LDAPURLDesc stale{}, *lud = &stale;
  EXPECT_EQ(ldap_is_ldap_url(nullptr), 0);
  EXPECT_EQ(gslcurf_LdapFreeUrldesc(nullptr, nullptr), GSLCUR_OK);
  {
    qtest::TraceCapture capture;
    EXPECT_EQ(gslcurp_LdapUrlParse(nullptr, "http://x", nullptr), GSLCUR_NULL_ARG);
    EXPECT_EQ(capture.lines(), (qtest::Traces{"16777216 ldap_url_parse(%s)\n[http://x]"}));
  }
  EXPECT_EQ(gslcurs_SkipUrlPrefix(&no_context, &text, nullptr), GSLCUR_NO_CONTEXT);
  EXPECT_EQ(gslcurp_LdapUrlParse(&no_context, text, &lud), GSLCUR_NO_CONTEXT);
  EXPECT_EQ(lud, nullptr);
  EXPECT_EQ(gslcurf_LdapFreeUrldesc(&no_context, nullptr), GSLCUR_NO_CONTEXT);
  EXPECT_EQ(gslcuri_IsLdapUrl(&no_context, text), 0);
}

// Every prefix of the valid URLs, each in a block of exactly its size:
// nothing is read past the terminator, "no URL" is what ldap_is_ldap_url
// refuses, and nothing is left behind.
TEST(UrlTest, EveryTruncatedPrefixParsesWithinItsText) {
  qtest::TestAllocator::Scope allocator;
  for (const UrlCase &c : kUrlCases) {
    for (size_t n = 0; c.result == kOk && n <= std::strlen(c.url); ++n) {
      const std::vector<char> text = exactCopy(c.url, n);
      LDAPURLDesc *lud = nullptr;
      const int st = ldap_url_parse(text.data(), &lud);
      EXPECT_EQ(st == LDAP_URL_NOT_LDAP_URL, ldap_is_ldap_url(text.data()) == 0) << text.data();
      EXPECT_EQ(st == kOk, lud != nullptr) << text.data();
      ldap_free_urldesc(lud);
      EXPECT_EQ(qtest::TestAllocator::live, 0) << text.data();
    }
  }
}

// Failing every allocation from the first, then from the second, ...: 4
// and nothing left allocated, until the record comes out whole.
TEST(UrlTest, AllocationFailuresAreReportedWithoutLeaks) {
  // In the second, the filter's copy is the last allocation.
  for (const char *url :
       {"<URL:ldap://h:1/o=ex?cn,mail?sub?(cn=a%20b)>", "ldap://h/o=ex??sub?(cn=a)"}) {
    LDAPURLDesc *lud = nullptr;
    ASSERT_EQ(ldap_url_parse(url, &lud), kOk);
    const std::string whole = describe(lud);
    ldap_free_urldesc(lud);
    qtest::TestAllocator::Scope allocator;
    int st = LDAP_URL_NO_MEMORY;
    for (size_t budget = 0; st == LDAP_URL_NO_MEMORY && budget < 16; ++budget) {
      qtest::TestAllocator::budget = budget;
      st = ldap_url_parse(url, &lud);
      EXPECT_EQ(describe(lud), st == kOk ? whole : "") << url << " budget " << budget;
      ldap_free_urldesc(lud);
      EXPECT_EQ(qtest::TestAllocator::live, 0) << url << " budget " << budget;
    }
    EXPECT_EQ(st, kOk) << url;
  }
}

}  // namespace

// ber/url.cc - LDAP URLs split into a URL description record. Contracts in
// ber/url.h and ber/ldap_url.h.
//
// The text accepted, with literals matched in any letter case:
//
//   url       = [ "<" ] [ "URL:" ] scheme hostport "/" dnpart [ ">" ]
//               ; the ">" is dropped only after a "<", and only as the very
//               ; last character
//   scheme    = "ldap://" / "ldaps://"          ; not recorded
//   hostport  = host [ ":" port ]               ; no "]" anywhere in it
//             / host "]" ":" port               ; a "[" somewhere before the
//                                               ; "/", the brackets kept in
//                                               ; the host
//   host      = *( any but "/" and ":" )        ; empty: no host
//   port      = *( any but "/" )                ; read as a decimal number:
//                                               ; white space, a sign, digits
//                                               ; (of any script), the rest
//                                               ; ignored; none: 0
//   dnpart    = dn [ "?" attrs [ "?" [ "?" ] scope [ "?" filter ] ] ]
//   dn        = *( any but "?" )                ; empty: no DN
//   attrs     = [ attr *( "," attr ) ]          ; empty: no attribute list
//   attr      = *( any but "," and "?" )
//   scope     = "" / "base" / "one" / "sub"     ; empty: base, not "given"
//   filter    = *( any )                        ; empty: (objectClass=*)
//
// The host, the DN, each attribute name and the filter are %-unescaped after
// they have been cut out, so an escaped separator ("%2C", "%3F", "%2F")
// stays part of its component. The scope keyword is matched as written.
//
// The record owns one working copy of the URL after its prefix; host, DN and
// attribute names are cut out of it in place by writing NULs over the
// separators. The filter and the attribute array are blocks of their own.
#include "ber/url.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include "core/memory.h"
#include "core/output.h"
#include "core/owned.h"
#include "util/strings.h"

namespace {

constexpr char kEnclosingOpen = '<';
constexpr char kEnclosingClose = '>';
constexpr std::string_view kUrlLabel = "URL:";
constexpr std::string_view kSchemes[] = {"ldap://", "ldaps://"};

constexpr char kDnSlash = '/';
constexpr char kPortColon = ':';
constexpr char kBracketOpen = '[';
constexpr char kBracketClose = ']';
constexpr char kQuerySeparator = '?';
constexpr char kAttrSeparator = ',';
constexpr char kEscape = '%';

constexpr char kDefaultFilter[] = LDAP_URL_DEFAULT_FILTER;

// The scope keywords, as the URL writes them.
struct ScopeKeyword {
  std::string_view name;
  int32_t scope;
};
constexpr ScopeKeyword kScopeKeywords[] = {
    {"one", LDAP_SCOPE_ONELEVEL},
    {"base", LDAP_SCOPE_BASE},
    {"sub", LDAP_SCOPE_SUBTREE},
};

// gslcuru_Unhex: what a character that is no decimal or upper-case digit
// loses, so that "a" gives 10.
constexpr int kLowerHexBias = 'a' - 10;
constexpr int kHexBase = 16;
constexpr int kByteMask = 0xff;

// The allocator takes 32-bit sizes.
constexpr uint64_t kMaxBlock = UINT32_MAX;

// Releases a record and every block it owns; the host, DN and attribute
// names go with the working copy.
void releaseRecord(gsluctx *core, LDAPURLDesc *record) {
  (void)gslumfFree(core, record->lud_copy);
  (void)gslumfFree(core, record->lud_attrs);
  (void)gslumfFree(core, record->lud_filter);
  (void)gslumfFree(core, record);
}

struct RecordFree {
  gsluctx *core;
  void operator()(LDAPURLDesc *record) const noexcept { releaseRecord(core, record); }
};
using OwnedRecord = std::unique_ptr<LDAPURLDesc, RecordFree>;

[[nodiscard]] char asciiLower(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// Whether text starts with word, ASCII letters compared without case. The
// walk stops at the first difference, and text's terminator is one (word
// holds no NUL), so nothing after the terminator is read.
[[nodiscard]] bool startsWithIgnoringCase(const char *text, std::string_view word) {
  for (std::size_t i = 0; i < word.size(); ++i) {
    if (asciiLower(text[i]) != asciiLower(word[i])) return false;
  }
  return true;
}

[[nodiscard]] bool equalsIgnoringCase(const char *text, std::string_view word) {
  return startsWithIgnoringCase(text, word) && text[word.size()] == '\0';
}

// The record with its working copy of rest (less the closing ">" of an
// enclosed URL) and the default filter.
[[nodiscard]] int newRecord(gsluctx *core, const char *rest, bool enclosed, OwnedRecord *out) {
  OwnedRecord record(static_cast<LDAPURLDesc *>(gslumcCalloc(core, 1, sizeof(LDAPURLDesc))),
                     RecordFree{core});
  if (record == nullptr) return GSLCUR_NO_MEMORY;
  record->lud_copy = gslussdStrdup(core, rest);
  if (record->lud_copy == nullptr) return GSLCUR_NO_MEMORY;
  const std::size_t length = std::strlen(record->lud_copy);
  if (enclosed && length > 0 && record->lud_copy[length - 1] == kEnclosingClose) {
    record->lud_copy[length - 1] = '\0';
  }
  record->lud_scope = LDAP_SCOPE_BASE;
  record->lud_scope_given = 0;
  record->lud_filter = gslussdStrdup(core, kDefaultFilter);
  if (record->lud_filter == nullptr) return GSLCUR_NO_MEMORY;
  *out = std::move(record);
  return GSLCUR_OK;
}

// Cuts the working copy at its first "/": the copy then holds the host and
// port, and *dn_part the rest.
[[nodiscard]] int cutAtDnSlash(char *copy, char **dn_part) {
  char *slash = std::strchr(copy, kDnSlash);
  if (slash == nullptr) return GSLCUR_NO_DN_SLASH;
  *slash = '\0';
  *dn_part = slash + 1;
  return GSLCUR_OK;
}

// Splits the host from the port, reads the port and stores the unescaped
// host (none when empty).
[[nodiscard]] int parseHostPort(const gslcClientHandle *ctx, gsluctx *core, char *host_port,
                                LDAPURLDesc *record) {
  char *port = nullptr;
  if (char *close = std::strchr(host_port, kBracketClose); close != nullptr) {
    // Deliberate: a host holding "]" must also hold a "[" (anywhere) and go
    // on with ":" and a port; "[::1]/" is refused rather than read as an
    // address without a port, and the brackets stay in the host text.
    // Callers rely on a URL that is refused staying refused.
    if (std::strchr(host_port, kBracketOpen) == nullptr) return GSLCUR_BAD_BRACKETS;
    if (close[1] != kPortColon) return GSLCUR_BAD_BRACKETS;
    close[1] = '\0';
    port = close + 2;
  } else if (char *colon = std::strchr(host_port, kPortColon); colon != nullptr) {
    *colon = '\0';
    port = colon + 1;
  }
  // No validation: the port is whatever the decimal conversion makes of the
  // text (0 for none), saturating rather than overflowing.
  if (port != nullptr) record->lud_port = gslusicIsatoi(core, port);
  if (host_port[0] != '\0') {
    gslcuru_HexUnescape(ctx, host_port);
    record->lud_host = host_port;
  }
  return GSLCUR_OK;
}

// The scope named by text; an empty text keeps the default.
[[nodiscard]] int parseScope(const char *text, LDAPURLDesc *record) {
  if (text[0] == '\0') return GSLCUR_OK;
  for (const ScopeKeyword &keyword : kScopeKeywords) {
    if (equalsIgnoringCase(text, keyword.name)) {
      record->lud_scope = keyword.scope;
      record->lud_scope_given = 1;
      return GSLCUR_OK;
    }
  }
  return GSLCUR_BAD_SCOPE;
}

// Replaces the default filter by the unescaped text, when it is not empty.
[[nodiscard]] int storeFilter(const gslcClientHandle *ctx, gsluctx *core, char *text,
                              LDAPURLDesc *record) {
  if (text[0] == '\0') return GSLCUR_OK;
  gslcuru_HexUnescape(ctx, text);
  char *filter = gslussdStrdup(core, text);
  if (filter == nullptr) return GSLCUR_NO_MEMORY;
  (void)gslumfFree(core, record->lud_filter);
  record->lud_filter = filter;
  return GSLCUR_OK;
}

// Cuts the query off the DN part: *attrs is where the attribute list starts
// (null when there is no "?"); the filter and the scope are stored.
[[nodiscard]] int parseQuery(const gslcClientHandle *ctx, gsluctx *core, char *dn_part,
                             LDAPURLDesc *record, char **attrs) {
  char *first = std::strchr(dn_part, kQuerySeparator);
  if (first == nullptr) return GSLCUR_OK;
  *first = '\0';
  *attrs = first + 1;
  char *second = std::strchr(*attrs, kQuerySeparator);
  if (second == nullptr) return GSLCUR_OK;
  *second = '\0';
  char *scope = second + 1;
  // Deliberate: an empty scope is passed over by dropping the one "?" that
  // follows it, and the text after that is then read as the scope. So
  // "dn?attrs??(cn=a)" fails with 3 (its filter taken for a scope keyword)
  // and "dn?attrs??sub" has scope sub and no filter, as the documentation
  // says these URLs read; "dn?attrs???(cn=a)" gives the filter.
  if (scope[0] == kQuerySeparator) ++scope;
  if (char *third = std::strchr(scope, kQuerySeparator); third != nullptr) {
    *third = '\0';
    if (const int st = storeFilter(ctx, core, third + 1, record); st != GSLCUR_OK) return st;
  }
  return parseScope(scope, record);
}

void storeDn(const gslcClientHandle *ctx, char *dn, LDAPURLDesc *record) {
  if (dn[0] == '\0') return;
  gslcuru_HexUnescape(ctx, dn);
  record->lud_dn = dn;
}

// Splits a non-empty attribute list at its commas into a null-terminated
// array of unescaped names.
[[nodiscard]] int storeAttributes(const gslcClientHandle *ctx, gsluctx *core, char *attrs,
                                  LDAPURLDesc *record) {
  if (attrs == nullptr || attrs[0] == '\0') return GSLCUR_OK;
  uint64_t commas = 0;
  for (const char *p = attrs; *p != '\0'; ++p) commas += (*p == kAttrSeparator) ? 1 : 0;
  // Detect and prevent integer overflow: one slot per name and a null
  // entry (plus one spare slot) must fit a 32-bit block.
  const uint64_t slots = commas + 2;
  if (slots * sizeof(char *) > kMaxBlock) return GSLCUR_NO_MEMORY;
  auto **names =
      static_cast<char **>(gslumcCalloc(core, static_cast<uint32_t>(slots), sizeof(char *)));
  if (names == nullptr) return GSLCUR_NO_MEMORY;
  record->lud_attrs = names;
  for (char *name = attrs;;) {
    char *comma = std::strchr(name, kAttrSeparator);
    if (comma != nullptr) *comma = '\0';
    gslcuru_HexUnescape(ctx, name);
    *names++ = name;
    if (comma == nullptr) break;
    name = comma + 1;
  }
  return GSLCUR_OK;
}

}  // namespace

int gslcurs_SkipUrlPrefix(const gslcClientHandle *ctx, const char **text, int32_t *enclosed) {
  if (gslccx_Getgsluctx(ctx) == nullptr) return GSLCUR_NO_CONTEXT;
  if (enclosed != nullptr) *enclosed = 0;
  if (text == nullptr || *text == nullptr) return GSLCUR_NO_PREFIX;
  const char *p = *text;
  if (*p == kEnclosingOpen) {
    if (enclosed != nullptr) *enclosed = 1;
    ++p;
  }
  if (startsWithIgnoringCase(p, kUrlLabel)) p += kUrlLabel.size();
  for (const std::string_view scheme : kSchemes) {
    if (startsWithIgnoringCase(p, scheme)) {
      *text = p + scheme.size();
      return GSLCUR_PREFIX;
    }
  }
  return GSLCUR_NO_PREFIX;
}

int gslcuri_IsLdapUrl(const gslcClientHandle *ctx, const char *text) {
  return gslcurs_SkipUrlPrefix(ctx, &text, nullptr) == GSLCUR_PREFIX ? 1 : 0;
}

int gslcurp_LdapUrlParse(const gslcClientHandle *ctx, const char *text, LDAPURLDesc **out) {
  // The out-parameter is cleared before anything can fail, so that a caller
  // never frees a stale record, whatever the answer (89 included).
  if (out != nullptr) *out = nullptr;
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return GSLCUR_NO_CONTEXT;
  (void)gslu::trace(core, GSLCUR_TRACE_LEVEL, "ldap_url_parse(%s)\n", text);
  if (out == nullptr) return GSLCUR_NULL_ARG;
  const char *rest = text;
  int32_t enclosed = 0;
  if (gslcurs_SkipUrlPrefix(ctx, &rest, &enclosed) != GSLCUR_PREFIX) return GSLCUR_NOT_LDAP_URL;

  OwnedRecord record(nullptr, RecordFree{core});
  char *dn = nullptr;
  char *attrs = nullptr;
  int st = newRecord(core, rest, enclosed != 0, &record);
  if (st == GSLCUR_OK) st = cutAtDnSlash(record->lud_copy, &dn);
  if (st == GSLCUR_OK) st = parseHostPort(ctx, core, record->lud_copy, record.get());
  if (st == GSLCUR_OK) st = parseQuery(ctx, core, dn, record.get(), &attrs);
  if (st != GSLCUR_OK) return st;
  storeDn(ctx, dn, record.get());
  if (st = storeAttributes(ctx, core, attrs, record.get()); st != GSLCUR_OK) return st;
  *out = record.release();
  return GSLCUR_OK;
}

int gslcurf_LdapFreeUrldesc(const gslcClientHandle *ctx, LDAPURLDesc *record) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return GSLCUR_NO_CONTEXT;
  if (record != nullptr) releaseRecord(core, record);
  return GSLCUR_OK;
}

void gslcuru_HexUnescape(const gslcClientHandle *ctx, char *text) {
  if (text == nullptr) return;
  char *out = text;
  const char *in = text;
  while (*in != '\0') {
    // A "%" too close to the terminator for two digits is an ordinary
    // character: the check of in[1] keeps in[2] from being read past the
    // end.
    if (in[0] == kEscape && in[1] != '\0' && in[2] != '\0') {
      const int value = kHexBase * gslcuru_Unhex(ctx, in[1]) + gslcuru_Unhex(ctx, in[2]);
      *out++ = static_cast<char>(static_cast<unsigned char>(value & kByteMask));
      in += 3;
    } else {
      *out++ = *in++;
    }
  }
  *out = '\0';
}

int gslcuru_Unhex(const gslcClientHandle * /*ctx*/, char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  // Deliberate: no error for a character that is no hex digit; it gives a
  // meaningless value, and the escape a meaningless byte, which callers
  // check for themselves rather than have the URL refused.
  return c - kLowerHexBias;
}

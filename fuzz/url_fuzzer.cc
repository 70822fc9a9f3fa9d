// libFuzzer target for the LDAP URL parser: parses arbitrary text (up to its
// first NUL, in a block of exactly its size) and checks the record: a result
// from the documented set, "no URL" exactly when ldap_is_ldap_url says so,
// every text of the record inside the working copy and readable to its end,
// a scope in range, and nothing left allocated (the leak check of the
// sanitizer run). The %-decoder is also run alone: it never lengthens text.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "ber/url.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

bool isDocumentedResult(int st) {
  // Out of memory is left out: the fuzzer's allocator does not fail.
  return st == GSLCUR_OK || st == GSLCUR_NOT_LDAP_URL || st == GSLCUR_NO_DN_SLASH ||
         st == GSLCUR_BAD_SCOPE || st == GSLCUR_BAD_BRACKETS;
}

// p lies within the working copy of copy_size bytes, and its text ends there.
void checkInside(const char *p, const char *copy, size_t copy_size) {
  if (p == nullptr) return;
  check(p >= copy && p < copy + copy_size);
  check(p + std::strlen(p) < copy + copy_size);
}

void checkRecord(const LDAPURLDesc *lud, const char *url) {
  const char *rest = url;
  check(gslcurs_SkipUrlPrefix(nullptr, &rest, nullptr) == GSLCUR_PREFIX);
  const size_t copy_size = std::strlen(rest) + 1;
  check(lud->lud_copy != nullptr);
  checkInside(lud->lud_host, lud->lud_copy, copy_size);
  checkInside(lud->lud_dn, lud->lud_copy, copy_size);
  if (lud->lud_attrs != nullptr) {
    check(lud->lud_attrs[0] != nullptr);
    for (char **a = lud->lud_attrs; *a != nullptr; ++a) checkInside(*a, lud->lud_copy, copy_size);
  }
  check(lud->lud_scope >= LDAP_SCOPE_BASE && lud->lud_scope <= LDAP_SCOPE_SUBTREE);
  check(lud->lud_scope_given == 0 || lud->lud_scope_given == 1);
  check(lud->lud_scope_given == 1 || lud->lud_scope == LDAP_SCOPE_BASE);
  // The filter is the default or was cut out of the copy.
  check(lud->lud_filter != nullptr);
  check(std::strcmp(lud->lud_filter, LDAP_URL_DEFAULT_FILTER) == 0 ||
        std::strlen(lud->lud_filter) < copy_size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  // The core context finds its message catalogue through VSX_LDAP_MESGDIR,
  // defaulting to the build tree's.
  static const int ready = setenv("VSX_LDAP_MESGDIR", QUILLOMAT_MESGDIR, 0);
  (void)ready;
  std::vector<char> text(data, data + size);
  text.push_back('\0');
  const char *url = text.data();

  LDAPURLDesc *lud = nullptr;
  const int st = gslcurp_LdapUrlParse(nullptr, url, &lud);
  check(isDocumentedResult(st));
  check((st == GSLCUR_NOT_LDAP_URL) == (gslcuri_IsLdapUrl(nullptr, url) == 0));
  check((st == GSLCUR_OK) == (lud != nullptr));
  if (lud != nullptr) checkRecord(lud, url);
  check(gslcurf_LdapFreeUrldesc(nullptr, lud) == GSLCUR_OK);

  std::vector<char> decoded(text);
  gslcuru_HexUnescape(nullptr, decoded.data());
  check(std::strlen(decoded.data()) <= std::strlen(url));
  return 0;
}

// ber/ldap_url.cc - the exported URL API: each function hands the
// process-wide core context (a null handle) to its internal twin. Contracts
// in ber/ldap_url.h.
#include "ber/ldap_url.h"

#include "ber/url.h"

int ldap_url_parse(const char *url, LDAPURLDesc **ludpp) {
  return gslcurp_LdapUrlParse(nullptr, url, ludpp);
}
void ldap_free_urldesc(LDAPURLDesc *ludp) { (void)gslcurf_LdapFreeUrldesc(nullptr, ludp); }
int ldap_is_ldap_url(const char *url) { return gslcuri_IsLdapUrl(nullptr, url); }

int vsx_ldap_url_parse(const char *url, LDAPURLDesc **ludpp) {
  return gslcurp_LdapUrlParse(nullptr, url, ludpp);
}
void vsx_ldap_free_urldesc(LDAPURLDesc *ludp) { (void)gslcurf_LdapFreeUrldesc(nullptr, ludp); }
int vsx_ldap_is_ldap_url(const char *url) { return gslcuri_IsLdapUrl(nullptr, url); }

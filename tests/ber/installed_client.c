/* A directory client built against the installed library: encodes a
 * request, reads it back, splits an LDAP URL, and prints "ok" when every
 * value came back. ldap_url.h comes first: it compiles on its own. */
/* clang-format off */
#include <ldap_url.h>
#include <lber.h>
/* clang-format on */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void) {
  BerElement *ber = ber_alloc_t(LBER_USE_DER);
  struct berval *bytes = NULL;
  if (ber == NULL ||
      ber_printf(ber, "{it{ists}}", 7, (ber_tag_t)0x60, 3, "cn=admin", (ber_tag_t)0x80, "secret") ==
          -1 ||
      ber_flatten(ber, &bytes) != 0) {
    fputs("encoding failed\n", stderr);
    return 1;
  }
  ber_free(ber, 1);

  BerElement *in = vsx_ldap_ber_init(bytes);
  ber_int_t id = 0, version = 0;
  ber_tag_t request = 0;
  char *dn = NULL;
  struct berval *password = NULL;
  const ber_tag_t last = ber_scanf(in, "{iTiaO}", &id, &request, &version, &dn, &password);
  LDAPURLDesc *url = NULL;
  const int parsed =
      ldap_is_ldap_url("ldap://h:389/o=ex?cn?sub?(cn=a%20b)") &&
      vsx_ldap_url_parse("ldap://h:389/o=ex?cn?sub?(cn=a%20b)", &url) == LDAP_URL_OK &&
      url->lud_port == 389 && url->lud_scope == LDAP_SCOPE_SUBTREE &&
      strcmp(url->lud_attrs[0], "cn") == 0 && strcmp(url->lud_filter, "(cn=a b)") == 0;
  ldap_free_urldesc(url);
  const int ok = parsed && last == 0x80 && id == 7 && request == 0x60 && version == 3 &&
                 strcmp(dn, "cn=admin") == 0 && password->bv_len == 6 &&
                 memcmp(password->bv_val, "secret", 6) == 0;
  free(dn);
  ber_bvfree(password);
  ber_free(in, 1);
  ber_bvfree(bytes);
  puts(ok ? "ok" : "values differ");
  return ok ? 0 : 1;
}

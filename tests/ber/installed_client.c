/* A directory client built against the installed library: every exported
 * function, under both prefixes, encodes a request, reads it back and
 * splits an LDAP URL; "ok" when every value came back. ldap_url.h comes
 * first: it compiles on its own. */
/* clang-format off */
#include <ldap_url.h>
#include <lber.h>
/* clang-format on */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The round trip through the functions named P##ber_..., U##url_... and so
 * on; END closes the outer sequence. The dump goes to the log. */
#define ROUND_TRIP(P, U, END)                                                                     \
  static int round_trip_##END(void) {                                                             \
    BerElement *out = P##ber_alloc_t(LBER_USE_DER), *in = NULL;                                   \
    struct berval stale = {0, NULL}, *bytes = NULL, *dn = NULL, *none = &stale;                   \
    ber_int_t id = 0, yes = 0;                                                                    \
    ber_len_t len = 0;                                                                            \
    LDAPURLDesc *url = NULL;                                                                      \
    int ok = P##ber_start_seq(out, LBER_DEFAULT) == 0 && P##ber_put_int(out, 7, 0x80) == 3 &&     \
             P##ber_start_seq(out, 0xa1) == 0 && P##ber_put_ostring(out, "cn=a", 4, 0x04) == 6 && \
             P##ber_put_boolean(out, 2, LBER_DEFAULT) == 3 && P##ber_put_seq(out) == 11 &&        \
             P##ber_printf(out, "n") == 2 && END(out) == 18 && P##ber_flatten(out, &bytes) == 0;  \
    P##ber_free(out, 1);                                                                          \
    in = P##ber_init(bytes);                                                                      \
    ok = ok && P##ber_peek_tag(in, &len) == 0x30 && len == 16 &&                                  \
         P##ber_skip_tag(in, &len) == 0x30 && P##ber_get_int(in, &id) == 0x80 && id == 7 &&       \
         P##ber_skip_tag(in, &len) == 0xa1 && len == 9 &&                                         \
         P##ber_scanf(in, "lO", &len, &dn) == 0x04 && len == 4 && dn->bv_len == 4 &&              \
         memcmp(dn->bv_val, "cn=a", 4) == 0 && P##ber_get_boolean(in, &yes) == 1 && yes == -1 &&  \
         P##ber_get_tag(in) == 0x05 && P##ber_get_ostring(in, &none) == LBER_ERROR &&             \
         none == NULL;                                                                            \
    P##ber_dump(in, 1);                                                                           \
    P##ber_bvfree(dn);                                                                            \
    P##ber_bvfree(bytes);                                                                         \
    P##ber_free(in, 1);                                                                           \
    ok = ok && U##is_ldap_url("<URL:ldaps://h:389/o=ex?cn?sub?(cn=a%20b)>") &&                    \
         U##url_parse("ldap://h:389/o=ex?cn?sub?(cn=a%20b)", &url) == LDAP_URL_OK &&              \
         url->lud_port == 389 && url->lud_scope == LDAP_SCOPE_SUBTREE &&                          \
         strcmp(url->lud_attrs[0], "cn") == 0 && strcmp(url->lud_filter, "(cn=a b)") == 0;        \
    U##free_urldesc(url);                                                                         \
    return ok;                                                                                    \
  }
ROUND_TRIP(, ldap_, ber_put_seq)
ROUND_TRIP(vsx_ldap_, vsx_ldap_, vsx_ldap_ber_end_seq)

int main(void) {
  const int ok = round_trip_ber_put_seq() && round_trip_vsx_ldap_ber_end_seq();
  puts(ok ? "ok" : "values differ");
  return ok ? 0 : 1;
}

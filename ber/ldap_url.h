/*
 * ldap_url.h - LDAP URLs for directory clients, split into a URL
 * description record: the conventional LDAP C API's URL calls, from
 * libquillomat.
 *
 * Link with `cc ... $(pkg-config --cflags --libs quillomat)`.
 *
 * Accepted form (see ber/url.cc for the full grammar):
 *
 *     [<][URL:]ldap[s]://[host[:port]]/[dn[?[attrs][?[scope][?filter]]]][>]
 *
 * The scheme letters and "URL:" may be in any case; "ldaps" gives the same
 * record as "ldap" (the scheme is not recorded). A URL written between "<"
 * and ">" loses both.
 *
 * Conventions:
 *   1. ldap_url_parse() hands back a record that the caller releases with
 *      ldap_free_urldesc(), and nothing else: every text it points to lives
 *      in blocks the record owns. On any failure *ludpp is null and nothing
 *      is left allocated.
 *   2. Memory comes from the process-wide core context's allocator (created
 *      on first use); without one the functions answer LDAP_URL_NO_CONTEXT.
 *   3. The vsx_ldap_ functions are the same functions under the library's
 *      own prefix.
 *
 * Example:
 *
 *     LDAPURLDesc *lud = NULL;
 *     if (ldap_url_parse("ldap://h:389/o=ex?cn,mail?sub?(cn=a%20b)", &lud) == 0) {
 *         ... lud->lud_host "h", lud->lud_port 389, lud->lud_dn "o=ex",
 *         ... lud->lud_attrs {"cn", "mail", NULL}, lud->lud_scope
 *         ... LDAP_SCOPE_SUBTREE, lud->lud_filter "(cn=a b)"
 *         ldap_free_urldesc(lud);
 *     }
 *
 * This header compiles as C11 on its own (with ldap_export.h beside it).
 */
#ifndef QUILLOMAT_BER_LDAP_URL_H
#define QUILLOMAT_BER_LDAP_URL_H

#include <stdint.h>

#include "ldap_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Results of ldap_url_parse(). */
enum {
  LDAP_URL_OK = 0,
  LDAP_URL_NOT_LDAP_URL = 1, /* no "ldap://" or "ldaps://" prefix, or a
                                null text or out-parameter */
  LDAP_URL_NO_DN_SLASH = 2,  /* no "/" after the host and port */
  LDAP_URL_BAD_SCOPE = 3,    /* scope other than base, one or sub */
  LDAP_URL_NO_MEMORY = 4,
  LDAP_URL_NO_CONTEXT = 89,  /* no core context can be had */
  LDAP_URL_BAD_BRACKETS = -1 /* "]" without "[", or "]" not followed by
                                ":" and a port */
};

/* Search scopes. */
enum { LDAP_SCOPE_BASE = 0, LDAP_SCOPE_ONELEVEL = 1, LDAP_SCOPE_SUBTREE = 2 };

/* The filter of a URL that gives none. */
#define LDAP_URL_DEFAULT_FILTER "(objectClass=*)"

/* One parsed URL. host, dn and the attribute names point into lud_copy;
 * lud_attrs, lud_filter and lud_copy are owned by the record. */
typedef struct LDAPURLDesc {
  char *lud_host;          /* unescaped host, brackets of an IPv6 address
                              kept; null when the URL names none */
  int32_t lud_port;        /* 0 when the URL gives none */
  char *lud_dn;            /* unescaped DN; null when empty */
  char **lud_attrs;        /* unescaped names, null-terminated; null when the
                              URL lists none */
  int32_t lud_scope;       /* LDAP_SCOPE_*; LDAP_SCOPE_BASE by default */
  char *lud_filter;        /* unescaped filter; LDAP_URL_DEFAULT_FILTER when
                              the URL gives none */
  char *lud_copy;          /* working copy of the URL after its prefix, cut
                              into the texts above */
  int32_t lud_scope_given; /* 1 when the URL named a scope, else 0 */
} LDAPURLDesc;

/* Splits url into a new record in *ludpp (null first, and on any failure).
 * Returns LDAP_URL_OK or one of the results above. */
QUILLOMAT_EXPORT int ldap_url_parse(const char *url, LDAPURLDesc **ludpp);

/* Releases a record of ldap_url_parse(); nothing for null. */
QUILLOMAT_EXPORT void ldap_free_urldesc(LDAPURLDesc *ludp);

/* 1 when url starts with an LDAP URL prefix ("<" and "URL:" allowed before
 * "ldap://" or "ldaps://"), else 0 (also for null). */
QUILLOMAT_EXPORT int ldap_is_ldap_url(const char *url);

QUILLOMAT_EXPORT int vsx_ldap_url_parse(const char *url, LDAPURLDesc **ludpp);
QUILLOMAT_EXPORT void vsx_ldap_free_urldesc(LDAPURLDesc *ludp);
QUILLOMAT_EXPORT int vsx_ldap_is_ldap_url(const char *url);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_BER_LDAP_URL_H */

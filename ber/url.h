/*
 * ber/url.h - the LDAP URL parser behind ber/ldap_url.h, with a client
 * handle first.
 *
 * Conventions (those of core/context.h, plus):
 *   1. Every operation takes a client handle first and works on the core
 *      context that gslccx_Getgsluctx() finds for it (a null handle: the
 *      process-wide one). When none can be had the operation answers
 *      GSLCUR_NO_CONTEXT (89) before looking at anything else; the yes/no
 *      question gslcuri_IsLdapUrl answers 0 instead, so that 89 is never
 *      taken for "yes". The two %-decoding helpers need no service and do
 *      not consult the handle.
 *   2. The record and its texts come from the core context's allocator and
 *      go back with gslcurf_LdapFreeUrldesc(); a parse that fails leaves
 *      nothing allocated.
 *   3. Text is NUL-terminated and read no further than its terminator.
 */
#ifndef QUILLOMAT_BER_URL_H
#define QUILLOMAT_BER_URL_H

#include <stdint.h>

#include "ber/ldap_url.h"
#include "core/context.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Results of gslcurp_LdapUrlParse and gslcurf_LdapFreeUrldesc. */
enum {
  GSLCUR_OK = LDAP_URL_OK,
  GSLCUR_NOT_LDAP_URL = LDAP_URL_NOT_LDAP_URL,
  GSLCUR_NULL_ARG = LDAP_URL_NOT_LDAP_URL, /* null out-parameter: refused
                                              like text that is no URL */
  GSLCUR_NO_DN_SLASH = LDAP_URL_NO_DN_SLASH,
  GSLCUR_BAD_SCOPE = LDAP_URL_BAD_SCOPE,
  GSLCUR_NO_MEMORY = LDAP_URL_NO_MEMORY,
  GSLCUR_NO_CONTEXT = LDAP_URL_NO_CONTEXT,
  GSLCUR_BAD_BRACKETS = LDAP_URL_BAD_BRACKETS
};

/* Answers of gslcurs_SkipUrlPrefix and gslcuri_IsLdapUrl. */
enum { GSLCUR_NO_PREFIX = 0, GSLCUR_PREFIX = 1 };

/* Trace level of the line "ldap_url_parse(<url>)" written by each parse. */
enum { GSLCUR_TRACE_LEVEL = 0x1000000 };

/* Recognises an LDAP URL prefix at *text: an optional "<" (*enclosed is then
 * 1, else 0), an optional "URL:", then "ldap://" or "ldaps://", letters in
 * any case. GSLCUR_PREFIX with *text advanced past the prefix; otherwise
 * GSLCUR_NO_PREFIX with *text as it was (also for a null text or *text).
 * enclosed may be null. 89 without a core context. */
int gslcurs_SkipUrlPrefix(const gslcClientHandle *ctx, const char **text, int32_t *enclosed);

/* 1 when gslcurs_SkipUrlPrefix recognises text, else 0 (also for a null
 * text and when there is no core context). */
int gslcuri_IsLdapUrl(const gslcClientHandle *ctx, const char *text);

/* Splits text into a new record in *out, which is set to null first and
 * stays null on every failure. Traces "ldap_url_parse(%s)\n" with the text
 * at GSLCUR_TRACE_LEVEL. Returns GSLCUR_OK, or: 1 no recognised prefix (also
 * a null text or out), 2 no "/" after the host and port, 3 an unknown scope
 * keyword, 4 out of memory, 89 no core context, -1 a "]" in the host without
 * a "[", or not followed by ":". */
int gslcurp_LdapUrlParse(const gslcClientHandle *ctx, const char *text, LDAPURLDesc **out);

/* Releases record with its working copy, attribute array and filter. 0, also
 * for a null record; 89 without a core context (nothing is released). */
int gslcurf_LdapFreeUrldesc(const gslcClientHandle *ctx, LDAPURLDesc *record);

/* Decodes the %-escapes of text in place: "%" and the two characters after
 * it become the byte 16 * gslcuru_Unhex(first) + gslcuru_Unhex(second) (cut
 * to 8 bits); other characters are kept. A "%" with fewer than two
 * characters before the terminator is kept as it stands, with what follows
 * it. Nothing for a null text. */
void gslcuru_HexUnescape(const gslcClientHandle *ctx, char *text);

/* The value of the hex digit c: "0"-"9" 0-9, "A"-"F" 10-15, any other c
 * gives c - 87 (so "a"-"f" 10-15; other characters meaningless values,
 * without an error). */
int gslcuru_Unhex(const gslcClientHandle *ctx, char c);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_BER_URL_H */

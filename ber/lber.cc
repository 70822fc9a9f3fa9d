// ber/lber.cc - the exported BER API: each function hands the process-wide
// core context (null) to its internal twin. Contracts in ber/lber.h.
#include "ber/lber.h"

#include <cstdarg>

#include "ber/decode.h"
#include "ber/encode.h"
#include "ber/io.h"

extern "C" {

// ---- ber_* ----------------------------------------------------------------------------

BerElement *ber_alloc_t(int options) { return gsleioHBerAllocT(nullptr, options); }
BerElement *ber_init(struct berval *bv) { return gsleioQBerInitBerval(nullptr, bv); }
void ber_free(BerElement *ber, int freebuf) { gsleioFBerFree(nullptr, ber, freebuf); }
int ber_flatten(BerElement *ber, struct berval **bvPtr) {
  return gsleioPBerFlatten(nullptr, ber, bvPtr);
}
void ber_bvfree(struct berval *bv) { gsledeOBerBvfree(nullptr, bv); }
void ber_dump(BerElement *ber, int inout) { gsleioNBerDump(nullptr, ber, inout); }

int ber_printf(BerElement *ber, const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  const int result = gsleenSBerPrintfV(nullptr, ber, fmt, ap);
  va_end(ap);
  return result;
}

int ber_start_seq(BerElement *ber, ber_tag_t tag) { return gsleenNBerStartSeq(nullptr, ber, tag); }
int ber_put_seq(BerElement *ber) { return gsleenPBerPutSeqorset(nullptr, ber); }
int ber_put_ostring(BerElement *ber, const char *str, ber_len_t len, ber_tag_t tag) {
  return gsleenHBerPutOstring(nullptr, ber, str, len, tag);
}
int ber_put_int(BerElement *ber, ber_int_t num, ber_tag_t tag) {
  return gsleenGBerPutInt(nullptr, ber, num, tag);
}
int ber_put_boolean(BerElement *ber, ber_int_t boolval, ber_tag_t tag) {
  return gsleenLBerPutBoolean(nullptr, ber, boolval, tag);
}

ber_tag_t ber_scanf(BerElement *ber, const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  const ber_tag_t result = gsledeNBerScanfV(nullptr, ber, fmt, ap);
  va_end(ap);
  return result;
}

ber_tag_t ber_get_tag(BerElement *ber) { return gsledeABerGetTag(nullptr, ber); }
ber_tag_t ber_peek_tag(BerElement *ber, ber_len_t *len) {
  return gsledeCBerPeekTag(nullptr, ber, len);
}
ber_tag_t ber_skip_tag(BerElement *ber, ber_len_t *len) {
  return gsledeBBerSkipTag(nullptr, ber, len);
}
ber_tag_t ber_get_int(BerElement *ber, ber_int_t *num) {
  return gsledeEBerGetInt(nullptr, ber, num);
}
ber_tag_t ber_get_boolean(BerElement *ber, ber_int_t *boolval) {
  return gsledeKBerGetBoolean(nullptr, ber, boolval);
}
ber_tag_t ber_get_ostring(BerElement *ber, struct berval **bv) {
  return gsledeHBerGetStringal(nullptr, ber, bv);
}

// ---- vsx_ldap_ber_* ---------------------------------------------------------------------

BerElement *vsx_ldap_ber_alloc_t(int options) { return gsleioHBerAllocT(nullptr, options); }
BerElement *vsx_ldap_ber_init(struct berval *bv) { return gsleioQBerInitBerval(nullptr, bv); }
void vsx_ldap_ber_free(BerElement *ber, int freebuf) { gsleioFBerFree(nullptr, ber, freebuf); }
int vsx_ldap_ber_flatten(BerElement *ber, struct berval **bvPtr) {
  return gsleioPBerFlatten(nullptr, ber, bvPtr);
}
void vsx_ldap_ber_bvfree(struct berval *bv) { gsledeOBerBvfree(nullptr, bv); }
void vsx_ldap_ber_dump(BerElement *ber, int inout) { gsleioNBerDump(nullptr, ber, inout); }

int vsx_ldap_ber_printf(BerElement *ber, const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  const int result = gsleenSBerPrintfV(nullptr, ber, fmt, ap);
  va_end(ap);
  return result;
}

int vsx_ldap_ber_start_seq(BerElement *ber, ber_tag_t tag) {
  return gsleenNBerStartSeq(nullptr, ber, tag);
}
int vsx_ldap_ber_put_seq(BerElement *ber) { return gsleenPBerPutSeqorset(nullptr, ber); }
int vsx_ldap_ber_end_seq(BerElement *ber) { return gsleenPBerPutSeqorset(nullptr, ber); }
int vsx_ldap_ber_put_ostring(BerElement *ber, const char *str, ber_len_t len, ber_tag_t tag) {
  return gsleenHBerPutOstring(nullptr, ber, str, len, tag);
}
int vsx_ldap_ber_put_int(BerElement *ber, ber_int_t num, ber_tag_t tag) {
  return gsleenGBerPutInt(nullptr, ber, num, tag);
}
int vsx_ldap_ber_put_boolean(BerElement *ber, ber_int_t boolval, ber_tag_t tag) {
  return gsleenLBerPutBoolean(nullptr, ber, boolval, tag);
}

ber_tag_t vsx_ldap_ber_scanf(BerElement *ber, const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  const ber_tag_t result = gsledeNBerScanfV(nullptr, ber, fmt, ap);
  va_end(ap);
  return result;
}

ber_tag_t vsx_ldap_ber_get_tag(BerElement *ber) { return gsledeABerGetTag(nullptr, ber); }
ber_tag_t vsx_ldap_ber_peek_tag(BerElement *ber, ber_len_t *len) {
  return gsledeCBerPeekTag(nullptr, ber, len);
}
ber_tag_t vsx_ldap_ber_skip_tag(BerElement *ber, ber_len_t *len) {
  return gsledeBBerSkipTag(nullptr, ber, len);
}
ber_tag_t vsx_ldap_ber_get_int(BerElement *ber, ber_int_t *num) {
  return gsledeEBerGetInt(nullptr, ber, num);
}
ber_tag_t vsx_ldap_ber_get_boolean(BerElement *ber, ber_int_t *boolval) {
  return gsledeKBerGetBoolean(nullptr, ber, boolval);
}
ber_tag_t vsx_ldap_ber_get_ostring(BerElement *ber, struct berval **bv) {
  return gsledeHBerGetStringal(nullptr, ber, bv);
}

}  // extern "C"

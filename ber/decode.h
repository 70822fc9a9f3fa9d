/*
 * ber/decode.h - reading BER elements: tags, lengths, the primitive types,
 * the elements of a sequence, and the format-driven gsledeNBerScanf.
 *
 * Conventions (those of ber/io.h, plus):
 *   1. Get functions return the tag read, or LBER_ERROR (0xFFFFFFFF). They
 *      consume what they read, also when they fail part-way.
 *   2. Nothing is ever read past the element's end, whatever the bytes say:
 *        - a tag in the high-tag-number form (low five bits of its first
 *          byte all 1) continues while a byte has its top bit set, at most
 *          four bytes in all; a fourth byte with the top bit set fails;
 *        - a length byte up to 127 is the length; otherwise its low seven
 *          bits count the length bytes that follow (more than 4 fail, 0
 *          gives length 0), big-endian;
 *        - a length longer than what remains of the element fails;
 *        - an INTEGER, ENUMERATED or BOOLEAN of more than four content
 *          bytes fails; its content is sign-extended from its top bit.
 *   3. Out-parameters that receive blocks are set to null first; on failure
 *      nothing stays allocated for them.
 */
#ifndef QUILLOMAT_BER_DECODE_H
#define QUILLOMAT_BER_DECODE_H

#include <stdarg.h>
#include <stdint.h>

#include "ber/io.h"
#include "core/context.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The next tag alone. */
uint32_t gsledeABerGetTag(gsluctx *ctx, gsleBerElement *ber);

/* The next tag and its length (*length, 0 on failure); gsledeBBerSkipTag
 * consumes both, gsledeCBerPeekTag nothing. */
uint32_t gsledeBBerSkipTag(gsluctx *ctx, gsleBerElement *ber, uint32_t *length);
uint32_t gsledeCBerPeekTag(gsluctx *ctx, gsleBerElement *ber, uint32_t *length);

/* Reads length (at most 4) content bytes as a signed big-endian number into
 * *value: length, or -1 (more than 4 bytes, or fewer remain). */
int32_t gsledeDBerGetnint(gsluctx *ctx, gsleBerElement *ber, int32_t *value, uint32_t length);

/* An INTEGER (any tag) into *value. */
uint32_t gsledeEBerGetInt(gsluctx *ctx, gsleBerElement *ber, int32_t *value);

/* An OCTET STRING into buffer, NUL-terminated; *length is the buffer's size
 * on entry and the string's length on success. Fails when the string and
 * its NUL do not fit (*length is then unchanged). */
uint32_t gsledeFBerGetStringb(gsluctx *ctx, gsleBerElement *ber, char *buffer, uint32_t *length);

/* *text = a new NUL-terminated copy of an OCTET STRING's bytes. */
uint32_t gsledeGBerGetStringa(gsluctx *ctx, gsleBerElement *ber, char **text);

/* *value = a new struct berval holding an OCTET STRING (bv_val also
 * NUL-terminated); release it with gsledeOBerBvfree. */
uint32_t gsledeHBerGetStringal(gsluctx *ctx, gsleBerElement *ber, struct berval **value);

/* *bytes = a new copy of a BIT STRING's bytes (at least one byte is
 * allocated), *bits = its length in bits. The leading unused-bit count must
 * be at most 7, and 0 when no byte follows. */
uint32_t gsledeIBerGetBitstringa(gsluctx *ctx, gsleBerElement *ber, char **bytes, uint32_t *bits);

/* A NULL: fails unless its length is 0. */
uint32_t gsledeJBerGetNull(gsluctx *ctx, gsleBerElement *ber);

/* A BOOLEAN into *value, read as gsledeEBerGetInt reads an INTEGER. */
uint32_t gsledeKBerGetBoolean(gsluctx *ctx, gsleBerElement *ber, int32_t *value);

/* Walking the elements of a sequence: gsledeLBerFirstElement consumes the
 * sequence's tag and length, sets *last to the end of its content and peeks
 * at the first element; gsledeMBerNextElement peeks at the next one. Each
 * returns the element's tag with *length its length, or LBER_DEFAULT when
 * the sequence holds no more. When the sequence's own tag or length cannot
 * be read, gsledeLBerFirstElement fails with *last null. */
uint32_t gsledeLBerFirstElement(gsluctx *ctx, gsleBerElement *ber, uint32_t *length,
                                unsigned char **last);
uint32_t gsledeMBerNextElement(gsluctx *ctx, gsleBerElement *ber, uint32_t *length,
                               const unsigned char *last);

/* Release a struct berval and its bytes / a null-terminated array of them
 * and the array. Nothing for null. */
void gsledeOBerBvfree(gsluctx *ctx, struct berval *value);
void gsledePBerBvecfree(gsluctx *ctx, struct berval **values);

/* A new copy of value (bytes NUL-terminated), or null. */
struct berval *gsledeQBerBvdup(gsluctx *ctx, const struct berval *value);

/* Reads the format's elements letter by letter, storing through the
 * arguments as ber/lber.h lists. Returns the last tag read (0 when nothing
 * was read), or LBER_ERROR. On failure, everything the call allocated for
 * the caller is released and those out-parameters are null again (a berval
 * filled in place: bv_val null, bv_len 0), the trace
 * "gsledeNBerScanf fmt (%s) ber:\n" with the format goes out at
 * GSLE_TRACE_BER, and the element's remaining bytes are dumped with
 * gsleioNBerDump. An unknown letter also traces "unknown fmt %c\n" first.
 * LBER_ERROR for a null ber or format, without trace. */
uint32_t gsledeNBerScanf(gsluctx *ctx, gsleBerElement *ber, const char *format, ...);
uint32_t gsledeNBerScanfV(gsluctx *ctx, gsleBerElement *ber, const char *format, va_list ap);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_BER_DECODE_H */

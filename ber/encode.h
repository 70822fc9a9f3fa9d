/*
 * ber/encode.h - writing BER elements: tags, lengths, the primitive types,
 * sequences and sets, and the format-driven gsleenSBerPrintf.
 *
 * Conventions (those of ber/io.h, plus):
 *   1. Element functions take (ctx, ber, value(s), tag); the tag LBER_DEFAULT
 *      selects the universal tag: INTEGER 0x02, ENUMERATED 0x0a, OCTET STRING
 *      0x04, NULL 0x05, BOOLEAN 0x01, BIT STRING 0x03, SEQUENCE 0x30,
 *      SET 0x31.
 *   2. They return the bytes written (tag, length and content), or -1. A
 *      failing write leaves what was already written in place.
 *   3. Tags are numbers whose big-endian bytes are the encoded tag: 4 bytes
 *      above 0xffffff, 3 above 0xffff, 2 from 256, else 1. Lengths below 128
 *      take one byte, others 0x80 + n and n big-endian bytes (n from 1 to 4).
 *   4. Integers take the fewest two's-complement bytes that keep the sign.
 *   5. Sequences and sets: content written while one is open goes into it.
 *      Closing writes its tag and length in front of the content: with
 *      GSLE_OPT_SHORT_LENGTHS the shortest length, otherwise always five
 *      bytes (0x84 and four length bytes).
 */
#ifndef QUILLOMAT_BER_ENCODE_H
#define QUILLOMAT_BER_ENCODE_H

#include <stdarg.h>
#include <stdint.h>

#include "ber/io.h"
#include "core/context.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes the tag takes (1 to 4). */
uint32_t gsleenABerCalcTaglen(uint32_t tag);

/* Bytes a length takes in its shortest form: 1 below 128, 2 below 256, 3
 * below 65536, 4 up to 0xffffff, else 5. */
uint32_t gsleenCBerCalcLenlen(uint32_t length);

/* Write a tag / a length (shortest form), to ptr when top_level is non-zero,
 * else where gsleioDBerWrite puts them. The bytes written, or -1. */
int32_t gsleenBBerPutTag(gsluctx *ctx, gsleBerElement *ber, uint32_t tag, int32_t top_level);
int32_t gsleenDBerPutLen(gsluctx *ctx, gsleBerElement *ber, uint32_t length, int32_t top_level);

/* INTEGER or ENUMERATED of value under tag (no universal default). */
int32_t gsleenEBerPutIntOrEnum(gsluctx *ctx, gsleBerElement *ber, int32_t value, uint32_t tag);
int32_t gsleenFBerPutEnum(gsluctx *ctx, gsleBerElement *ber, int32_t value, uint32_t tag);
int32_t gsleenGBerPutInt(gsluctx *ctx, gsleBerElement *ber, int32_t value, uint32_t tag);

/* OCTET STRING of length bytes (bytes may be null only for length 0). */
int32_t gsleenHBerPutOstring(gsluctx *ctx, gsleBerElement *ber, const void *bytes, uint32_t length,
                             uint32_t tag);

/* OCTET STRING of a NUL-terminated string, without the NUL; -1 for null. */
int32_t gsleenIBerPutString(gsluctx *ctx, gsleBerElement *ber, const char *text, uint32_t tag);

/* BIT STRING of bits bits taken from bytes, most significant bit first: the
 * count of unused bits in the last byte, then ceil(bits / 8) bytes. */
int32_t gsleenJBerPutBitstring(gsluctx *ctx, gsleBerElement *ber, const void *bytes, uint32_t bits,
                               uint32_t tag);

int32_t gsleenKBerPutNull(gsluctx *ctx, gsleBerElement *ber, uint32_t tag);

/* BOOLEAN: 0xff for a non-zero value, 0x00 for zero. */
int32_t gsleenLBerPutBoolean(gsluctx *ctx, gsleBerElement *ber, int32_t value, uint32_t tag);

/* Open a SEQUENCE / a SET / either under tag as given: 0, or -1 when out of
 * memory. The first eight levels use the element's inline records; deeper
 * ones are allocated, and released when closed. */
int32_t gsleenNBerStartSeq(gsluctx *ctx, gsleBerElement *ber, uint32_t tag);
int32_t gsleenOBerStartSet(gsluctx *ctx, gsleBerElement *ber, uint32_t tag);
int32_t gsleenMBerStartSeqorset(gsluctx *ctx, gsleBerElement *ber, uint32_t tag);

/* Closes the innermost open SEQUENCE or SET: tag length + length-field
 * length + content length, or -1 when none is open. */
int32_t gsleenPBerPutSeqorset(gsluctx *ctx, gsleBerElement *ber);

/* Writes the format's elements letter by letter (the letters and their
 * arguments are listed in ber/lber.h). After each letter the pending tag
 * returns to LBER_DEFAULT unless the hold flag is set ("t" sets both), in
 * which case only the flag is cleared. The result is the last element's
 * result, 0 when nothing was written, -1 at the first failure (which stops
 * the format, and clears the pending tag and the flag); an unknown letter
 * traces "unknown fmt %c\n" at GSLE_TRACE_BER and fails. -1 for a null ber
 * or format. */
int32_t gsleenSBerPrintf(gsluctx *ctx, gsleBerElement *ber, const char *format, ...);
int32_t gsleenSBerPrintfV(gsluctx *ctx, gsleBerElement *ber, const char *format, va_list ap);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_BER_ENCODE_H */

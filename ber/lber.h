/*
 * lber.h - Basic Encoding Rules (X.690) for directory clients: the
 * conventional LDAP C API's ber_* calls, from libquillomat.
 *
 * Link with `cc ... $(pkg-config --cflags --libs quillomat)`.
 *
 * Conventions:
 *   1. Widths: ber_tag_t and ber_len_t are unsigned 32-bit, ber_int_t is
 *      signed 32-bit, on every platform. Pass lengths and tags to ber_printf
 *      as ber_len_t and ber_tag_t (cast a size_t: the argument is read as
 *      32 bits).
 *   2. Tags are held as the number whose big-endian bytes are the tag's
 *      encoded bytes, class and constructed bits included (a SEQUENCE is
 *      0x30, a context-specific constructed [3] is 0xa3). LBER_DEFAULT as a
 *      tag argument selects the element's universal tag.
 *   3. Results: put functions return the number of bytes written, or -1;
 *      get functions and ber_scanf return the tag read, or LBER_ERROR.
 *      A failing write leaves the bytes already written in place.
 *   4. Decoding never reads past the element's end: a length longer than
 *      what remains, a length of more than four bytes, a tag of more than
 *      four bytes and an INTEGER of more than four content bytes all fail.
 *   5. Memory: blocks handed to the caller (strings, bit strings, arrays,
 *      struct berval) come from the library's allocator, which is the C
 *      library's malloc unless the embedding program installed its own.
 *      Release a struct berval with ber_bvfree() and everything else with
 *      free(). When ber_scanf fails, every block it had already handed out
 *      in that call is released and its out-parameter set back to null
 *      (a berval filled in place gets a null bv_val and bv_len 0).
 *   6. Elements are not shared between threads without a lock of the
 *      caller's.
 *   7. Every function is also exported as vsx_ldap_<name> (for example
 *      vsx_ldap_ber_printf), plus vsx_ldap_ber_end_seq, another name for
 *      ber_put_seq.
 *
 * ber_printf format letters and the arguments each consumes, in order:
 *   b  ber_int_t                 BOOLEAN (0xff for non-zero, 0x00 for zero)
 *   e  ber_int_t                 ENUMERATED
 *   i  ber_int_t                 INTEGER
 *   n  (none)                    NULL
 *   o  const char *, ber_len_t   OCTET STRING of that many bytes
 *   s  const char *              OCTET STRING of a NUL-terminated string
 *   B  const char *, ber_len_t   BIT STRING; the length counts BITS
 *   t  ber_tag_t                 the tag of the next element only
 *   v  char **                   one OCTET STRING per string of a
 *                                null-terminated array (null: nothing)
 *   V  struct berval **          one OCTET STRING per entry of a
 *                                null-terminated array (null: nothing)
 *   {  [  (none)                 open a SEQUENCE / a SET
 *   }  ]  (none)                 close the innermost SEQUENCE or SET
 * The result is the last element's result (0 for a format that writes
 * nothing), -1 at the first failure, which stops the format; an unknown
 * letter fails.
 *
 * ber_scanf format letters and what each stores through its arguments:
 *   a  char **                   a new NUL-terminated copy of an OCTET STRING
 *   O  struct berval **          a new struct berval holding an OCTET STRING
 *   o  struct berval *           filled in place: bv_len, and bv_val a new
 *                                NUL-terminated copy of the bytes
 *   s  char *, ber_len_t *       an OCTET STRING copied into the caller's
 *                                buffer of *len bytes with a NUL; *len
 *                                becomes the string's length (fails when
 *                                the string and its NUL do not fit)
 *   b  ber_int_t *               a BOOLEAN (its content byte sign-extended:
 *                                0xff reads as -1)
 *   e  i  ber_int_t *            an ENUMERATED / INTEGER
 *   B  char **, ber_len_t *      a new copy of a BIT STRING's bytes, and its
 *                                length in BITS
 *   n  (none)                    consumes a NULL
 *   l  ber_len_t *               the length of the next element (not consumed)
 *   t  ber_tag_t *               the tag of the next element (not consumed)
 *   T  ber_tag_t *               the tag of the next element, consumed with
 *                                its length (the content is not)
 *   v  char ***                  a new null-terminated array of new strings,
 *                                one per element of a SEQUENCE or SET (null
 *                                for an empty one): the one "{" or "[" has
 *                                just entered, else the next element, whose
 *                                tag and length v reads
 *   V  struct berval ***         the same with new struct berval
 *   x  (none)                    skips the next element whole
 *   {  [  (none)                 enter a SEQUENCE / SET (its tag and length);
 *                                so "{v}", "[v]" and "v" read the same
 *   }  ]  (none)                 leave it (nothing is read, and what is
 *                                left of the SEQUENCE is not checked)
 * The result is the last tag read, 0 for a format that reads nothing, or
 * LBER_ERROR. For example, "{a{v}}" reads SEQUENCE { OCTET STRING,
 * SEQUENCE OF OCTET STRING } into a char ** and a char ***.
 *
 * Options of ber_alloc_t: LBER_USE_DER writes every SEQUENCE and SET length
 * in its shortest form; without it those lengths take five bytes (0x84 and
 * four length bytes), which every BER reader accepts. Other lengths are
 * always shortest.
 */
#ifndef QUILLOMAT_LBER_H
#define QUILLOMAT_LBER_H

#include <stdint.h>

#include "ldap_export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t ber_tag_t;
typedef uint32_t ber_len_t;
typedef int32_t ber_int_t;
typedef uint32_t ber_uint_t;
typedef int32_t ber_slen_t;

/* An encoding or decoding buffer; opaque to clients. */
typedef struct gsleBerElement BerElement;

/* A counted byte string; bv_val need not be NUL-terminated. */
typedef struct berval {
  ber_len_t bv_len;
  char *bv_val;
} BerValue;

#define LBER_ERROR ((ber_tag_t)0xffffffffU)
#define LBER_DEFAULT ((ber_tag_t)0xffffffffU)

/* Universal tags. */
#define LBER_BOOLEAN ((ber_tag_t)0x01U)
#define LBER_INTEGER ((ber_tag_t)0x02U)
#define LBER_BITSTRING ((ber_tag_t)0x03U)
#define LBER_OCTETSTRING ((ber_tag_t)0x04U)
#define LBER_NULL ((ber_tag_t)0x05U)
#define LBER_ENUMERATED ((ber_tag_t)0x0aU)
#define LBER_SEQUENCE ((ber_tag_t)0x30U)
#define LBER_SET ((ber_tag_t)0x31U)

/* Option of ber_alloc_t: shortest SEQUENCE and SET lengths (as DER wants). */
#define LBER_USE_DER 0x04

/* ---- Elements ---------------------------------------------------------------- */

/* A new empty element for encoding, with the options above; null when out
 * of memory. Release it with ber_free(ber, 1). */
QUILLOMAT_EXPORT BerElement *ber_alloc_t(int options);

/* A new element for decoding a copy of bv's bytes; null for a null bv or
 * when out of memory. */
QUILLOMAT_EXPORT BerElement *ber_init(struct berval *bv);

/* Releases the element, and its buffer when freebuf is non-zero (pass 1
 * unless the buffer was taken over). Nothing for null. */
QUILLOMAT_EXPORT void ber_free(BerElement *ber, int freebuf);

/* *bvPtr = a new struct berval holding a copy of everything written to ber
 * (0 bytes for a null ber). 0, or -1 when out of memory or bvPtr is null. */
QUILLOMAT_EXPORT int ber_flatten(BerElement *ber, struct berval **bvPtr);

/* Releases a struct berval handed out by this library and its bytes. */
QUILLOMAT_EXPORT void ber_bvfree(struct berval *bv);

/* Traces the element's bytes at trace level 64: with inout 1 what remains to
 * be read, otherwise what has been written. */
QUILLOMAT_EXPORT void ber_dump(BerElement *ber, int inout);

/* ---- Encoding ---------------------------------------------------------------- */

QUILLOMAT_EXPORT int ber_printf(BerElement *ber, const char *fmt, ...);

/* Opens a SEQUENCE (LBER_DEFAULT: 0x30) whose content follows: 0, or -1. */
QUILLOMAT_EXPORT int ber_start_seq(BerElement *ber, ber_tag_t tag);

/* Closes the innermost open SEQUENCE or SET: the bytes it takes, or -1
 * (also when none is open). */
QUILLOMAT_EXPORT int ber_put_seq(BerElement *ber);

QUILLOMAT_EXPORT int ber_put_ostring(BerElement *ber, const char *str, ber_len_t len,
                                     ber_tag_t tag);
QUILLOMAT_EXPORT int ber_put_int(BerElement *ber, ber_int_t num, ber_tag_t tag);
QUILLOMAT_EXPORT int ber_put_boolean(BerElement *ber, ber_int_t boolval, ber_tag_t tag);

/* ---- Decoding ---------------------------------------------------------------- */

QUILLOMAT_EXPORT ber_tag_t ber_scanf(BerElement *ber, const char *fmt, ...);

/* Reads the next tag alone. */
QUILLOMAT_EXPORT ber_tag_t ber_get_tag(BerElement *ber);

/* The next tag, with *len = its element's length; ber_skip_tag consumes the
 * tag and the length, ber_peek_tag nothing. */
QUILLOMAT_EXPORT ber_tag_t ber_peek_tag(BerElement *ber, ber_len_t *len);
QUILLOMAT_EXPORT ber_tag_t ber_skip_tag(BerElement *ber, ber_len_t *len);

/* An INTEGER (or any element of at most four content bytes) into *num. */
QUILLOMAT_EXPORT ber_tag_t ber_get_int(BerElement *ber, ber_int_t *num);

/* A BOOLEAN into *boolval: its content sign-extended, so 0xff gives -1. */
QUILLOMAT_EXPORT ber_tag_t ber_get_boolean(BerElement *ber, ber_int_t *boolval);

/* *bv = a new struct berval holding the next OCTET STRING (bv_val also
 * NUL-terminated); release it with ber_bvfree(). *bv is null on failure. */
QUILLOMAT_EXPORT ber_tag_t ber_get_ostring(BerElement *ber, struct berval **bv);

/* ---- The same functions under the vsx_ldap_ prefix ----------------------------- */

QUILLOMAT_EXPORT BerElement *vsx_ldap_ber_alloc_t(int options);
QUILLOMAT_EXPORT BerElement *vsx_ldap_ber_init(struct berval *bv);
QUILLOMAT_EXPORT void vsx_ldap_ber_free(BerElement *ber, int freebuf);
QUILLOMAT_EXPORT int vsx_ldap_ber_flatten(BerElement *ber, struct berval **bvPtr);
QUILLOMAT_EXPORT void vsx_ldap_ber_bvfree(struct berval *bv);
QUILLOMAT_EXPORT void vsx_ldap_ber_dump(BerElement *ber, int inout);
QUILLOMAT_EXPORT int vsx_ldap_ber_printf(BerElement *ber, const char *fmt, ...);
QUILLOMAT_EXPORT int vsx_ldap_ber_start_seq(BerElement *ber, ber_tag_t tag);
QUILLOMAT_EXPORT int vsx_ldap_ber_put_seq(BerElement *ber);
QUILLOMAT_EXPORT int vsx_ldap_ber_end_seq(BerElement *ber);
QUILLOMAT_EXPORT int vsx_ldap_ber_put_ostring(BerElement *ber, const char *str, ber_len_t len,
                                              ber_tag_t tag);
QUILLOMAT_EXPORT int vsx_ldap_ber_put_int(BerElement *ber, ber_int_t num, ber_tag_t tag);
QUILLOMAT_EXPORT int vsx_ldap_ber_put_boolean(BerElement *ber, ber_int_t boolval, ber_tag_t tag);
QUILLOMAT_EXPORT ber_tag_t vsx_ldap_ber_scanf(BerElement *ber, const char *fmt, ...);
QUILLOMAT_EXPORT ber_tag_t vsx_ldap_ber_get_tag(BerElement *ber);
QUILLOMAT_EXPORT ber_tag_t vsx_ldap_ber_peek_tag(BerElement *ber, ber_len_t *len);
QUILLOMAT_EXPORT ber_tag_t vsx_ldap_ber_skip_tag(BerElement *ber, ber_len_t *len);
QUILLOMAT_EXPORT ber_tag_t vsx_ldap_ber_get_int(BerElement *ber, ber_int_t *num);
QUILLOMAT_EXPORT ber_tag_t vsx_ldap_ber_get_boolean(BerElement *ber, ber_int_t *boolval);
QUILLOMAT_EXPORT ber_tag_t vsx_ldap_ber_get_ostring(BerElement *ber, struct berval **bv);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_LBER_H */

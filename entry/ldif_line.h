/*
 * entry/ldif_line.h - one LDIF attribute-value line: the attribute type, a
 * colon, then either a space and the value as it stands or a second colon, a
 * space and the value in base64, folded into continuation lines and ended by
 * a newline.
 *
 * Conventions as in core/context.h, plus:
 *   1. Text is produced in the internal character set (UTF-8). The one
 *      exception: a base64 value of a type that is not binary is first
 *      converted to the output character set when the core context converts
 *      output, so that whoever decodes it gets native text; binary types
 *      (gsldlEIsBinary) are never converted.
 *   2. A value goes to base64 when its first byte is a NUL, a colon or ASCII
 *      white space, or when it holds a byte outside printable ASCII
 *      (0x20-0x7E) before any NUL byte. So every non-ASCII value is base64.
 *      A leading "<" and trailing spaces stay plain.
 *   3. Deliberate: a plain value stops at its first NUL byte; the rest of the
 *      value is not written.
 *   4. Folding counts a column that starts at the type's length + 1 after
 *      the colon (the space after it is not counted) for a plain value and
 *      at the type's length + 3 for base64; before a character is written
 *      while the column is past 76, "\n " starts a continuation line at
 *      column 1. So a plain first line holds at most 78 characters, a base64
 *      first line 77, every continuation line a space and 76 characters, and
 *      a type of 76 bytes or more folds before the first value character.
 */
#ifndef QUILLOMAT_ENTRY_LDIF_LINE_H
#define QUILLOMAT_ENTRY_LDIF_LINE_H

#include <stddef.h>
#include <stdint.h>

#include "core/context.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Results of gsldlEIsBinary. */
enum { GSLDL_BINARY = 0, GSLDL_NOT_BINARY = -1 };

/* Results of gsldlVTypeCheck. */
enum { GSLDL_TYPE_OK = 0, GSLDL_TYPE_REFUSED = -1 };

/* Whether type can start a line without changing the structure of the text
 * around it: GSLDL_TYPE_REFUSED for a null type, a type holding a control
 * character (a byte below 0x20, or 0x7F: a line break would start a line
 * of the document's choosing) or a type starting with a space (which
 * continues the line before) or with '#' (which makes the line a comment);
 * else GSLDL_TYPE_OK. Any other byte, a colon or a space inside included,
 * is written as it stands. */
int32_t gsldlVTypeCheck(const char *type);

/* The line for type (NUL-terminated) and the length bytes of value, in a
 * new NUL-terminated block from gslummMalloc() that the caller frees with
 * gslumfFree(). Null when the block cannot be allocated, for a type that
 * gsldlVTypeCheck refuses (a null type included), or for a null value with
 * a non-zero length. */
char *gsldlDLdifTypeAndValue(const char *type, const char *value, uint32_t length);

/* Writes the line at *position and advances *position to just past its
 * final newline; writes no NUL. The caller guarantees room: the size
 * gsldlDLdifTypeAndValue would allocate, or more when a converted value
 * grows. Nothing is written for a null position, a type that gsldlVTypeCheck
 * refuses, or a null value with a non-zero length. */
void gsldlCPutTypeAndValue(char **position, const char *type, const char *value, uint32_t length);

/* GSLDL_BINARY (0) when the values of type must never be converted: the
 * type ends in ";binary" (its first occurrence, any letter case) or is one
 * of photo, personalSignature, audio, jpegPhoto, javaSerializedObject,
 * thumbnailPhoto, thumbnailLogo, userCertificate, cACertificate,
 * authorityRevocationList, certificateRevocationList, crossCertificatePair,
 * x500UniqueIdentifier (whole name, any letter case). Else GSLDL_NOT_BINARY
 * (-1), also for a null type or when its lower-case copy cannot be made. */
int32_t gsldlEIsBinary(const char *type);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_ENTRY_LDIF_LINE_H */

/*
 * entry/base64.h - byte-buffer base64 codec (RFC 4648 alphabet, "=" padding).
 *
 * Conventions of this module (they differ from the rest of the library):
 *   1. No function takes a core context and none allocates: the caller
 *      supplies every output buffer, sized with gsluztvb64gol() (see there
 *      for which encoders that size covers).
 *   2. Byte buffers are void pointers, base64 text is char; lengths are
 *      counted, and no encoder writes a terminating NUL.
 *   3. Results are counts; 0 doubles as the failure result of the decoder.
 *   4. No C++ exception ever crosses this API.
 */
#ifndef QUILLOMAT_ENTRY_BASE64_H
#define QUILLOMAT_ENTRY_BASE64_H

#ifdef __cplusplus
extern "C" {
#endif

#include <stdint.h>

/* Results of gsluztvb64_getval. */
enum {
  GSLUZTV_B64_DIGIT = 0,     /* the character is a base64 digit */
  GSLUZTV_B64_NOT_DIGIT = -1 /* anything else, "=" included */
};

/* Result of gsluztvb64cln (it cannot fail). */
enum { GSLUZTV_B64_CLEANED = 0 };

/* Result of gsluztvb64d for malformed (or empty) text. */
enum { GSLUZTV_B64_MALFORMED = 0 };

/* Modes of gsluztvb64gol. */
enum { GSLUZTV_B64_SIZE_ENCODE = 1, GSLUZTV_B64_SIZE_DECODE = 2 };

/* Line lengths, in groups of four digits, used by the fixed encoders, and
 * the longest line gsluztvb64scn accepts, in characters. */
enum {
  GSLUZTV_B64_LINE_PLAIN = 0,   /* gsluztvb64e: a newline every 256 digits */
  GSLUZTV_B64_LINE_FOLDED = 16, /* gsluztvb64en: a newline every 64 digits */
  GSLUZTV_B64_LINE_NEVER = 64,  /* this or more: no newline at all */
  GSLUZTV_B64_SCAN_LINE_MAX = 76
};

/* Encodes length bytes of in into out and returns the number of characters
 * written (no NUL). Full groups of three bytes give four digits; a final
 * group of one byte gives two digits and "==", of two bytes three digits and
 * "=". After each full group, when the digits counted on the current line
 * equal line_groups * 4, a newline is written and the count restarts. The
 * count is 8 bits wide and wraps: line_groups 0 gives a newline after every
 * 256 digits, line_groups 64 or more never gives one. No newline follows a
 * final partial group. A null in or out, or output of more than
 * 4294967295 characters, writes nothing and returns 0. */
uint32_t gsluztvb64ecr(const void *in, uint32_t length, char *out, uint32_t line_groups);

/* gsluztvb64ecr with line_groups 0: a newline after every 256 digits. */
uint32_t gsluztvb64e(const void *in, uint32_t length, char *out);

/* gsluztvb64ecr with line_groups 16 (a newline after every 64 digits); then,
 * only when length is not a multiple of 3, two more newlines, counted in the
 * result. The output takes 4 * ceil(length / 3) + length / 48 + 2 bytes at
 * most, MORE than gsluztvb64gol(length, 1) gives (already for length 1). */
uint32_t gsluztvb64en(const void *in, uint32_t length, char *out);

/* Decodes length characters of base64 text into out and returns the number
 * of bytes written, or 0 when the text is malformed or decodes to nothing.
 * out must hold gsluztvb64gol(length, 2) bytes; nothing is read or written
 * outside text[0, length) and that many bytes of out, whatever the text.
 *   - Trailing characters that are neither digits nor "=" are ignored;
 *     others of that kind are skipped wherever they stand.
 *   - A group whose fourth character is "=" ends the data: "xx==" yields one
 *     byte, "xxx=" two; an invalid digit among its others fails the whole
 *     text. Whatever follows that group is not read.
 *   - In any other group "=" reads as the digit value 0.
 *   - Text that ends inside a group of four (unpadded or truncated) fails.
 * A null text or out returns 0. */
uint32_t gsluztvb64d(const char *text, uint32_t length, void *out);

/* What gsluztvb64cln followed by gsluztvb64d on the cleaned text gives, in
 * one pass and without changing text: decodes the base64 digits and "="
 * among the first length characters of text, or those before its first NUL
 * when one comes sooner, skipping every other character, and returns the
 * number of bytes written (0 for malformed text or text that decodes to
 * nothing). So the reader need not write a cleaned copy before decoding.
 * out must hold gsluztvb64gol(length, 2) bytes and may be text itself:
 * decoding in place writes no byte before reading the text it replaces.
 * Nothing is read outside text[0, length). A null text or out returns 0. */
uint32_t gsluztvb64dcln(const char *text, uint32_t length, void *out);

/* Size of the buffer the codec needs for length bytes or characters:
 *   mode 1 (encoding): length / 3 + length + length / 64 + 4,
 *   mode 2 (decoding): length * 3 / 4,
 *   any other mode: 0.
 * Truncating integer arithmetic, computed in 64 bits so it never wraps;
 * the caller checks the result against what its allocator takes.
 * Mode 1 covers gsluztvb64e, and gsluztvb64ecr with line_groups 0 or 64 or
 * more, for every length; it does not cover gsluztvb64en or line_groups 1
 * to 63. Mode 2 covers gsluztvb64d and gsluztvb64dcln. */
uint64_t gsluztvb64gol(uint32_t length, int mode);

/* Stores the value of base64 digit c in *value ("A"-"Z" 0-25, "a"-"z"
 * 26-51, "0"-"9" 52-61, "+" 62, "/" 63) and returns 0; for any other
 * character, "=" included, stores 0 and returns -1. A null value returns -1
 * and stores nothing. */
int gsluztvb64_getval(char c, int *value);

/* Removes in place from the NUL-terminated text every character that is
 * neither a base64 digit nor "=", keeping the order of the others, writes a
 * NUL after them and stores their number in *count (when count is not null).
 * The text ends at its first NUL: length is ignored. A null text stores 0.
 * Returns 0. */
int gsluztvb64cln(char *text, uint32_t length, uint32_t *count);

/* Scans length characters of folded base64 text: whole groups of four
 * digits ("=" only as padding of a final group), lines ended by "\n" between
 * groups, no line over 76 characters. Returns the length of the longest
 * prefix that is such text, which is length exactly when all of it is; the
 * result always falls after a whole group or a newline. A null text
 * returns 0. */
uint32_t gsluztvb64scn(const char *text, uint32_t length);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_ENTRY_BASE64_H */

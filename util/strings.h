/*
 * util/strings.h - the character-set-aware string functions that the rest
 * of the library uses in place of the C library's.
 *
 * Conventions (those of core/context.h, plus):
 *   1. Text is NUL-terminated UTF-8, the internal language of the core
 *      context. Lengths and bounds n count bytes; "character" means one
 *      UTF-8 encoded code point. A byte that does not start a well-formed
 *      UTF-8 sequence counts as a character of its own, one byte long, and
 *      compares as itself.
 *   2. The context is read only where it matters (the allocator of the
 *      duplicating functions, the character-set flags of the class tests).
 *      A null context means the process-wide one; when none can be had the
 *      functions still work, with UTF-8 rules and the C library allocator.
 *      No function here fails for lack of a context.
 *   3. Copying and concatenating functions return 0, or 3 when the source or
 *      the destination is null (nothing is written then). The destination
 *      is never bounded: the caller guarantees room.
 *   4. Comparisons return 0 for equal and non-zero otherwise (-1 or 1 by the
 *      order of the first difference); both strings null compare equal, and
 *      exactly one null gives 1, whichever it is.
 *   5. Duplicates are fresh blocks that the caller frees with gslumfFree();
 *      null for a null string or when the allocation fails.
 *   6. Searches return a pointer into the searched string, or null. Like the
 *      C library's, they take a const string and hand back a non-const
 *      pointer into it.
 *   7. The character-class tests take a pointer to a character and return
 *      the class bits of their mask that the character has (0: none).
 */
#ifndef QUILLOMAT_UTIL_STRINGS_H
#define QUILLOMAT_UTIL_STRINGS_H

#include <stddef.h>
#include <stdint.h>

#include "core/context.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Status codes of this module. */
enum {
  GSLUS_OK = 0,
  GSLUS_NO_MEMORY = 2,     /* gslusistokenize: an allocation failed */
  GSLUS_FORMAT_FAILED = 2, /* gsluspSprintf: truncated, or a format error */
  GSLUS_NOT_A_NUMBER = 2,  /* gslussiIsStrNum, gsluscnvhx2u4 */
  GSLUS_NULL_ARG = 3       /* a required string or buffer is null */
};

/* Comparison results besides the ordering ones. */
enum {
  GSLUS_CMP_EQUAL = 0,
  GSLUS_CMP_ONE_NULL = 1 /* exactly one of the two strings is null */
};

/* Answers of the yes/no functions. */
enum { GSLUS_NO = 0, GSLUS_YES = 1 };

/* Character class bits, then the mask of each class test. Blank is the
 * space character only (a tab is white space but is not printable). */
enum {
  GSLUS_CLASS_UPPER = 0x4,
  GSLUS_CLASS_LOWER = 0x8,
  GSLUS_CLASS_DIGIT = 0x20,
  GSLUS_CLASS_SPACE = 0x40,
  GSLUS_CLASS_PUNCT = 0x80,
  GSLUS_CLASS_XDIGIT = 0x200,
  GSLUS_CLASS_BLANK = 0x400,
  GSLUS_CLASS_LETTER = 0x800,

  GSLUS_MASK_DIGIT = 0x20,     /* gslusibIsDigit: digit */
  GSLUS_MASK_LETTER = 0x800,   /* gslusAIsLetter: letter */
  GSLUS_MASK_ALNUM = 0x820,    /* gslusibIsAlnum: letter or digit */
  GSLUS_MASK_ALPHA = 0x820,    /* gslusibIsAlpha: letter or digit (sic) */
  GSLUS_MASK_ALPHANUM = 0x820, /* gslusBIsAlphaNum: letter or digit */
  GSLUS_MASK_GRAPH = 0x8a0,    /* gslusibIsGraph: letter, digit or punctuation */
  GSLUS_MASK_PRINT = 0xca0,    /* gslusibIsPrint: graphic or blank */
  GSLUS_MASK_PUNCT = 0x80,     /* gslusibIsPunct: punctuation */
  GSLUS_MASK_SPACE = 0x40,     /* gslusibIsSpace: white space */
  GSLUS_MASK_UPPER = 0x4,      /* gslusCIsUpper: upper case */
  GSLUS_MASK_LOWER = 0x8,      /* gslusDIsLower: lower case */
  GSLUS_MASK_XDIGIT = 0x200    /* gslusibIsXdigit: hexadecimal digit */
};

/* gslusnIsSingleQuoted writes into a buffer of this many bytes. */
enum { GSLUS_QUOTED_BUFFER_SIZE = 1024 };

/* ---- Used by the conversion --------------------------------------------- */

/* Number of bytes before the NUL; 0 for a null string. */
size_t gslusslStrlen(gsluctx *ctx, const char *s);

/* Copies src with its NUL into dst. 0, or 3 if either is null. */
int gslusspStrcpy(gsluctx *ctx, char *dst, const char *src);

/* Copies at most n bytes of src into dst, stopping after src's NUL; when src
 * is shorter than n, the rest of the n bytes of dst are set to NUL. When src
 * has n bytes or more, no NUL is written (the caller terminates), and a
 * character that straddles byte n is cut. 0, or 3 if either is null. */
int gslussnStrncpy(gsluctx *ctx, char *dst, const char *src, size_t n);

/* A copy of s in length + 1 bytes: from the context's caller-supplied
 * allocator table when all four of its memory callbacks are set, else from
 * gslummMalloc(). Null for a null s, a string too long for a 32-bit size, or
 * a failed allocation. */
char *gslussdStrdup(gsluctx *ctx, const char *s);

/* A lower-case copy of s, in a gslummMalloc() block of (length + 8) rounded
 * down to a multiple of 8 bytes. Characters keep their place; a character
 * whose lower-case form needs more bytes than itself is copied unchanged, so
 * the copy is never longer than s (it may be shorter: U+0130 becomes "i").
 * Null for a null s, a string too long, or a failed allocation. */
char *gslussiStrcasedup(gsluctx *ctx, const char *s);

/* Appends src to the string in dst. 0, or 3 if either is null. */
int gslusscStrcat(gsluctx *ctx, char *dst, const char *src);

/* Byte-wise comparison of the whole strings (code-point order for UTF-8). */
int gsluscmStrcmp(gsluctx *ctx, const char *a, const char *b);

/* Comparison ignoring case: characters are compared by their case-folded
 * code points. Folding maps one code point to one, so a sharp s (U+00DF)
 * equals the capital sharp s (U+1E9E) but not "SS". */
int gslusicStrcasecmp(gsluctx *ctx, const char *a, const char *b);

/* ---- Library functions ---------------------------------------------------- */

/* Appends at most n bytes of src, then a NUL, to the string in dst; a
 * character straddling byte n is cut. 0, or 3 if either is null. */
int gslusscStrncat(gsluctx *ctx, char *dst, const char *src, size_t n);

/* gsluscmStrcmp over at most the first n bytes of each string. */
int gsluscmStrncmp(gsluctx *ctx, const char *a, const char *b, size_t n);

/* gslusicStrcasecmp over at most the first n bytes of each string; a
 * character straddling byte n is compared as its bytes before the bound. */
int gslusicStrncasecmp(gsluctx *ctx, const char *a, const char *b, size_t n);

/* Formats into buffer (size bytes, NUL included) with the C library's
 * printf conventions, as vsnprintf does. 3 for a
 * null buffer or format; 2 when the text did not fit (buffer then holds the
 * cut text, NUL-terminated when size > 0) or the format failed; else 0. */
int gsluspSprintf(gsluctx *ctx, char *buffer, size_t size, const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 4, 5)))
#endif
    ;

/* First occurrence of the character with code point ch in s (ch 0: the
 * terminating NUL). Null if absent, s is null or ch is no code point. */
char *gslusstStrChr(gsluctx *ctx, const char *s, uint32_t ch);

/* Last occurrence of the character ch in s, as gslusstStrChr. */
char *gslusstStrrChr(gsluctx *ctx, const char *s, uint32_t ch);

/* First occurrence of pattern in s (an empty pattern: s itself). Null if
 * absent or either is null. */
char *gslusstStrStr(gsluctx *ctx, const char *s, const char *pattern);

/* First character of s that is also a character of set. Null if none or
 * either is null. */
char *gslusstStrpBrk(gsluctx *ctx, const char *s, const char *set);

/* Removes leading and trailing white space from s in place. 0, or 3 for a
 * null s. (The text is moved within s; no copy is needed, so the status 2
 * of a failed copy never occurs.) */
int gslusTrim(gsluctx *ctx, char *s);

/* Skips leading white space of s, then ends the string at the first space
 * character (32) that follows, by writing a NUL there. Returns the first
 * character after the skipped white space; null for a null s. */
char *gslusstStrTrim(gsluctx *ctx, char *s);

/* Class tests of the character at c (see the masks above). 0 for a null c
 * and for the NUL character. */
uint32_t gslusibIsDigit(gsluctx *ctx, const char *c);
uint32_t gslusAIsLetter(gsluctx *ctx, const char *c);
uint32_t gslusibIsAlnum(gsluctx *ctx, const char *c);
uint32_t gslusibIsAlpha(gsluctx *ctx, const char *c); /* letters OR digits */
uint32_t gslusibIsGraph(gsluctx *ctx, const char *c);
uint32_t gslusibIsPrint(gsluctx *ctx, const char *c);
uint32_t gslusibIsPunct(gsluctx *ctx, const char *c);
uint32_t gslusibIsSpace(gsluctx *ctx, const char *c);
uint32_t gslusCIsUpper(gsluctx *ctx, const char *c);
uint32_t gslusDIsLower(gsluctx *ctx, const char *c);
uint32_t gslusBIsAlphaNum(gsluctx *ctx, const char *c);
uint32_t gslusibIsXdigit(gsluctx *ctx, const char *c);

/* Whether s is a number: an optional sign and one or more decimal digit
 * characters (any script), nothing else, within the range of int32_t. 0 with
 * *value (when value is not null) set to gslusicIsatoi(s); else 2 with
 * *value 0. A null s is not a number. */
int gslussiIsStrNum(gsluctx *ctx, const char *s, int32_t *value);

/* The integer at the start of s: leading white space, an optional sign,
 * then decimal digit characters up to the first other character. Saturates
 * at INT32_MIN / INT32_MAX; 0 for a null s or no digits. */
int32_t gslusicIsatoi(gsluctx *ctx, const char *s);

/* Converts the hexadecimal digit characters in the first length bytes of hex
 * (fewer when a NUL comes first) to *value. 0 on success; 3 for a null hex or
 * value; 2 when the text is empty, holds another character, or exceeds 32
 * bits (*value is then 0). */
int gsluscnvhx2u4(gsluctx *ctx, const char *hex, size_t length, uint32_t *value);

/* 1 if the character at c is the code point ch, else 0 (also for a null c). */
int gslusicIsEqual(gsluctx *ctx, const char *c, uint32_t ch);

/* Number of bytes from s over its next n characters, stopping at the NUL.
 * 0 for a null s. */
size_t gslusicIsIncPtr(gsluctx *ctx, const char *s, size_t n);

/* Number of bytes from p back over the n characters before it, not going
 * before start (start <= p, within one string). 0 if either is null. */
size_t gslusicIsDecPtr(gsluctx *ctx, const char *start, const char *p, size_t n);

/* 1 if s holds any byte outside ASCII (every UTF-8 character beyond ASCII
 * takes two bytes or more; a stray byte counts too), else 0, also for a
 * null s. */
int gslusmIsMultibyte(gsluctx *ctx, const char *s);

/* 1 if s starts and ends with a single quote (and is at least two bytes
 * long); its text between the quotes is then copied into out, a buffer of
 * GSLUS_QUOTED_BUFFER_SIZE bytes, cut at a character boundary to fit with
 * its NUL. Else 0. out (when not null) is set to "" first; with a null out
 * the answer is still given. */
int gslusnIsSingleQuoted(gsluctx *ctx, const char *s, char *out);

/* Splits s at the characters of delimiters into *tokens, an array of *count
 * fresh strings followed by a null entry. Runs of delimiters separate like
 * one, and leading and trailing delimiters make no empty tokens. With no
 * token *tokens is null. The caller frees each string and then the array
 * with gslumfFree(). *tokens and *count are cleared first. 0; 3 for any
 * null argument; 2 when an allocation fails (nothing is handed back). */
int gslusistokenize(gsluctx *ctx, const char *s, const char *delimiters, char ***tokens,
                    uint32_t *count);

/* The Unicode library behind the character-aware functions and its version
 * as it runs, such as "ICU 72.1". */
const char *gslusvUnicodeVersion(void);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_UTIL_STRINGS_H */

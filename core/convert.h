/*
 * core/convert.h - conversion between the internal UTF-8 text and the
 * character sets of the environment's languages.
 *
 * Conventions as in core/context.h, plus:
 *   1. The core context holds three languages: internal (UTF-8), environment
 *      (as the locale variables give it; the "input" language) and output
 *      (the environment's again, replaceable on its own). Text is converted
 *      on its way out only when the context's output-conversion flag is set.
 *   2. Characters the target character set cannot represent, and bytes of
 *      the source that are not valid in its character set, are replaced by
 *      the target set's replacement character: U+FFFD where the set has it,
 *      else "?". Each replacement sets the calling thread's conversion error
 *      state, which stays set until the thread's next conversion.
 *   3. Narrow refusal: a conversion whose error state is set and whose
 *      converted text is exactly 6 or exactly 8 bytes long is refused
 *      (status 3, converted length 0). Text of any other length is delivered
 *      with its replacements.
 *   4. Converted text is not NUL-terminated unless a function says so.
 */
#ifndef QUILLOMAT_CORE_CONVERT_H
#define QUILLOMAT_CORE_CONVERT_H

#include <stddef.h>
#include <stdint.h>

#include "core/context.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Status codes of this module. */
enum {
  GSLUUC_OK = 0,
  GSLUUC_NULL_ARG = 1, /* a required argument is null, or a bad selector */
  GSLUUC_UNKNOWN = 2,  /* no such language, or the text does not fit */
  GSLUUC_REFUSED = 3,  /* the conversion was refused (see convention 3) */
  GSLUUC_NO_MEMORY = 5,
  GSLUUC_NO_CONTEXT = 10
};

/* Direction codes of a conversion request: from which language to which.
 * Any code other than 0 to 4 means output to environment. */
enum {
  GSLUUC_INTERNAL_TO_ENVIRONMENT = 0,
  GSLUUC_INTERNAL_TO_OUTPUT = 1,
  GSLUUC_ENVIRONMENT_TO_INTERNAL = 2,
  GSLUUC_OUTPUT_TO_INTERNAL = 3,
  GSLUUC_ENVIRONMENT_TO_OUTPUT = 4,
  GSLUUC_OUTPUT_TO_ENVIRONMENT = 5
};

/* Language selectors of gsluuczGetCurrentLanguage. */
enum { GSLUUC_LANG_INTERNAL = 0, GSLUUC_LANG_ENVIRONMENT = 1, GSLUUC_LANG_OUTPUT = 2 };

/* One conversion, filled by the caller and handed to gsluucvConvert. */
typedef struct gsluucRequest {
  gsluctx *ctx; /* null: the process-wide context */
  const char *source;
  char *destination;
  uint64_t source_length; /* bytes of source */
  uint64_t length;        /* in: capacity of the target; out: converted length */
  int32_t direction;      /* GSLUUC_* direction code */
  int32_t status;         /* out: GSLUUC_OK, or GSLUUC_REFUSED and the others */
} gsluucRequest;

/* Performs one request. The target is scratch when it is given, else the
 * destination; at most `length` bytes are written to it. With scratch, the
 * converted text and a NUL are then copied over the destination, whose
 * room the caller guarantees (the in-place form passes the source as the
 * destination). Sets request->status and returns it: 0; 3 refused (length
 * 0, destination untouched); 1 for a null request, source or target; 10
 * when there is no context. */
int gsluucvConvert(gsluucRequest *request, char *scratch);

/* Converts length bytes of text from the internal to the output language.
 * The target always has length * 5 + 10 bytes (the capacity rule).
 *   result not null: *result receives a new block of that size, taken with
 *     gslummMalloc and NUL-terminated after the converted text, which the
 *     caller frees with gslumfFree; *resultlength the converted length.
 *   result null: nothing comes from the library's allocator; a scratch
 *     buffer of the same capacity receives the text, which then replaces
 *     text in place, followed by a NUL. text must then be writable and have
 *     room for the converted text and its NUL.
 * Statuses: 0; 1 for a null resultlength, or a null text with a non-zero
 * length; 3 refused; 5 when the block (or, in place, the scratch buffer)
 * cannot be had or the capacity exceeds 32 bits; 10 without a context.
 * On failure *result is null and *resultlength 0. */
int gsluucoConvertOutput(gsluctx *ctx, const char *text, uint64_t length, char **result,
                         uint64_t *resultlength);

/* The converse for incoming text: from the environment (input) language to
 * the internal one, with the same capacity rule, forms and statuses. Text
 * grows when it becomes UTF-8: an in-place caller leaves room for that. */
int gsluuciConvertInput(gsluctx *ctx, const char *text, uint64_t length, char **result,
                        uint64_t *resultlength);

/* Writes the language `which` (GSLUUC_LANG_*) as "name.codeset" into buffer
 * (size bytes, NUL included). 0; 1 for a null buffer or an unknown
 * selector; 2 when it does not fit (buffer then holds ""); 10 without a
 * context. */
int gsluuczGetCurrentLanguage(gsluctx *ctx, int which, char *buffer, size_t size);

/* Replace the environment (input) language, or the output language, by the
 * one a locale string names ("fr_FR.ISO-8859-1"; the character set comes
 * from the installed locale, else from the string). "C" and "POSIX" select
 * the internal language. The input- or output-conversion flag is set anew
 * (1 when the new language differs from the internal one). 0; 1 for a null
 * locale; 2 for a locale with no known character set; 10 without a
 * context. Not to be called while another thread converts. */
int gsluucaSetInputLanguage(gsluctx *ctx, const char *locale);
int gsluucbSetOutputLanguage(gsluctx *ctx, const char *locale);

#ifdef __cplusplus
} /* extern "C" */

namespace gslu {

/* The in-place output conversion with a known room: text holds length bytes
 * in a buffer of room bytes; the converted text and a NUL replace them when
 * they fit, otherwise the conversion is refused (3) and text is untouched.
 * Statuses and *converted as gsluucoConvertOutput's in-place form. */
[[nodiscard]] int convertOutputInPlace(gsluctx *ctx, char *text, uint64_t length, uint64_t room,
                                       uint64_t *converted);

}  // namespace gslu
#endif

#endif /* QUILLOMAT_CORE_CONVERT_H */

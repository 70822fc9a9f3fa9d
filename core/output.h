/*
 * core/output.h - formatted output, the log file and tracing.
 *
 * Conventions as in core/context.h, plus:
 *   1. Typed argument lists. After a format string come pairs of a type code
 *      and a value, ended by the type code 0 (GSLUF_ARG_END); a format with
 *      no arguments is followed directly by the 0. Type codes and the
 *      terminating 0 are read as int. An unknown type code, more than
 *      GSLUF_MAX_TYPED_ARGS arguments, a conversion without an argument, or
 *      one that does not match its argument's type, is a formatting
 *      failure. Arguments left over are ignored.
 *   2. Every variadic function is a thin wrapper over its array form, which
 *      takes the arguments already read into an array of gsluArg; tests,
 *      fuzzers and the C++ helpers at the end of this header call the array
 *      forms.
 *   3. Formats are printf-like: %s %d %i %u %x %X %c %% with the flags
 *      "-0 +#", a width and a precision given as digits (no "*", at most
 *      1048576), and the length modifiers l, ll and h, which only say how the
 *      integer argument is shown (the type code says how it is passed):
 *      without one an integer is shown at the width it was passed, with h as
 *      16 bits, with l or ll as 64 bits. Widths and precisions count bytes;
 *      a precision never splits a UTF-8 character. A null string argument
 *      prints "<null arg>". Integer arguments must not be null.
 *   4. Text is UTF-8 inside; it is converted to the output character set
 *      on its way out only when the core context's output-conversion flag
 *      is set (core/convert.h).
 *   5. Standard output (stream 2) is buffered by the library, which must be
 *      the only writer of file descriptor 1: when it is a terminal every
 *      call writes through; otherwise output reaches the operating system
 *      at least every 64 KiB, before anything is written to standard error,
 *      at gslufcsCloseStdout, and at exit() if that was never called.
 *      Standard error is written through at every call.
 */
#ifndef QUILLOMAT_CORE_OUTPUT_H
#define QUILLOMAT_CORE_OUTPUT_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "core/context.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Statuses of gslufpFprintf and the file operations. */
enum {
  GSLUF_OK = 0,
  GSLUF_NULL_ARG = 1,      /* file operations: a required argument is null */
  GSLUF_FORMAT_FAILED = 3, /* formatting or character-set conversion failed */
  GSLUF_NO_MEMORY = 5,
  GSLUF_WRITE_FAILED = 6, /* the stream could not be written or opened */
  GSLUF_NO_CONTEXT = 10
};

/* The most text bytes gslufpFprintf writes to standard output or standard
 * error in one piece: longer text is cut into pieces of at most this many
 * bytes, each followed by a newline. */
enum { GSLUF_PIECE_BYTES = 32763 };

/* Stream codes of gslufpFprintf. Any other value is the address of an open
 * file record (gslufFile) cast to uint64_t. */
enum {
  GSLUF_STREAM_NONE = 0,
  GSLUF_STREAM_STDIN = 1,
  GSLUF_STREAM_STDOUT = 2,
  GSLUF_STREAM_STDERR = 3
};

/* Type codes of typed argument lists. */
enum {
  GSLUF_ARG_END = 0,       /* ends the list */
  GSLUF_ARG_CHAR = 1,      /* an int holding one byte (for %c) */
  GSLUF_ARG_INT32_PTR = 5, /* the address of a 32-bit integer */
  GSLUF_ARG_INT64_PTR = 8, /* the address of a 64-bit integer */
  GSLUF_ARG_STRING = 25    /* a NUL-terminated text (may be null) */
};

/* Most arguments a variadic typed list may carry. */
enum { GSLUF_MAX_TYPED_ARGS = 64 };

/* One argument of a typed list. */
typedef struct gsluArg {
  int type; /* GSLUF_ARG_* */
  union {
    int ch;
    const int32_t *i32;
    const int64_t *i64;
    const char *text;
  } value;
} gsluArg;

/* Error levels of the trace: written whenever ldap_debug is non-zero. */
enum { GSLUTC_LEVEL_ERROR = 0x4000, GSLUTC_LEVEL_FATAL = 0x7fffffff };

/* Global trace switches: the trace mask (initially 0x4000) and the debug
 * switch (initially 0). Process-wide; an embedding application may change
 * them. */
extern uint32_t ldap_debug;
extern int32_t debug_flag;

/* An open file of the file operations. Its first member is the handle, so
 * its address can be used as a stream code of gslufpFprintf. */
typedef struct gslufFile {
  FILE *handle;
} gslufFile;

/* Modes of gslufoOpen. */
enum {
  GSLUF_MODE_READ = 1,   /* an existing file, for reading */
  GSLUF_MODE_APPEND = 2, /* an existing file, written at its end */
  GSLUF_MODE_CREATE = 4  /* created, or emptied when it exists, for writing */
};

/* ---- Formatted output ---------------------------------------------------- */

/* Formats and writes to stream; the arguments are a typed list. 0, 3 when
 * formatting or conversion failed (a null format included), 5 out of
 * memory, 6 when the write failed (including any earlier write error on
 * standard output, and any write after gslufcsCloseStdout), 10 when there
 * is no context. ctx may be null.
 *
 * The text is expanded into a 32768-byte buffer on the stack; when it does
 * not fit, into a 65536-byte gslummMalloc block still limited to 32768
 * bytes, then with the limit doubled on every further try (the block
 * resized with gslumrRealloc to the new limit, half of it given as the old
 * size), and freed at the end. An allocator the caller installed (a
 * callback table or the context's hooks) sees exactly this sequence; when
 * it refuses a block the call returns 5 and writes nothing. Text longer
 * than 32763 bytes for standard output or standard error, or for any
 * stream when output is converted, is written in pieces of at most 32763
 * bytes cut between UTF-8 characters, each followed by a newline. */
int gslufpFprintf(gsluctx *ctx, uint64_t stream, const char *format, ...);
int gslufpvFprintfV(gsluctx *ctx, uint64_t stream, const char *format, va_list ap);
int gslufpaFprintfArgs(gsluctx *ctx, uint64_t stream, const char *format, const gsluArg *args,
                       uint32_t count);

/* Writes length bytes of text to stream as they stand: converted to the
 * output character set when the context converts output (chunk by chunk,
 * never splitting a UTF-8 character), but without the pieces of at most
 * 32763 bytes and the newlines gslufpFprintf adds to long text. For text
 * that must stay whole, such as an LDIF record holding a large value. 0; 1
 * for a null text with a non-zero length; 3 when the text cannot be
 * converted; 6 when the write failed; 10 without a context. */
int gslufwWriteWhole(gsluctx *ctx, uint64_t stream, const char *text, size_t length);

/* Hands everything buffered for standard output to the operating system,
 * then closes standard output and reports whether all output written since
 * start reached it: 0, or 6 when any write, the flush or the close failed.
 * File descriptor 1 is left open on /dev/null, so no file opened later
 * takes its place; later output to stream 2 fails with 6. Calling it again
 * repeats the first answer. */
int gslufcsCloseStdout(gsluctx *ctx);

/* ---- File operations -------------------------------------------------------- */

/* Opens name in mode (GSLUF_MODE_*) into *out (cleared first); the record
 * comes from gslummMalloc. 0, 1 for a null name or out or an unknown mode,
 * 5 out of memory, 6 when the file cannot be opened. */
int gslufoOpen(gsluctx *ctx, const char *name, int mode, gslufFile **out);

/* Closes and releases file. 0, 1 for a null file, 6 when closing failed. */
int gslufcClose(gsluctx *ctx, gslufFile *file);

/* ---- Trace and log ---------------------------------------------------------- */

/* Receives trace lines instead of the log while installed: the level, the
 * format and its typed arguments, unexpanded and whether or not the line
 * would be wanted. The arguments are valid during the call only. */
typedef void (*gsluTraceHook)(uint32_t level, const char *format, const gsluArg *args,
                              uint32_t count);

/* Installs hook (null: removes it) and sets the context's trace-hook switch
 * accordingly. 0, or 10 when there is no context. */
int gslutsSetTraceHook(gsluctx *ctx, gsluTraceHook hook);

/* Traces one line at level: to the trace hook when one is installed (then
 * 0), else, when the line is wanted, expanded into 1024 bytes (longer text
 * is cut between characters) and passed to gsluffFLog, whose result is
 * returned; 0 when the line is not wanted, 3 when it cannot be expanded,
 * 0xFFFFFFFF when no context can be had.
 *
 * A line is wanted when ldap_debug is non-zero and the level is exactly
 * GSLUTC_LEVEL_ERROR or GSLUTC_LEVEL_FATAL, or when the level shares a bit
 * with ldap_debug and debug_flag is non-zero. That is decided before the
 * arguments are read, so an unwanted line costs almost nothing. */
uint32_t gslutcTraceWithCtx(gsluctx *ctx, uint32_t level, const char *format, ...);
uint32_t gslutcaTraceArgs(gsluctx *ctx, uint32_t level, const char *format, const gsluArg *args,
                          uint32_t count);

/* gslutcTraceWithCtx with the process-wide context. */
uint32_t gslutcTrace(uint32_t level, const char *format, ...);

/* Logs text when the line is wanted: through the log callback of the
 * context's caller-supplied callback table when it has one with that
 * callback set (its result is returned), else as gslufdDebug(ctx, 1, "%s",
 * text), so a '%' in text is written as it is. 0 when the line is not
 * wanted, 10 without a context. */
int gsluffFLog(gsluctx *ctx, uint32_t level, const char *text);

/* Writes one formatted line to the log file below $VESTRA_HOME/ldap/log,
 * opening it when none is open and re-opening it when its file no longer
 * exists, preceded by the local time and " * " once a log file has been
 * opened. The text is expanded into 4096 bytes (longer text is cut between
 * characters) and written as it is: the format supplies any newline. mode
 * does not change the line (GSLUF_DEBUG_LOG is what the log path passes).
 * 0; 3 when the format fails or the text cannot be converted; 5 out of
 * memory; 6 when no log file can be opened (the line is dropped) or the
 * write fails; 10 without a context. */
enum { GSLUF_DEBUG_LOG = 1 };
int gslufdDebug(gsluctx *ctx, int mode, const char *format, ...);
int gslufdaDebugArgs(gsluctx *ctx, int mode, const char *format, const gsluArg *args,
                     uint32_t count);

/* Opens (or re-opens) the context's log file: $VESTRA_HOME/ldap/log/ and a
 * name chosen by the context's component code (in this program
 * "qdrldapd<instance, 2 digits>s<process id>.log"); the directory is not
 * created. An existing file is appended to. 0; 5 out of memory; 6 when it
 * cannot be opened (VESTRA_HOME unset or empty included) or the time-stamp
 * format cannot be compiled; 10 without a context. */
int gslufgGetLogfile(gsluctx *ctx);

/* The local time as "%Y/%m/%d:%H:%M:%S" into buffer (size bytes); "" when
 * it does not fit or the time cannot be had. Nothing for a null buffer or
 * size 0. */
void sgsludqdrLocalTimeString(char *buffer, size_t size);

/* Stores the process identifier in *out when out is not null. */
void sgslupgGetProcId(gsluctx *ctx, uint32_t *out);

#ifdef __cplusplus
} /* extern "C" */

/* Type-safe typed argument lists for the library's own C++ callers:
 *   gslu::trace(ctx, level, "bad value %d in %s\n", &n, name);
 * builds the gsluArg array from the argument types. */
namespace gslu {

inline gsluArg typedArg(const char *text) {
  gsluArg a{};
  a.type = GSLUF_ARG_STRING;
  a.value.text = text;
  return a;
}
inline gsluArg typedArg(const int32_t *p) {
  gsluArg a{};
  a.type = GSLUF_ARG_INT32_PTR;
  a.value.i32 = p;
  return a;
}
inline gsluArg typedArg(const uint32_t *p) {
  return typedArg(reinterpret_cast<const int32_t *>(p));
}
inline gsluArg typedArg(const int64_t *p) {
  gsluArg a{};
  a.type = GSLUF_ARG_INT64_PTR;
  a.value.i64 = p;
  return a;
}
inline gsluArg typedArg(const uint64_t *p) {
  return typedArg(reinterpret_cast<const int64_t *>(p));
}
inline gsluArg typedArg(char c) {
  gsluArg a{};
  a.type = GSLUF_ARG_CHAR;
  a.value.ch = static_cast<unsigned char>(c);
  return a;
}

template <class... A>
uint32_t trace(gsluctx *ctx, uint32_t level, const char *format, A... args) {
  const gsluArg list[sizeof...(A) + 1] = {typedArg(args)..., gsluArg{}};
  return gslutcaTraceArgs(ctx, level, format, list, sizeof...(A));
}

template <class... A>
int fprintf(gsluctx *ctx, uint64_t stream, const char *format, A... args) {
  const gsluArg list[sizeof...(A) + 1] = {typedArg(args)..., gsluArg{}};
  return gslufpaFprintfArgs(ctx, stream, format, list, sizeof...(A));
}

}  // namespace gslu
#endif

#endif /* QUILLOMAT_CORE_OUTPUT_H */

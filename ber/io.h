/*
 * ber/io.h - the BER element: its buffer, its open sequences and sets, and
 * the byte-level reads and writes the encoder and decoder are built on.
 *
 * Conventions (those of core/context.h, plus):
 *   1. Every function takes the core context first; null means the
 *      process-wide one. A null element is refused (-1, or null), never
 *      dereferenced.
 *   2. Results follow the conventional BER API rather than status codes:
 *      functions that write return the bytes written or -1; functions that
 *      read return the bytes read or -1; creation returns the new element or
 *      null.
 *   3. Every block (the element, an allocated buffer, sequence records
 *      beyond the eighth) comes from the context's allocator; an allocation
 *      failure also traces "Error in allocating memory \n" at level
 *      GSLE_TRACE_MEMORY.
 *   4. An element is either being written (top-level bytes go to ptr, the
 *      content of an open sequence or set to its record's write position)
 *      or being read (ptr moves towards end and never passes it).
 *
 * Buffer growth: writing count bytes that would pass the end grows the
 * buffer to (max(1, ceil(count / 1024)) + size / 1024) blocks of 1024
 * bytes. The inline buffer is then replaced by an allocated one; an
 * allocated one is resized. ptr and every open record move with the bytes.
 */
#ifndef QUILLOMAT_BER_IO_H
#define QUILLOMAT_BER_IO_H

#include <stdint.h>

#include "ber/lber.h"
#include "core/context.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Results shared by the element functions. */
enum { GSLE_OK = 0, GSLE_FAILED = -1 };

/* Sizes of the element. */
enum {
  GSLE_BLOCK_SIZE = 1024,   /* the inline buffer, and the growth step */
  GSLE_INLINE_RECORDS = 8,  /* sequence/set records kept in the element */
  GSLE_LONG_LENGTH_SIZE = 5 /* 0x84 and four length bytes */
};

/* Option bits, given at creation. */
enum {
  GSLE_OPT_SHORT_LENGTHS = LBER_USE_DER /* shortest SEQUENCE/SET lengths */
};

/* Flag bits. */
enum {
  GSLE_FLAG_INLINE_BUFFER = 0x1 /* buf is the element's inline buffer */
};

/* Modes of gsleioMBerReset and gsleioNBerDump. */
enum {
  GSLE_WAS_READING = 0,
  GSLE_WAS_WRITING = 1,
  GSLE_DUMP_WRITTEN = 0,  /* the bytes from buf to ptr */
  GSLE_DUMP_REMAINING = 1 /* the bytes from ptr to end */
};

/* Trace levels of the codec. */
enum {
  GSLE_TRACE_BER = 64,          /* dumps, unknown format letters */
  GSLE_TRACE_MEMORY = 0x1000000 /* allocation failures */
};

/* One open SEQUENCE or SET. Its content is written at pos; its tag and
 * length go to start when it is closed, so start + tag length + 5 bytes
 * were left free for them when it was opened. */
typedef struct gsleSeqorset {
  uint32_t length; /* content bytes written so far */
  uint32_t tag;
  unsigned char *start;       /* where its tag will go */
  unsigned char *pos;         /* where its next content byte goes */
  struct gsleSeqorset *outer; /* the record it is nested in, or null */
} gsleSeqorset;

struct gsleBerElement {
  unsigned char *buf; /* buffer start */
  unsigned char *ptr; /* writing: top-level end; reading: next byte */
  unsigned char *end; /* buffer end (writing) or data end (reading) */
  gsleSeqorset *sos;  /* innermost open sequence or set, or null */
  uint32_t tag;       /* pending tag; LBER_DEFAULT: universal */
  uint32_t hold_tag;  /* pending tag survives the next element once */
  uint32_t options;   /* GSLE_OPT_* */
  uint32_t io_state;  /* reserved for the connection fill; reset clears it */
  uint32_t flags;     /* GSLE_FLAG_* */
  uint32_t depth;     /* open sequences and sets */
  gsleSeqorset records[GSLE_INLINE_RECORDS];
  unsigned char inline_buf[GSLE_BLOCK_SIZE];
};
typedef struct gsleBerElement gsleBerElement;

/* ---- Creation and release ------------------------------------------------------ */

/* A new zero-filled element with options: the inline buffer, pending tag
 * LBER_DEFAULT. Null (and the memory trace) when out of memory. */
gsleBerElement *gsleioHBerAllocT(gsluctx *ctx, int32_t options);

/* gsleioHBerAllocT with options 0 (five-byte sequence lengths). */
gsleBerElement *gsleioIBerAlloc(gsluctx *ctx);

/* gsleioHBerAllocT with GSLE_OPT_SHORT_LENGTHS. */
gsleBerElement *gsleioJDerAlloc(gsluctx *ctx);

/* gsleioHBerAllocT, then tag preset as the pending tag of the first element
 * (LBER_DEFAULT: none). */
gsleBerElement *gsleioZBerAllocOT(gsluctx *ctx, int32_t options, uint32_t tag);

/* Clears the header and the inline records of ber, sets the pending tag to
 * LBER_DEFAULT and stores options. The element then has no buffer (the
 * first write allocates one); a buffer it held is forgotten, not freed, so
 * use it on an element that holds none. 0, or -1 for a null ber. */
int32_t gsleioLBerInit(gsluctx *ctx, gsleBerElement *ber, int32_t options);

/* After writing (was_writing 1): end = ptr and ptr = buf, so the written
 * bytes can be read back. Otherwise ptr = end. Clears io_state. Nothing for
 * a null ber. */
void gsleioMBerReset(gsluctx *ctx, gsleBerElement *ber, int32_t was_writing);

/* A new element reading a copy of bv's bytes (gsleioIBerAlloc, the bytes
 * written, gsleioMBerReset after writing). Null for a null bv or bv_val
 * with a non-zero length, or when out of memory. */
gsleBerElement *gsleioQBerInitBerval(gsluctx *ctx, const struct berval *bv);

/* A new element with the same options, pending tag, bytes and positions.
 * Null when ber is null, has a sequence or set open, or memory runs out. */
gsleBerElement *gsleioKBerDup(gsluctx *ctx, const gsleBerElement *ber);

/* Releases ber with its open records, and its buffer when free_buffer is
 * non-zero and the buffer is allocated. Nothing for a null ber. */
void gsleioFBerFree(gsluctx *ctx, gsleBerElement *ber, int32_t free_buffer);

/* gsleioFBerFree with the buffer. */
void gsleioGBerFree(gsluctx *ctx, gsleBerElement *ber);

/* *out = a new struct berval holding the bytes from buf to ptr (with a NUL
 * after them); for a null ber an empty one. 0, or -1 for a null out or when
 * out of memory (*out null). */
int32_t gsleioPBerFlatten(gsluctx *ctx, const gsleBerElement *ber, struct berval **out);

/* ---- Bytes ----------------------------------------------------------------------- */

/* Writes count bytes: to the innermost open record (its write position and
 * content length advance) unless top_level is non-zero or none is open, else
 * to ptr. The buffer grows first when they would pass its end. count, or -1
 * (null ber, null bytes with a non-zero count, out of memory). */
int32_t gsleioDBerWrite(gsluctx *ctx, gsleBerElement *ber, const void *bytes, uint32_t count,
                        int32_t top_level);

/* Reads up to count bytes from ptr, never past end, into bytes and advances
 * ptr: the number read (less than count only at the end), or -1 for a null
 * ber or null bytes with a non-zero count. */
int32_t gsleioCBerRead(gsluctx *ctx, gsleBerElement *ber, void *bytes, uint32_t count);

/* Grows the buffer for a write of need bytes as the header says. 0, or -1
 * (with the memory trace) when the new size passes 4 GiB or memory runs
 * out; the element is then unchanged. */
int32_t gsleioEBerRealloc(gsluctx *ctx, gsleBerElement *ber, uint32_t need);

/* Filling an element from a connection. There is no connection layer in
 * this library (sockets, the security layer's read path), so both fail
 * with -1 and read nothing. */
int32_t gsleioABerFilbuf(gsluctx *ctx, gsleBerElement *ber, uint32_t length);
int32_t gsleioBBerRead(gsluctx *ctx, gsleBerElement *ber, void *bytes, uint32_t length);

/* ---- Diagnostics, at trace level GSLE_TRACE_BER ------------------------------------ */

/* "gsleioNBerDump: buf 0x%lx, ptr 0x%lx, end 0x%lx\n", then
 * "       current len %ld, contents:\n" and the bytes: with mode
 * GSLE_DUMP_REMAINING those from ptr to end, otherwise from buf to ptr. */
void gsleioNBerDump(gsluctx *ctx, const gsleBerElement *ber, int32_t mode);

/* "*** sos dump ***\n", then for each open record from the innermost out
 * "gsleioOBerSosDump: clen %ld first 0x%lx ptr 0x%lx\n" and
 * "      current len %ld contents:\n" with its content, then
 * "*** end dump ***\n". */
void gsleioOBerSosDump(gsluctx *ctx, const gsleBerElement *ber);

/* Traces length bytes as lines "\t%s\n" of up to 16 bytes each: the bytes in
 * hexadecimal, then the printable ones as characters ("." for the others). */
void gslebpALberBPrint(gsluctx *ctx, const void *bytes, uint32_t length);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_BER_IO_H */

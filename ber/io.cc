// ber/io.cc - the element's buffer: creation, release, growth, byte reads
// and writes. Contracts in ber/io.h.
#include "ber/io.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ber/ber_internal.h"
#include "core/memory.h"
#include "core/owned.h"

namespace {

using gsle::kFailed;
using gsle::traceNoMemory;

// The allocator takes 32-bit sizes.
constexpr uint64_t kMaxBuffer = UINT32_MAX;

uint32_t bufferSize(const gsleBerElement *ber) {
  return static_cast<uint32_t>(ber->end - ber->buf);
}

bool ownsBuffer(const gsleBerElement *ber) {
  return ber->buf != nullptr && (ber->flags & GSLE_FLAG_INLINE_BUFFER) == 0;
}

void useInlineBuffer(gsleBerElement *ber) {
  ber->buf = ber->inline_buf;
  ber->ptr = ber->inline_buf;
  ber->end = ber->inline_buf + GSLE_BLOCK_SIZE;
  ber->flags |= GSLE_FLAG_INLINE_BUFFER;
}

// The size the buffer grows to for a write of need bytes: whole blocks for
// need (at least one) on top of the blocks it has.
uint64_t grownSize(uint32_t current, uint32_t need) {
  uint64_t blocks = (uint64_t{need} + GSLE_BLOCK_SIZE - 1) / GSLE_BLOCK_SIZE;
  if (blocks == 0) blocks = 1;
  return (blocks + current / GSLE_BLOCK_SIZE) * GSLE_BLOCK_SIZE;
}

// Points ptr, end and every open record into the buffer's new place, at the
// same offsets. The offsets are taken as integers because the old block may
// already have been released by the reallocation.
void moveBuffer(gsleBerElement *ber, uintptr_t old_base, unsigned char *moved, uint32_t size) {
  const auto offset = [old_base](const unsigned char *p) {
    return reinterpret_cast<uintptr_t>(p) - old_base;
  };
  for (gsleSeqorset *r = ber->sos; r != nullptr; r = r->outer) {
    r->start = moved + offset(r->start);
    r->pos = moved + offset(r->pos);
  }
  ber->ptr = moved + offset(ber->ptr);
  ber->buf = moved;
  ber->end = moved + size;
}

// Releases the records beyond the inline ones that are still open.
void freeOpenRecords(gsluctx *ctx, gsleBerElement *ber) {
  for (uint32_t depth = ber->depth; ber->sos != nullptr; --depth) {
    gsleSeqorset *outer = ber->sos->outer;
    if (depth > GSLE_INLINE_RECORDS) (void)gslumfFree(ctx, ber->sos);
    ber->sos = outer;
  }
  ber->depth = 0;
}

// Where the next write goes, and the position it advances.
unsigned char *&writePosition(gsleBerElement *ber, int32_t top_level) {
  return top_level == 0 && ber->sos != nullptr ? ber->sos->pos : ber->ptr;
}

}  // namespace

extern "C" {

// ---- Creation and release ------------------------------------------------------

gsleBerElement *gsleioHBerAllocT(gsluctx *ctx, int32_t options) {
  auto *ber = gsle::allocateZeroed<gsleBerElement>(ctx);
  if (ber == nullptr) return nullptr;
  ber->tag = gsle::kDefaultTag;
  ber->options = static_cast<uint32_t>(options);
  useInlineBuffer(ber);
  return ber;
}

gsleBerElement *gsleioIBerAlloc(gsluctx *ctx) { return gsleioHBerAllocT(ctx, 0); }

gsleBerElement *gsleioJDerAlloc(gsluctx *ctx) {
  return gsleioHBerAllocT(ctx, GSLE_OPT_SHORT_LENGTHS);
}

gsleBerElement *gsleioZBerAllocOT(gsluctx *ctx, int32_t options, uint32_t tag) {
  gsleBerElement *ber = gsleioHBerAllocT(ctx, options);
  if (ber != nullptr) ber->tag = tag;
  return ber;
}

int32_t gsleioLBerInit(gsluctx * /*ctx*/, gsleBerElement *ber, int32_t options) {
  if (ber == nullptr) return kFailed;
  // The header and the records only: the inline buffer's old bytes are never
  // read, since the element has no buffer until its first write.
  std::memset(static_cast<void *>(ber), 0, offsetof(gsleBerElement, inline_buf));
  ber->tag = gsle::kDefaultTag;
  ber->options = static_cast<uint32_t>(options);
  return GSLE_OK;
}

void gsleioMBerReset(gsluctx * /*ctx*/, gsleBerElement *ber, int32_t was_writing) {
  if (ber == nullptr) return;
  if (was_writing != GSLE_WAS_READING) {
    ber->end = ber->ptr;
    ber->ptr = ber->buf;
  } else {
    ber->ptr = ber->end;
  }
  ber->io_state = 0;
}

gsleBerElement *gsleioQBerInitBerval(gsluctx *ctx, const struct berval *bv) {
  if (bv == nullptr || (bv->bv_val == nullptr && bv->bv_len != 0)) return nullptr;
  gsleBerElement *ber = gsleioIBerAlloc(ctx);
  if (ber == nullptr) return nullptr;
  if (gsleioDBerWrite(ctx, ber, bv->bv_val, bv->bv_len, 1) == kFailed) {
    gsleioGBerFree(ctx, ber);
    return nullptr;
  }
  gsleioMBerReset(ctx, ber, GSLE_WAS_WRITING);
  return ber;
}

gsleBerElement *gsleioKBerDup(gsluctx *ctx, const gsleBerElement *ber) {
  if (ber == nullptr || ber->sos != nullptr) return nullptr;
  gsleBerElement *dup = gsleioHBerAllocT(ctx, static_cast<int32_t>(ber->options));
  if (dup == nullptr) return nullptr;
  dup->tag = ber->tag;
  dup->hold_tag = ber->hold_tag;
  if (ber->buf == nullptr) {
    dup->buf = dup->ptr = dup->end = nullptr;
    dup->flags = 0;
    return dup;
  }
  const uint32_t size = bufferSize(ber);
  if (size > GSLE_BLOCK_SIZE && gsleioEBerRealloc(ctx, dup, size - GSLE_BLOCK_SIZE) != GSLE_OK) {
    gsleioGBerFree(ctx, dup);
    return nullptr;
  }
  std::memcpy(dup->buf, ber->buf, size);
  dup->ptr = dup->buf + (ber->ptr - ber->buf);
  dup->end = dup->buf + size;
  return dup;
}

void gsleioFBerFree(gsluctx *ctx, gsleBerElement *ber, int32_t free_buffer) {
  if (ber == nullptr) return;
  freeOpenRecords(ctx, ber);
  if (free_buffer != 0 && ownsBuffer(ber)) (void)gslumfFree(ctx, ber->buf);
  (void)gslumfFree(ctx, ber);
}

void gsleioGBerFree(gsluctx *ctx, gsleBerElement *ber) { gsleioFBerFree(ctx, ber, 1); }

int32_t gsleioPBerFlatten(gsluctx *ctx, const gsleBerElement *ber, struct berval **out) {
  if (out == nullptr) return kFailed;
  *out = nullptr;
  const uint32_t length = ber == nullptr ? 0 : static_cast<uint32_t>(ber->ptr - ber->buf);
  // Detect and prevent integer overflow: the copy and its NUL in 32 bits.
  if (uint64_t{length} + 1 > kMaxBuffer) return kFailed;
  gslu::Owned<struct berval> bv(gsle::allocateZeroed<struct berval>(ctx), gslu::ContextFree{ctx});
  gslu::Owned<char> bytes(static_cast<char *>(gslummMalloc(ctx, length + 1)),
                          gslu::ContextFree{ctx});
  if (bv == nullptr || bytes == nullptr) {
    if (bytes == nullptr) traceNoMemory(ctx);
    return kFailed;
  }
  if (length != 0) std::memcpy(bytes.get(), ber->buf, length);
  bytes.get()[length] = '\0';
  bv->bv_len = length;
  bv->bv_val = bytes.release();
  *out = bv.release();
  return GSLE_OK;
}

// ---- Bytes ---------------------------------------------------------------------------

int32_t gsleioDBerWrite(gsluctx *ctx, gsleBerElement *ber, const void *bytes, uint32_t count,
                        int32_t top_level) {
  if (ber == nullptr || (bytes == nullptr && count != 0) || count > INT32_MAX) return kFailed;
  while (ber->buf == nullptr ||
         count > static_cast<uint64_t>(ber->end - writePosition(ber, top_level))) {
    if (gsleioEBerRealloc(ctx, ber, count) != GSLE_OK) return kFailed;
  }
  unsigned char *&pos = writePosition(ber, top_level);
  if (count != 0) std::memcpy(pos, bytes, count);
  pos += count;
  if (top_level == 0 && ber->sos != nullptr) ber->sos->length += count;
  return static_cast<int32_t>(count);
}

int32_t gsleioCBerRead(gsluctx * /*ctx*/, gsleBerElement *ber, void *bytes, uint32_t count) {
  if (ber == nullptr || (bytes == nullptr && count != 0) || count > INT32_MAX) return kFailed;
  const uint64_t left = gsle::remaining(ber);
  const auto n = static_cast<uint32_t>(count < left ? count : left);
  if (n != 0) std::memcpy(bytes, ber->ptr, n);
  ber->ptr += n;
  return static_cast<int32_t>(n);
}

int32_t gsleioEBerRealloc(gsluctx *ctx, gsleBerElement *ber, uint32_t need) {
  if (ber == nullptr) return kFailed;
  const uint32_t current = bufferSize(ber);
  // Detect and prevent integer overflow: the allocator takes 32-bit sizes.
  const uint64_t wanted = grownSize(current, need);
  if (wanted > kMaxBuffer) {
    traceNoMemory(ctx);
    return kFailed;
  }
  const auto size = static_cast<uint32_t>(wanted);
  const auto old_base = reinterpret_cast<uintptr_t>(ber->buf);
  unsigned char *moved = nullptr;
  if (ownsBuffer(ber)) {
    moved = static_cast<unsigned char *>(gslumrRealloc(ctx, size, ber->buf, current));
  } else {
    moved = static_cast<unsigned char *>(gslummMalloc(ctx, size));
    if (moved != nullptr && current != 0) std::memcpy(moved, ber->buf, current);
  }
  if (moved == nullptr) {
    traceNoMemory(ctx);
    return kFailed;
  }
  ber->flags &= ~uint32_t{GSLE_FLAG_INLINE_BUFFER};
  moveBuffer(ber, old_base, moved, size);
  return GSLE_OK;
}

int32_t gsleioABerFilbuf(gsluctx * /*ctx*/, gsleBerElement * /*ber*/, uint32_t /*length*/) {
  return kFailed;
}

int32_t gsleioBBerRead(gsluctx * /*ctx*/, gsleBerElement * /*ber*/, void * /*bytes*/,
                       uint32_t /*length*/) {
  return kFailed;
}

}  // extern "C"

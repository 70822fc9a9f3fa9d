// libFuzzer target for the BER decoder: reads arbitrary bytes with
// gsledeNBerScanf over a fixed set of formats covering every letter. The
// bytes are an exact-size heap copy, so the sanitizer reports any read past
// the element; allocator hooks count the blocks alive, and after each input
// every one of them must have been released, on success by us and on
// failure by the scanner itself (whose out-parameters must then be null).

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "ber/decode.h"
#include "ber/io.h"
#include "core/memory.h"

namespace {

// Aborts, naming the failed check's line.
void check(bool condition, int line = __builtin_LINE()) {
  if (condition) return;
  std::fprintf(stderr, "ber_fuzzer: check at line %d failed\n", line);
  std::abort();
}

// Blocks allocated through the context and not yet released.
long g_live = 0;

void *countedMalloc(gsluctx *, uint32_t size) {
  void *p = std::malloc(size);
  if (p != nullptr) ++g_live;
  return p;
}
void *countedCalloc(gsluctx *, uint32_t count, uint32_t size) {
  void *p = std::calloc(count, size);
  if (p != nullptr) ++g_live;
  return p;
}
void *countedRealloc(gsluctx *, uint32_t size, void *old, uint32_t) {
  void *p = std::realloc(old, size);
  if (p != nullptr && old == nullptr) ++g_live;
  return p;
}
void countedFree(gsluctx *, void *block) {
  --g_live;
  std::free(block);
}

// Every out-parameter any format stores through.
struct Out {
  char *text = nullptr;
  struct berval *value = nullptr;
  struct berval in_place = {0, nullptr};
  char buffer[16] = {};
  ber_len_t buffer_length = sizeof buffer;
  ber_int_t number = 0;
  ber_int_t flag = 0;
  char *bits = nullptr;
  ber_len_t bit_count = 0;
  ber_len_t length = 0;
  ber_tag_t peeked = 0;
  ber_tag_t taken = 0;
  char **strings = nullptr;
  struct berval **values = nullptr;

  bool empty() const {
    return text == nullptr && value == nullptr && in_place.bv_val == nullptr && bits == nullptr &&
           strings == nullptr && values == nullptr;
  }
  // Reads every byte handed out, so the sanitizer sees any overrun, and
  // releases it.
  void release(size_t input_size) {
    check(text == nullptr || std::strlen(text) <= input_size);
    gslumfFree(nullptr, text);
    if (value != nullptr)
      check(value->bv_len <= input_size && value->bv_val[value->bv_len] == '\0');
    gsledeOBerBvfree(nullptr, value);
    if (in_place.bv_val != nullptr) check(in_place.bv_val[in_place.bv_len] == '\0');
    gslumfFree(nullptr, in_place.bv_val);
    if (bits != nullptr) {
      check((bit_count + 7) / 8 <= input_size);
      unsigned sum = 0;
      for (ber_len_t i = 0; i < (bit_count + 7) / 8; ++i)
        sum += static_cast<unsigned char>(bits[i]);
      (void)sum;
    }
    gslumfFree(nullptr, bits);
    for (char **s = strings; s != nullptr && *s != nullptr; ++s) gslumfFree(nullptr, *s);
    gslumfFree(nullptr, strings);
    for (struct berval **v = values; v != nullptr && *v != nullptr; ++v)
      check((*v)->bv_len <= input_size);
    gsledePBerBvecfree(nullptr, values);
  }
};

using Scan = uint32_t (*)(gsleBerElement *, Out &);

// The formats, each a call with its arguments in order.
const Scan kFormats[] = {
    [](gsleBerElement *b, Out &o) {
      return gsledeNBerScanf(nullptr, b, "{iaOoBvV}", &o.number, &o.text, &o.value, &o.in_place,
                             &o.bits, &o.bit_count, &o.strings, &o.values);
    },
    [](gsleBerElement *b, Out &o) {
      return gsledeNBerScanf(nullptr, b, "{it{isto}}", &o.number, &o.peeked, &o.flag, o.buffer,
                             &o.buffer_length, &o.taken, &o.in_place);
    },
    [](gsleBerElement *b, Out &o) {
      return gsledeNBerScanf(nullptr, b, "tTlx{be}[n]", &o.peeked, &o.taken, &o.length, &o.flag,
                             &o.number);
    },
    [](gsleBerElement *b, Out &o) {
      return gsledeNBerScanf(nullptr, b, "{{{{{{{{{{V}}}}}}}}}}", &o.values);
    },
    // Opening letters right before v and V, which leave the header to them.
    [](gsleBerElement *b, Out &o) {
      return gsledeNBerScanf(nullptr, b, "{a{v}[V]}", &o.text, &o.strings, &o.values);
    },
    [](gsleBerElement *b, Out &o) {
      return gsledeNBerScanf(nullptr, b, "vB", &o.strings, &o.bits, &o.bit_count);
    },
    [](gsleBerElement *b, Out &o) {
      return gsledeNBerScanf(nullptr, b, "oaOs", &o.in_place, &o.text, &o.value, o.buffer,
                             &o.buffer_length);
    },
};

// The core finds its message catalogue through VSX_LDAP_MESGDIR, defaulting
// to the build tree's.
struct Hooks {
  Hooks() {
    if (std::getenv("VSX_LDAP_MESGDIR") == nullptr)
      setenv("VSX_LDAP_MESGDIR", QUILLOMAT_MESGDIR, 0);
    check(gslumsSetHooks(nullptr, countedMalloc, countedCalloc, countedRealloc, countedFree) == 0);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static Hooks hooks;
  if (size > (1u << 20)) return 0;
  std::vector<char> bytes(data, data + size);  // exact-size copy
  const struct berval input = {static_cast<ber_len_t>(size), size == 0 ? nullptr : bytes.data()};
  for (const Scan scan : kFormats) {
    const long live_before = g_live;
    gsleBerElement *ber = gsleioQBerInitBerval(nullptr, &input);
    check(ber != nullptr);
    Out out;
    const uint32_t tag = scan(ber, out);
    check(ber->ptr >= ber->buf && ber->ptr <= ber->end);
    if (tag == LBER_ERROR) check(out.empty());
    out.release(size);
    gsleioGBerFree(nullptr, ber);
    check(g_live == live_before);
  }
  return 0;
}

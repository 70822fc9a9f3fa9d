// tests/ber/ber_driver.c - ber_printf and ber_scanf on request, one format
// letter per call (so the state an element keeps between calls counts too).
// Built twice: ber_driver against libquillomat.so through lber.h, and
// liblber_oracle (BER_DRIVER_LIBLBER), which loads OpenLDAP's liblber with
// dlopen, with that library's widths (lengths and tags unsigned long), in a
// process of its own so that its symbols never meet ours.
//
// One request per line on standard input, one answer line each:
//   E <ber|der> <format> <tokens...>  ->  OK <hex of the encoding> | ERR
//   D <format> <hex>                  ->  OK <tokens...> | ERR
// Tokens: integers in decimal, tags 0x<hex>, bytes in hex ("-": none), bit
// strings <hex>/<bits>, arrays (v, V) their count and then their entries.
// Letters of a D format in parentheses are read by one ber_scanf call, as
// in "i({v})i"; such a call may hold one letter that takes arguments, or
// "a" and after it "v" or "V".
#define _POSIX_C_SOURCE 200809L

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#ifdef BER_DRIVER_LIBLBER
#include <dlfcn.h>
typedef unsigned long drv_len_t;
typedef unsigned long drv_tag_t;
typedef struct berelement drv_element;
struct drv_berval {
  drv_len_t bv_len;
  char *bv_val;
};
#define DRV_DER 0x01  // LBER_USE_DER
#else
#include "ber/lber.h"
typedef ber_len_t drv_len_t;
typedef ber_tag_t drv_tag_t;
typedef BerElement drv_element;
#define drv_berval berval
#define DRV_DER LBER_USE_DER
#endif
#define DRV_ERROR ((drv_tag_t)-1)

static struct {
  drv_element *(*alloc_t)(int options);
  drv_element *(*init)(struct drv_berval *bv);
  void (*free)(drv_element *ber, int freebuf);
  int (*flatten)(drv_element *ber, struct drv_berval **bv);
  void (*bvfree)(struct drv_berval *bv);
  int (*printf)(drv_element *ber, const char *fmt, ...);
  drv_tag_t (*scanf)(drv_element *ber, const char *fmt, ...);
  void (*memfree)(void *p);
} api;

static void fail(const char *why) {
  fprintf(stderr, "ber_driver: %s\n", why);
  exit(2);
}

#ifdef BER_DRIVER_LIBLBER
static void *lib;
static void *symbol(const char *name) {
  void *p = dlsym(lib, name);
  if (p == NULL) fail(name);
  return p;
}
// Object to function pointer: POSIX guarantees the conversion.
#define LOAD(field, name) *(void **)&api.field = symbol(name)
static void loadApi(void) {
  lib = dlopen("liblber-2.5.so.0", RTLD_NOW | RTLD_LOCAL);
  if (lib == NULL) lib = dlopen("liblber.so.2", RTLD_NOW | RTLD_LOCAL);
  if (lib == NULL) fail("OpenLDAP's liblber cannot be loaded (tools/deps installs it)");
  LOAD(alloc_t, "ber_alloc_t");
  LOAD(init, "ber_init");
  LOAD(free, "ber_free");
  LOAD(flatten, "ber_flatten");
  LOAD(bvfree, "ber_bvfree");
  LOAD(printf, "ber_printf");
  LOAD(scanf, "ber_scanf");
  LOAD(memfree, "ber_memfree");
}
#else
static void loadApi(void) {
  api.alloc_t = ber_alloc_t, api.init = ber_init, api.free = ber_free, api.flatten = ber_flatten;
  api.bvfree = ber_bvfree, api.printf = ber_printf, api.scanf = ber_scanf;
  api.memfree = free;  // the library's blocks come from malloc
}
#endif

// The answer line being built.
static char answer[1 << 21];
static size_t used;

static void put(const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  const int n = vsnprintf(answer + used, sizeof answer - used, fmt, ap);
  va_end(ap);
  if (n < 0 || (size_t)n >= sizeof answer - used) fail("answer too long");
  used += (size_t)n;
}

static void putHex(const char *bytes, size_t length) {
  put(length == 0 ? " -" : " ");
  for (size_t i = 0; i < length; ++i) put("%02x", (unsigned char)bytes[i]);
}

static char *next(char **cursor) {
  char *token = strtok_r(NULL, " \n", cursor);
  if (token == NULL) fail("token missing");
  return token;
}

// A hex token as a new NUL-terminated block of *length bytes.
static char *fromHex(const char *token, size_t *length) {
  *length = strcmp(token, "-") == 0 ? 0 : strlen(token) / 2;
  char *bytes = malloc(*length + 1);
  if (bytes == NULL) fail("out of memory");
  for (size_t i = 0; i < *length; ++i) {
    unsigned value = 0;
    if (sscanf(token + 2 * i, "%2x", &value) != 1) fail("bad hex");
    bytes[i] = (char)value;
  }
  bytes[*length] = '\0';
  return bytes;
}

static int encodeLetter(drv_element *ber, const char *format, char **cursor) {
  size_t length = 0;
  int rc = -1;
  switch (format[0]) {
    case 'b':
    case 'e':
    case 'i': return api.printf(ber, format, (int)strtol(next(cursor), NULL, 10));
    case 't': return api.printf(ber, format, (drv_tag_t)strtoul(next(cursor), NULL, 16));
    case 'o':
    case 's':
    case 'B': {
      char *token = next(cursor);
      char *slash = strchr(token, '/');
      if (slash != NULL) *slash = '\0';
      char *bytes = fromHex(token, &length);
      if (format[0] == 'B') length = slash != NULL ? strtoul(slash + 1, NULL, 10) : 0;
      rc = format[0] == 's' ? api.printf(ber, format, bytes)
                            : api.printf(ber, format, bytes, (drv_len_t)length);
      free(bytes);
      return rc;
    }
    case 'v':
    case 'V': {
      const size_t count = strtoul(next(cursor), NULL, 10);
      char *strings[count + 1];
      struct drv_berval values[count + 1], *pointers[count + 1];
      for (size_t i = 0; i <= count; ++i) {
        strings[i] = values[i].bv_val = i < count ? fromHex(next(cursor), &length) : NULL;
        values[i].bv_len = (drv_len_t)length;
        pointers[i] = i < count ? &values[i] : NULL;
      }
      rc = format[0] == 'v' ? api.printf(ber, format, strings) : api.printf(ber, format, pointers);
      for (size_t i = 0; i < count; ++i) free(strings[i]);
      return rc;
    }
    default: return api.printf(ber, format);
  }
}

static void encode(const char *mode, const char *format, char **cursor) {
  drv_element *ber = api.alloc_t(strcmp(mode, "der") == 0 ? DRV_DER : 0);
  struct drv_berval *bv = NULL;
  int ok = ber != NULL;
  for (const char *f = format; ok && *f != '\0'; ++f) {
    const char letter[2] = {*f, '\0'};
    ok = encodeLetter(ber, letter, cursor) != -1;
  }
  if (ok && api.flatten(ber, &bv) == 0) {
    put("OK");
    putHex(bv->bv_val, bv->bv_len);
  } else {
    put("ERR");
  }
  if (bv != NULL) api.bvfree(bv);
  if (ber != NULL) api.free(ber, 1);
}

// The answer for an array that ber_scanf read (tag) into strings or
// values, which are then released.
static drv_tag_t putArray(drv_tag_t tag, char **strings, struct drv_berval **values) {
  size_t count = 0;
  while (strings != NULL ? strings[count] != NULL : values != NULL && values[count] != NULL)
    ++count;
  if (tag != DRV_ERROR) put(" %zu", count);
  for (size_t i = 0; i < count; ++i) {
    if (strings != NULL) putHex(strings[i], strlen(strings[i]));
    if (strings != NULL) api.memfree(strings[i]);
    if (values != NULL) putHex(values[i]->bv_val, values[i]->bv_len);
    if (values != NULL) api.bvfree(values[i]);
  }
  api.memfree(strings != NULL ? (void *)strings : (void *)values);
  return tag;
}

// A call such as "{a{v}}": the string, then the array.
static drv_tag_t decodeTextAndArray(drv_element *ber, const char *format, char array) {
  char *text = NULL, **strings = NULL;
  struct drv_berval **values = NULL;
  const drv_tag_t tag = array == 'v' ? api.scanf(ber, format, &text, &strings)
                                     : api.scanf(ber, format, &text, &values);
  if (tag != DRV_ERROR) putHex(text, strlen(text));
  api.memfree(text);
  return putArray(tag, strings, values);
}

// The letters that take arguments when decoding.
static const char kTakesArguments[] = "aOosbeiBltTvV";

// One ber_scanf call over format, its values appended to the answer.
static drv_tag_t decodeCall(drv_element *ber, const char *format) {
  static char buffer[1 << 17];
  char *text = NULL;
  struct drv_berval bv = {0, NULL}, *value = NULL, **values = NULL;
  char **strings = NULL;
  drv_len_t length = sizeof buffer;
  drv_tag_t tag = 0;
  int number = 0;
  const char *first = strpbrk(format, kTakesArguments);
  const char *second = first != NULL ? strpbrk(first + 1, kTakesArguments) : NULL;
  if (second != NULL) {
    if (*first != 'a' || strchr("vV", *second) == NULL ||
        strpbrk(second + 1, kTakesArguments) != NULL)
      fail("a call takes one letter with arguments, or a and then v or V");
    return decodeTextAndArray(ber, format, *second);
  }
  switch (first != NULL ? *first : '\0') {
    case 'a':
      if ((tag = api.scanf(ber, format, &text)) != DRV_ERROR) putHex(text, strlen(text));
      api.memfree(text);
      return tag;
    case 'O':
      if ((tag = api.scanf(ber, format, &value)) != DRV_ERROR) putHex(value->bv_val, value->bv_len);
      if (value != NULL) api.bvfree(value);
      return tag;
    case 'o':
      if ((tag = api.scanf(ber, format, &bv)) != DRV_ERROR) putHex(bv.bv_val, bv.bv_len);
      api.memfree(bv.bv_val);
      return tag;
    case 's':
      if ((tag = api.scanf(ber, format, buffer, &length)) != DRV_ERROR) putHex(buffer, length);
      return tag;
    case 'b':
    case 'e':
    case 'i':
      if ((tag = api.scanf(ber, format, &number)) != DRV_ERROR) put(" %d", number);
      return tag;
    case 'B':
      if ((tag = api.scanf(ber, format, &text, &length)) != DRV_ERROR) {
        putHex(text, (length + 7) / 8);
        put("/%lu", (unsigned long)length);
      }
      api.memfree(text);
      return tag;
    case 'l':
      if ((tag = api.scanf(ber, format, &length)) != DRV_ERROR) put(" %lu", (unsigned long)length);
      return tag;
    case 't':
    case 'T':
      if (api.scanf(ber, format, &tag) == DRV_ERROR) return DRV_ERROR;
      put(" 0x%lx", (unsigned long)tag);
      return tag;
    case 'v':
    case 'V':
      tag = *first == 'v' ? api.scanf(ber, format, &strings) : api.scanf(ber, format, &values);
      return putArray(tag, strings, values);
    default: return api.scanf(ber, format);
  }
}

static void decode(const char *format, const char *hex) {
  size_t length = 0;
  char *bytes = fromHex(hex, &length);
  struct drv_berval bv = {(drv_len_t)length, bytes};
  drv_element *ber = api.init(&bv);
  put("OK");
  int ok = ber != NULL;
  for (const char *f = format; ok && *f != '\0'; ++f) {
    char call[64] = {*f, '\0'};
    if (*f == '(') {
      const size_t n = strcspn(++f, ")");
      if (f[n] != ')' || n >= sizeof call) fail("bad call");
      memcpy(call, f, n);
      call[n] = '\0';
      f += n;
    }
    ok = decodeCall(ber, call) != DRV_ERROR;
  }
  if (!ok) {
    used = 0;
    put("ERR");
  }
  if (ber != NULL) api.free(ber, 1);
  free(bytes);
}

int main(void) {
  loadApi();
  char *line = NULL;
  size_t size = 0;
  while (getline(&line, &size, stdin) > 0) {
    char *cursor = NULL;
    const char *command = strtok_r(line, " \n", &cursor);
    if (command == NULL) continue;
    used = 0;
    if (strcmp(command, "E") == 0) {
      const char *mode = next(&cursor);
      encode(mode, next(&cursor), &cursor);
    } else if (strcmp(command, "D") == 0) {
      const char *format = next(&cursor);
      decode(format, next(&cursor));
    } else {
      fail("unknown request");
    }
    printf("%s\n", answer);
    fflush(stdout);
  }
  free(line);
  return 0;
}

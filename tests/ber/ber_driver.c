/*
 * tests/ber/ber_driver.c - runs ber_printf and ber_scanf on request, for
 * the interoperability tests. Built twice from this source:
 *   - ber_driver: linked with libquillomat.so through its public lber.h;
 *   - liblber_oracle (BER_DRIVER_LIBLBER): loads OpenLDAP's liblber with
 *     dlopen and calls it through the conventional API with that library's
 *     own widths (lengths and tags are unsigned long there). It runs in a
 *     process of its own, so its symbols never meet quillomat's.
 *
 * Requests, one per line on standard input, answered by one line:
 *   E <ber|der> <format> <tokens...>   ->  OK <hex of the encoding> | ERR
 *   D <format> <hex>                   ->  OK <tokens...> | ERR
 * Each format letter is one ber_printf / ber_scanf call, so the state kept
 * in the element between calls (open sequences, pending tag) counts too.
 * Tokens: integers in decimal; tags as 0x<hex>; byte strings in hex ("-"
 * for none); bit strings <hex>/<bits>; arrays (v, V) their count and then
 * their entries; "l" the length in decimal. Letters without a value take
 * or give no token.
 */
#define _POSIX_C_SOURCE 200809L

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#ifdef BER_DRIVER_LIBLBER
#include <dlfcn.h>

typedef unsigned long drv_len_t;
typedef unsigned long drv_tag_t;
typedef int drv_int_t;
typedef struct berelement drv_element;
struct drv_berval {
  drv_len_t bv_len;
  char *bv_val;
};
#define DRV_DER_OPTION 0x01 /* LBER_USE_DER */
#else
#include "ber/lber.h"

typedef ber_len_t drv_len_t;
typedef ber_tag_t drv_tag_t;
typedef ber_int_t drv_int_t;
typedef BerElement drv_element;
#define drv_berval berval
#define DRV_DER_OPTION LBER_USE_DER
#endif

#define DRV_ERROR ((drv_tag_t)-1)

struct api {
  drv_element *(*alloc_t)(int options);
  drv_element *(*init)(struct drv_berval *bv);
  void (*free)(drv_element *ber, int freebuf);
  int (*flatten)(drv_element *ber, struct drv_berval **bv);
  void (*bvfree)(struct drv_berval *bv);
  int (*printf)(drv_element *ber, const char *fmt, ...);
  drv_tag_t (*scanf)(drv_element *ber, const char *fmt, ...);
  void (*memfree)(void *p);
};

static struct api api;

#ifdef BER_DRIVER_LIBLBER
static void *symbol(void *lib, const char *name) {
  void *p = dlsym(lib, name);
  if (p == NULL) {
    fprintf(stderr, "liblber_oracle: %s missing\n", name);
    exit(2);
  }
  return p;
}

static void loadApi(void) {
  static const char *const names[] = {"liblber-2.5.so.0", "liblber.so.2"};
  void *lib = NULL;
  for (size_t i = 0; lib == NULL && i < sizeof names / sizeof names[0]; ++i) {
    lib = dlopen(names[i], RTLD_NOW | RTLD_LOCAL);
  }
  if (lib == NULL) {
    fprintf(stderr,
            "liblber_oracle: OpenLDAP's liblber cannot be loaded (tools/deps installs it)\n");
    exit(2);
  }
  /* Object and function pointers: POSIX guarantees the conversion. */
  *(void **)&api.alloc_t = symbol(lib, "ber_alloc_t");
  *(void **)&api.init = symbol(lib, "ber_init");
  *(void **)&api.free = symbol(lib, "ber_free");
  *(void **)&api.flatten = symbol(lib, "ber_flatten");
  *(void **)&api.bvfree = symbol(lib, "ber_bvfree");
  *(void **)&api.printf = symbol(lib, "ber_printf");
  *(void **)&api.scanf = symbol(lib, "ber_scanf");
  *(void **)&api.memfree = symbol(lib, "ber_memfree");
}
#else
static void loadApi(void) {
  api.alloc_t = ber_alloc_t;
  api.init = ber_init;
  api.free = ber_free;
  api.flatten = ber_flatten;
  api.bvfree = ber_bvfree;
  api.printf = ber_printf;
  api.scanf = ber_scanf;
  api.memfree = free; /* the library's blocks come from malloc */
}
#endif

/* ---- Tokens ------------------------------------------------------------------- */

struct out {
  char *text;
  size_t length;
  size_t size;
};

static void put(struct out *o, const char *fmt, ...) {
  va_list ap;
  for (;;) {
    va_start(ap, fmt);
    const int n = vsnprintf(o->text + o->length, o->size - o->length, fmt, ap);
    va_end(ap);
    if (n < 0) exit(3);
    if ((size_t)n < o->size - o->length) {
      o->length += (size_t)n;
      return;
    }
    o->size = 2 * o->size + (size_t)n + 64;
    o->text = realloc(o->text, o->size);
    if (o->text == NULL) exit(3);
  }
}

static void putHex(struct out *o, const char *bytes, size_t length) {
  put(o, " ");
  if (length == 0) put(o, "-");
  for (size_t i = 0; i < length; ++i) put(o, "%02x", (unsigned char)bytes[i]);
}

/* Decodes a hex token into a new NUL-terminated block; *length its bytes. */
static char *fromHex(const char *token, size_t *length) {
  const size_t digits = strcmp(token, "-") == 0 ? 0 : strlen(token);
  char *bytes = malloc(digits / 2 + 1);
  if (bytes == NULL) exit(3);
  for (size_t i = 0; i < digits / 2; ++i) {
    unsigned value = 0;
    if (sscanf(token + 2 * i, "%2x", &value) != 1) exit(4);
    bytes[i] = (char)value;
  }
  bytes[digits / 2] = '\0';
  *length = digits / 2;
  return bytes;
}

static char *next(char **cursor) {
  char *token = strtok_r(NULL, " \n", cursor);
  if (token == NULL) exit(4);
  return token;
}

/* ---- Encoding ------------------------------------------------------------------ */

/* One letter as one ber_printf call; -1 on failure. */
static int encodeLetter(drv_element *ber, char letter, char **cursor) {
  const char format[2] = {letter, '\0'};
  size_t length = 0;
  int rc = -1;
  switch (letter) {
    case 'b':
    case 'e':
    case 'i': return api.printf(ber, format, (drv_int_t)strtol(next(cursor), NULL, 10));
    case 't': return api.printf(ber, format, (drv_tag_t)strtoul(next(cursor), NULL, 16));
    case 'o':
    case 's': {
      char *bytes = fromHex(next(cursor), &length);
      rc = letter == 'o' ? api.printf(ber, format, bytes, (drv_len_t)length)
                         : api.printf(ber, format, bytes);
      free(bytes);
      return rc;
    }
    case 'B': {
      char *token = next(cursor);
      char *slash = strchr(token, '/');
      if (slash == NULL) exit(4);
      *slash = '\0';
      char *bytes = fromHex(token, &length);
      rc = api.printf(ber, format, bytes, (drv_len_t)strtoul(slash + 1, NULL, 10));
      free(bytes);
      return rc;
    }
    case 'v':
    case 'V': {
      const size_t count = strtoul(next(cursor), NULL, 10);
      char **strings = calloc(count + 1, sizeof *strings);
      struct drv_berval *values = calloc(count + 1, sizeof *values);
      struct drv_berval **pointers = calloc(count + 1, sizeof *pointers);
      if (strings == NULL || values == NULL || pointers == NULL) exit(3);
      for (size_t i = 0; i < count; ++i) {
        strings[i] = fromHex(next(cursor), &length);
        values[i].bv_val = strings[i];
        values[i].bv_len = (drv_len_t)length;
        pointers[i] = &values[i];
      }
      rc = letter == 'v' ? api.printf(ber, format, strings) : api.printf(ber, format, pointers);
      for (size_t i = 0; i < count; ++i) free(strings[i]);
      free(strings);
      free(values);
      free(pointers);
      return rc;
    }
    default: return api.printf(ber, format);
  }
}

static void encode(const char *mode, const char *format, char **cursor, struct out *o) {
  drv_element *ber = api.alloc_t(strcmp(mode, "der") == 0 ? DRV_DER_OPTION : 0);
  struct drv_berval *bv = NULL;
  int ok = ber != NULL;
  for (const char *f = format; ok && *f != '\0'; ++f) ok = encodeLetter(ber, *f, cursor) != -1;
  if (ok) ok = api.flatten(ber, &bv) == 0;
  if (ok) {
    put(o, "OK");
    putHex(o, bv->bv_val, bv->bv_len);
  } else {
    put(o, "ERR");
  }
  if (bv != NULL) api.bvfree(bv);
  if (ber != NULL) api.free(ber, 1);
}

/* ---- Decoding ------------------------------------------------------------------ */

/* One letter as one ber_scanf call, its value appended to o. */
static drv_tag_t decodeLetter(drv_element *ber, char letter, struct out *o) {
  const char format[2] = {letter, '\0'};
  drv_tag_t tag = DRV_ERROR;
  switch (letter) {
    case 'a': {
      char *text = NULL;
      tag = api.scanf(ber, format, &text);
      if (tag != DRV_ERROR) putHex(o, text, strlen(text));
      api.memfree(text);
      return tag;
    }
    case 'O': {
      struct drv_berval *bv = NULL;
      tag = api.scanf(ber, format, &bv);
      if (tag != DRV_ERROR) putHex(o, bv->bv_val, bv->bv_len);
      if (bv != NULL) api.bvfree(bv);
      return tag;
    }
    case 'o': {
      struct drv_berval bv = {0, NULL};
      tag = api.scanf(ber, format, &bv);
      if (tag != DRV_ERROR) putHex(o, bv.bv_val, bv.bv_len);
      api.memfree(bv.bv_val);
      return tag;
    }
    case 's': {
      static char buffer[1 << 17];
      drv_len_t length = sizeof buffer;
      tag = api.scanf(ber, format, buffer, &length);
      if (tag != DRV_ERROR) putHex(o, buffer, length);
      return tag;
    }
    case 'b':
    case 'e':
    case 'i': {
      drv_int_t value = 0;
      tag = api.scanf(ber, format, &value);
      if (tag != DRV_ERROR) put(o, " %d", (int)value);
      return tag;
    }
    case 'B': {
      char *bytes = NULL;
      drv_len_t bits = 0;
      tag = api.scanf(ber, format, &bytes, &bits);
      if (tag != DRV_ERROR) {
        putHex(o, bytes, (bits + 7) / 8);
        put(o, "/%lu", (unsigned long)bits);
      }
      api.memfree(bytes);
      return tag;
    }
    case 'l': {
      drv_len_t length = 0;
      tag = api.scanf(ber, format, &length);
      if (tag != DRV_ERROR) put(o, " %lu", (unsigned long)length);
      return tag;
    }
    case 't':
    case 'T': {
      drv_tag_t read = 0;
      tag = api.scanf(ber, format, &read);
      if (tag != DRV_ERROR) put(o, " 0x%lx", (unsigned long)read);
      return tag;
    }
    case 'v': {
      char **strings = NULL;
      tag = api.scanf(ber, format, &strings);
      size_t count = 0;
      while (strings != NULL && strings[count] != NULL) ++count;
      if (tag != DRV_ERROR) put(o, " %zu", count);
      for (size_t i = 0; i < count; ++i) {
        putHex(o, strings[i], strlen(strings[i]));
        api.memfree(strings[i]);
      }
      api.memfree(strings);
      return tag;
    }
    case 'V': {
      struct drv_berval **values = NULL;
      tag = api.scanf(ber, format, &values);
      size_t count = 0;
      while (values != NULL && values[count] != NULL) ++count;
      if (tag != DRV_ERROR) put(o, " %zu", count);
      for (size_t i = 0; i < count; ++i) {
        putHex(o, values[i]->bv_val, values[i]->bv_len);
        api.bvfree(values[i]);
      }
      api.memfree(values);
      return tag;
    }
    default: return api.scanf(ber, format);
  }
}

static void decode(const char *format, const char *hex, struct out *o) {
  size_t length = 0;
  char *bytes = fromHex(hex, &length);
  struct drv_berval bv = {(drv_len_t)length, bytes};
  drv_element *ber = api.init(&bv);
  struct out values = {NULL, 0, 0};
  put(&values, "%s", "");
  int ok = ber != NULL;
  for (const char *f = format; ok && *f != '\0'; ++f)
    ok = decodeLetter(ber, *f, &values) != DRV_ERROR;
  put(o, "%s", ok ? "OK" : "ERR");
  if (ok) put(o, "%s", values.text);
  free(values.text);
  if (ber != NULL) api.free(ber, 1);
  free(bytes);
}

int main(void) {
  loadApi();
  char *line = NULL;
  size_t size = 0;
  struct out o = {NULL, 0, 0};
  while (getline(&line, &size, stdin) > 0) {
    char *cursor = NULL;
    const char *command = strtok_r(line, " \n", &cursor);
    if (command == NULL) continue;
    o.length = 0;
    put(&o, "%s", "");
    if (strcmp(command, "E") == 0) {
      const char *mode = next(&cursor);
      const char *format = next(&cursor);
      encode(mode, format, &cursor, &o);
    } else if (strcmp(command, "D") == 0) {
      const char *format = next(&cursor);
      decode(format, next(&cursor), &o);
    } else {
      exit(4);
    }
    printf("%s\n", o.text);
    fflush(stdout);
  }
  free(line);
  free(o.text);
  return 0;
}

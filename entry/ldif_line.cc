// entry/ldif_line.cc - LDIF attribute-value lines: the plain or base64
// decision, folding, conversion of non-binary base64 values, and the binary
// attribute list.
#include "entry/ldif_line_internal.h"

#include <algorithm>
#include <cstring>

#include "core/context_access.h"
#include "core/convert.h"
#include "core/memory.h"
#include "core/output.h"
#include "entry/base64.h"
#include "util/strings.h"

namespace gslu::ldif {
namespace {

// A continuation line starts before a character written while the column
// counter is past this value.
constexpr size_t kFoldColumn = 76;
constexpr char kFold[] = "\n ";
constexpr size_t kFoldSize = 2;

constexpr uint32_t kTraceBinary = 0x1000000;
constexpr char kBinarySuffix[] = ";binary";
constexpr size_t kBinarySuffixSize = sizeof kBinarySuffix - 1;

// Attribute types whose values are binary data, whole names.
constexpr const char *kBinaryTypes[] = {
    "photo",           "personalsignature",       "audio",
    "jpegphoto",       "javaserializedobject",    "thumbnailphoto",
    "thumbnaillogo",   "usercertificate",         "cacertificate",
    "authorityrevocationlist", "certificaterevocationlist", "crosscertificatepair",
    "x500uniqueidentifier",
};

// ASCII white space: space, tab, newline, vertical tab, form feed, return.
[[nodiscard]] constexpr bool isAsciiSpace(unsigned char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

[[nodiscard]] constexpr bool isPrintableAscii(unsigned char c) { return c >= 0x20 && c <= 0x7e; }

struct Form {
  bool base64;
  uint32_t shown;  // plain form: bytes written before any NUL
};

// Length of the run of printable ASCII at the start of v. Eight bytes are
// tested at a time: whether any byte is below 0x20, or is 0x7f or above.
[[nodiscard]] uint32_t printablePrefix(const unsigned char *v, uint32_t n) {
  constexpr uint64_t kOnes = 0x0101010101010101ULL;
  constexpr uint64_t kHighBits = 0x8080808080808080ULL;
  uint32_t i = 0;
  for (; n - i >= sizeof(uint64_t); i += sizeof(uint64_t)) {
    uint64_t w;
    std::memcpy(&w, v + i, sizeof w);
    const uint64_t below_space = (w - kOnes * 0x20) & ~w & kHighBits;
    const uint64_t delete_or_above = ((w + kOnes) | w) & kHighBits;
    if ((below_space | delete_or_above) != 0) break;
  }
  while (i < n && isPrintableAscii(v[i])) ++i;
  return i;
}

// The plain-or-base64 decision, by the value's bytes. A value that is not
// plain ASCII cannot be plain, so characters never need decoding here.
[[nodiscard]] Form chooseForm(const unsigned char *v, uint32_t n) {
  if (n == 0) return {false, 0};
  if (v[0] == '\0' || v[0] == ':' || isAsciiSpace(v[0])) return {true, 0};
  const uint32_t run = printablePrefix(v, n);
  if (run == n) return {false, n};
  // Deliberate: a NUL ends a plain value; what follows it is dropped.
  if (v[run] == '\0') return {false, run};
  return {true, 0};
}

// Number of continuation lines needed to write n characters starting at
// column `column`.
[[nodiscard]] size_t foldsFor(size_t column, uint64_t n) {
  const size_t first = column > kFoldColumn ? 0 : kFoldColumn + 1 - column;
  if (n <= first) return 0;
  return static_cast<size_t>((n - first + kFoldColumn - 1) / kFoldColumn);
}

// Copies n characters, folding as the column counter demands; returns the
// end of the output and leaves the counter after the last character.
char *writeFolded(char *out, size_t *column, const char *src, size_t n) {
  while (n > 0) {
    if (*column > kFoldColumn) {
      std::memcpy(out, kFold, kFoldSize);
      out += kFoldSize;
      *column = 1;
    }
    const size_t k = std::min(n, kFoldColumn + 1 - *column);
    std::memcpy(out, src, k);
    out += k;
    src += k;
    n -= k;
    *column += k;
  }
  return out;
}

[[nodiscard]] constexpr uint64_t base64Digits(uint64_t bytes) { return (bytes + 2) / 3 * 4; }

// Encodes in folded base64. The padding "=" digits are written like any
// other digit: when a fold falls inside the last group this gives exactly
// the historical layout, where the "=" that would have overwritten the
// continuation space went to the last character before the fold instead.
char *writeBase64(char *out, size_t column, const unsigned char *bytes, uint64_t n) {
  constexpr size_t kChunkBytes = 3 * 1024;  // a multiple of 3: no padding inside
  char digits[base64Digits(kChunkBytes)];
  while (n > 0) {
    const uint32_t take = static_cast<uint32_t>(std::min<uint64_t>(n, kChunkBytes));
    const uint32_t written = gsluztvb64ecr(bytes, take, digits, GSLUZTV_B64_LINE_NEVER);
    out = writeFolded(out, &column, digits, written);
    bytes += take;
    n -= take;
  }
  return out;
}

}  // namespace

ValueLine::ValueLine(gsluctx *core, std::string_view type, const char *value, uint32_t length,
                     Conversion conversion)
    : type_(type),
      bytes_(reinterpret_cast<const unsigned char *>(value)),
      count_(0),
      base64_(false),
      converted_(nullptr, ContextFree{core}) {
  const Form form = chooseForm(bytes_, length);
  base64_ = form.base64;
  count_ = form.base64 ? length : form.shown;
  if (!base64_ || conversion != Conversion::kAsContext || !gslu::convertsOutput(core)) {
    return;
  }
  // gsldlEIsBinary wants a NUL-terminated type; the record writer's types
  // are attribute names, which are.
  if (gsldlEIsBinary(type.data()) != GSLDL_NOT_BINARY) return;
  char *block = nullptr;
  uint64_t converted = 0;
  if (gsluucoConvertOutput(core, value, length, &block, &converted) != GSLUUC_OK) {
    gslutcTrace(GSLUTC_LEVEL_FATAL, "Error converting output from UTF8 to Native \n", GSLUF_ARG_END);
    return;  // the unconverted bytes are encoded
  }
  converted_.reset(block);
  bytes_ = reinterpret_cast<const unsigned char *>(block);
  count_ = converted;
}

size_t ValueLine::size() const {
  const size_t t = type_.size();
  if (base64_) {
    const uint64_t digits = base64Digits(count_);
    return t + 3 + digits + kFoldSize * foldsFor(t + 3, digits) + 1;
  }
  return t + 2 + count_ + kFoldSize * foldsFor(t + 1, count_) + 1;
}

char *ValueLine::write(char *out) const {
  std::memcpy(out, type_.data(), type_.size());
  out += type_.size();
  if (base64_) {
    std::memcpy(out, ":: ", 3);
    out = writeBase64(out + 3, type_.size() + 3, bytes_, count_);
  } else {
    std::memcpy(out, ": ", 2);
    size_t column = type_.size() + 1;  // the space after the colon is not counted
    out = writeFolded(out + 2, &column, reinterpret_cast<const char *>(bytes_), count_);
  }
  *out++ = '\n';
  return out;
}

}  // namespace gslu::ldif

using namespace gslu::ldif;

extern "C" {

int32_t gsldlVTypeCheck(const char *type) {
  if (type == nullptr || type[0] == ' ' || type[0] == '#') return GSLDL_TYPE_REFUSED;
  for (const char *p = type; *p != '\0'; ++p) {
    const auto c = static_cast<unsigned char>(*p);
    if (c < 0x20 || c == 0x7f) return GSLDL_TYPE_REFUSED;
  }
  return GSLDL_TYPE_OK;
}

char *gsldlDLdifTypeAndValue(const char *type, const char *value, uint32_t length) {
  if (gsldlVTypeCheck(type) != GSLDL_TYPE_OK || (value == nullptr && length != 0)) return nullptr;
  gsluctx *core = gslu::resolveContext(nullptr);
  const ValueLine line(core, type, value, length, Conversion::kAsContext);
  // The block the line has always been given: type length + 4/3 of the
  // value, plus room for the separators and folds. Detect and prevent
  // integer overflow: the sum is taken in 64 bits and must fit 32.
  const uint64_t n = std::strlen(type) + static_cast<uint64_t>(length) * 4 / 3;
  uint64_t size = n + 7 + 2 * ((n + 6) / kFoldColumn) + 1;
  // A converted value may be longer than the original; the line must fit.
  size = std::max<uint64_t>(size, line.size() + 1);
  if (size > UINT32_MAX) return nullptr;
  auto *block = static_cast<char *>(gslummMalloc(nullptr, static_cast<uint32_t>(size)));
  if (block == nullptr) return nullptr;
  *line.write(block) = '\0';
  return block;
}

void gsldlCPutTypeAndValue(char **position, const char *type, const char *value, uint32_t length) {
  if (position == nullptr || *position == nullptr || gsldlVTypeCheck(type) != GSLDL_TYPE_OK ||
      (value == nullptr && length != 0)) {
    return;
  }
  const ValueLine line(gslu::resolveContext(nullptr), type, value, length,
                       Conversion::kAsContext);
  *position = line.write(*position);
}

int32_t gsldlEIsBinary(const char *type) {
  if (type == nullptr) return GSLDL_NOT_BINARY;
  gslu::trace(nullptr, kTraceBinary, "gsldlEIsBinary\n");
  gslu::Owned<char> lower(gslussiStrcasedup(nullptr, type), gslu::ContextFree{nullptr});
  if (!lower) return GSLDL_NOT_BINARY;
  gslu::trace(nullptr, kTraceBinary, "gsldlEIsBinary: loc_str : [%s]\n",
              static_cast<const char *>(lower.get()));
  // Only the first ";binary" counts, and only when it ends the type.
  if (const char *suffix = std::strstr(lower.get(), kBinarySuffix);
      suffix != nullptr && std::strlen(suffix) == kBinarySuffixSize) {
    return GSLDL_BINARY;
  }
  for (const char *name : kBinaryTypes) {
    if (gslusicStrcasecmp(nullptr, lower.get(), name) == 0) return GSLDL_BINARY;
  }
  return GSLDL_NOT_BINARY;
}

}  // extern "C"

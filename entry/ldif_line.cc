// entry/ldif_line.cc - LDIF attribute-value lines: the plain or base64
// decision, folding, conversion of non-binary base64 values, and the binary
// attribute list.
#include "entry/ldif_line_internal.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "core/context_access.h"
#include "core/convert.h"
#include "core/memory.h"
#include "core/output.h"
#include "entry/base64_internal.h"
#include "entry/names.h"
#include "util/strings.h"

namespace gslu::ldif {
namespace {

constexpr char kFold[] = "\n ";
constexpr size_t kFoldSize = 2;

constexpr uint32_t kTraceBinary = 0x1000000;
constexpr char kBinarySuffix[] = ";binary";
constexpr size_t kBinarySuffixSize = sizeof kBinarySuffix - 1;

// Attribute types whose values are binary data, whole names.
constexpr const char *kBinaryTypes[] = {
    "photo",
    "personalsignature",
    "audio",
    "jpegphoto",
    "javaserializedobject",
    "thumbnailphoto",
    "thumbnaillogo",
    "usercertificate",
    "cacertificate",
    "authorityrevocationlist",
    "certificaterevocationlist",
    "crosscertificatepair",
    "x500uniqueidentifier",
};

// ASCII white space: space, tab, newline, vertical tab, form feed, return.
[[nodiscard]] constexpr bool isAsciiSpace(unsigned char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

[[nodiscard]] constexpr bool isPrintableAscii(unsigned char c) { return c >= 0x20 && c <= 0x7e; }

// Whether the eight bytes at v are all printable ASCII: none below 0x20,
// none 0x7f or above.
[[nodiscard]] bool isPrintableWord(const unsigned char *v) {
  constexpr uint64_t kOnes = 0x0101010101010101ULL;
  constexpr uint64_t kHighBits = 0x8080808080808080ULL;
  uint64_t w;
  std::memcpy(&w, v, sizeof w);
  const uint64_t below_space = (w - kOnes * 0x20) & ~w & kHighBits;
  const uint64_t delete_or_above = ((w + kOnes) | w) & kHighBits;
  return (below_space | delete_or_above) == 0;
}

// Length of the run of printable ASCII at the start of v, eight bytes at a
// time. The last eight bytes of a value of eight or more are tested as one
// word too (overlapping the words before), so a printable value is told
// without a byte loop.
[[nodiscard]] uint32_t printablePrefix(const unsigned char *v, uint32_t n) {
  constexpr uint32_t kWord = sizeof(uint64_t);
  uint32_t i = 0;
  for (; n - i >= kWord; i += kWord) {
    if (!isPrintableWord(v + i)) break;
  }
  if (i != n && n - i < kWord && n >= kWord && isPrintableWord(v + n - kWord)) return n;
  while (i < n && isPrintableAscii(v[i])) ++i;
  return i;
}

// Digits or characters that still fit on the line at column `column`
// before a fold, when lines fold past column `fold`.
[[nodiscard]] constexpr size_t roomAt(size_t column, size_t fold) {
  return column > fold ? 0 : fold + 1 - column;
}

// Number of continuation lines needed to write n characters starting at
// column `column`.
[[nodiscard]] size_t foldsFor(size_t column, uint64_t n, size_t fold) {
  const size_t first = roomAt(column, fold);
  if (n <= first) return 0;
  return static_cast<size_t>((n - first + fold - 1) / fold);
}

// Copies n characters, folding as the column counter demands; returns the
// end of the output.
char *writeFolded(char *out, size_t column, const char *src, uint64_t n, size_t fold) {
  size_t room = roomAt(column, fold);
  while (n > room) {
    std::memcpy(out, src, room);
    std::memcpy(out + room, kFold, kFoldSize);
    out += room + kFoldSize;
    src += room;
    n -= room;
    room = fold;
  }
  if (n == 0) return out;  // an empty value may have no bytes at all
  std::memcpy(out, src, n);
  return out + n;
}

[[nodiscard]] constexpr uint64_t base64Digits(uint64_t bytes) {
  return (bytes + b64::kBytesPerGroup - 1) / b64::kBytesPerGroup * b64::kDigitsPerGroup;
}

// Writes the four digits of one group with room digits left on the line,
// folding inside the group when it does not fit whole.
char *writeGroup(char *out, const char (&digits)[b64::kDigitsPerGroup], size_t *room,
                 size_t fold) {
  constexpr size_t kGroup = b64::kDigitsPerGroup;
  if (*room >= kGroup) {
    std::memcpy(out, digits, kGroup);
    *room -= kGroup;
    return out + kGroup;
  }
  for (size_t i = 0; i < kGroup; ++i) {
    if (i == *room) {
      std::memcpy(out, kFold, kFoldSize);
      out += kFoldSize;
    }
    *out++ = digits[i];
  }
  *room = fold - (kGroup - *room);
  return out;
}

// Encodes n bytes in base64 straight into the line, folding as the column
// counter demands. The groups that fit whole on the current line are
// written in a loop that does not look at the column; only a group that a
// fold cuts is written apart.
// Deliberate: the padding "=" digits are written like any other digit.
// When a fold falls inside the last group this gives the documented layout,
// where an "=" that would overwrite the continuation space goes to the last
// character before the fold instead; readers of these lines expect it.
char *writeBase64(char *out, size_t column, const unsigned char *in, uint64_t n, size_t fold) {
  const unsigned char *const end = in + n;
  size_t room = roomAt(column, fold);
  for (;;) {
    const uint64_t whole = std::min<uint64_t>(room / b64::kDigitsPerGroup, n / b64::kBytesPerGroup);
    out = b64::encodeGroups(&in, whole, end, out);
    n -= whole * b64::kBytesPerGroup;
    room -= whole * b64::kDigitsPerGroup;
    if (n < b64::kBytesPerGroup) break;
    char digits[b64::kDigitsPerGroup];
    b64::writeDigits(b64::groupBits(in), digits);
    out = writeGroup(out, digits, &room, fold);
    in += b64::kBytesPerGroup;
    n -= b64::kBytesPerGroup;
  }
  if (n > 0) {
    char digits[b64::kDigitsPerGroup];
    b64::writePartialGroup(in, static_cast<uint32_t>(n), digits);
    out = writeGroup(out, digits, &room, fold);
  }
  return out;
}

}  // namespace

Form chooseForm(const char *value, uint32_t length, bool strict) {
  const auto *v = reinterpret_cast<const unsigned char *>(value);
  if (length == 0) return {false, 0};
  if (v[0] == '\0' || v[0] == ':' || isAsciiSpace(v[0])) return {true, length};
  const uint32_t run = printablePrefix(v, length);
  if (run == length) {
    // RFC 2849 allows no plain value that starts with '<', and asks for
    // base64 where one ends with a space.
    if (strict && (v[0] == '<' || v[length - 1] == ' ')) return {true, length};
    return {false, length};
  }
  // Deliberate: a NUL ends a plain value; what follows it is dropped.
  if (v[run] == '\0' && !strict) return {false, run};
  return {true, length};
}

uint64_t lineSize(size_t type_size, bool base64, uint64_t count, size_t fold) {
  if (base64) {
    const uint64_t digits = base64Digits(count);
    return type_size + 3 + digits + kFoldSize * foldsFor(type_size + 3, digits, fold) + 1;
  }
  return type_size + 2 + count + kFoldSize * foldsFor(type_size + 1, count, fold) + 1;
}

char *writeLine(char *out, std::string_view type, const char *bytes, uint64_t count, bool base64,
                size_t fold) {
  std::memcpy(out, type.data(), type.size());
  return writeLineTail(out + type.size(), type.size(), bytes, count, base64, fold);
}

char *writeLineTail(char *out, size_t type_size, const char *bytes, uint64_t count, bool base64,
                    size_t fold) {
  if (base64) {
    std::memcpy(out, ":: ", 3);
    out = writeBase64(out + 3, type_size + 3, reinterpret_cast<const unsigned char *>(bytes),
                      count, fold);
  } else {
    std::memcpy(out, ": ", 2);
    // The space after the colon is not counted.
    out = writeFolded(out + 2, type_size + 1, bytes, count, fold);
  }
  *out++ = '\n';
  return out;
}

ValueLine::ValueLine(gsluctx *core, std::string_view type, const char *value, uint32_t length,
                     Form form, Conversion conversion, size_t fold)
    : type_(type),
      bytes_(value),
      count_(form.shown),
      fold_(fold),
      base64_(form.base64),
      converted_(nullptr, ContextFree{core}) {
  if (!base64_ || conversion != Conversion::kAsContext || !gslu::convertsOutput(core)) return;
  // gsldlEIsBinary wants a NUL-terminated type; the record writer's types
  // are attribute names, which are.
  if (gsldlEIsBinary(type.data()) != GSLDL_NOT_BINARY) return;
  char *block = nullptr;
  uint64_t converted = 0;
  if (gsluucoConvertOutput(core, value, length, &block, &converted) != GSLUUC_OK) {
    gslutcTrace(GSLUTC_LEVEL_FATAL, "Error converting output from UTF8 to Native \n",
                GSLUF_ARG_END);
    return;  // the unconverted bytes are encoded
  }
  converted_.reset(block);
  bytes_ = block;
  count_ = converted;
}

size_t ValueLine::size() const { return lineSize(type_.size(), base64_, count_, fold_); }

char *ValueLine::write(char *out) const {
  return writeLine(out, type_, bytes_, count_, base64_, fold_);
}

}  // namespace gslu::ldif

using namespace gslu::ldif;

extern "C" {

int32_t gsldlVTypeCheck(const char *type) {
  return gslclenlLineTypeLength(type) < 0 ? GSLDL_TYPE_REFUSED : GSLDL_TYPE_OK;
}

char *gsldlDLdifTypeAndValue(const char *type, const char *value, uint32_t length) {
  if (gsldlVTypeCheck(type) != GSLDL_TYPE_OK || (value == nullptr && length != 0)) return nullptr;
  gsluctx *core = gslu::resolveContext(nullptr);
  const ValueLine line(core, type, value, length, Conversion::kAsContext);
  // The block is as large as the documented formula says (type length +
  // 4/3 of the value, plus room for the separators and folds), since
  // callers of gsldlCPutTypeAndValue size their own buffers by it. Detect
  // and prevent integer overflow: the sum is taken in 64 bits and must fit
  // 32.
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
  const ValueLine line(gslu::resolveContext(nullptr), type, value, length, Conversion::kAsContext);
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

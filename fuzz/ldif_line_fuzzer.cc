// Fuzz target for one LDIF value line (gsldlDLdifTypeAndValue and
// gsldlCPutTypeAndValue). The input is a type (a string of fuzz_support.h's
// Input, cut at its first NUL as a C string is) followed by the value, the
// rest of the input. Checked:
//   - a type gsldlVTypeCheck refuses gives no line, and so does exactly the
//     type the documented rule refuses;
//   - otherwise the line is byte for byte the one the plain rendering of
//     ldif_model.h gives, so folding, the base64 decision and the NUL cut
//     are all compared; it has the shape of any LDIF text (no line over 78
//     bytes, or the type's length + 3 for a long type; continuation lines
//     of one space and 1 to 76 characters; no empty line);
//   - its base64 part, unfolded, decodes with the project's decoder back to
//     the whole value;
//   - gsldlCPutTypeAndValue writes the same bytes into a heap block of the
//     documented size (the sanitizer sees any overrun) and advances past
//     them;
//   - gsldlEIsBinary agrees with the documented list for ASCII types.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "core/memory.h"
#include "entry/base64.h"
#include "entry/ldif_line.h"
#include "fuzz_support.h"
#include "ldif_model.h"

namespace {

// Long enough for types past the fold column, which fold at once.
constexpr size_t kMaxType = 90;

constexpr std::string_view kBinaryTypes[] = {
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

std::string asciiLower(std::string_view s) {
  std::string out(s);
  for (char &c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

bool isAscii(std::string_view s) {
  return std::all_of(s.begin(), s.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// The documented rule: the first ";binary" ends the type, or the whole type
// is one of the list, in any letter case.
bool binaryByRule(std::string_view type) {
  const std::string lower = asciiLower(type);
  const size_t suffix = lower.find(";binary");
  if (suffix != std::string::npos && suffix + 7 == lower.size()) return true;
  return std::find(std::begin(kBinaryTypes), std::end(kBinaryTypes), lower) !=
         std::end(kBinaryTypes);
}

// The size gsldlDLdifTypeAndValue gives its block, which callers of
// gsldlCPutTypeAndValue are told is enough.
size_t documentedSize(size_t type_length, uint32_t value_length) {
  const uint64_t n = type_length + static_cast<uint64_t>(value_length) * 4 / 3;
  return static_cast<size_t>(n + 7 + 2 * ((n + 6) / 76) + 1);
}

// The value part of a line (after "type: " or "type:: "), unfolded.
std::string unfoldedValue(std::string_view line, size_t prefix) {
  std::string out;
  for (size_t i = prefix; i + 1 < line.size(); ++i) {
    if (line[i] == '\n') {
      ++i;  // and the space that opens the continuation line
      continue;
    }
    out.push_back(line[i]);
  }
  return out;
}

void checkBase64Decodes(std::string_view line, size_t type_length, std::string_view value) {
  const std::string digits = unfoldedValue(line, type_length + 3);
  std::vector<char> decoded(
      gsluztvb64gol(static_cast<uint32_t>(digits.size()), GSLUZTV_B64_SIZE_DECODE) + 1);
  const uint32_t n =
      gsluztvb64d(digits.data(), static_cast<uint32_t>(digits.size()), decoded.data());
  FUZZ_CHECK(std::string_view(decoded.data(), n) == value);
}

void checkPut(const std::string &type, std::string_view value, std::string_view expected) {
  const auto length = static_cast<uint32_t>(value.size());
  const size_t size = documentedSize(type.size(), length);
  std::vector<char> block(size);
  char *position = block.data();
  gsldlCPutTypeAndValue(&position, type.c_str(), value.data(), length);
  FUZZ_CHECK(position == block.data() + expected.size());
  FUZZ_CHECK(std::string_view(block.data(), expected.size()) == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  qfuzz::setUpProcess();
  qfuzz::Input in(data, size);
  std::string type = in.string(kMaxType);
  type.resize(std::strlen(type.c_str()));  // a C string ends at its NUL
  const std::string_view value = in.rest();
  const auto length = static_cast<uint32_t>(value.size());

  if (isAscii(type))
    FUZZ_CHECK((gsldlEIsBinary(type.c_str()) == GSLDL_BINARY) == binaryByRule(type));

  char *line = gsldlDLdifTypeAndValue(type.c_str(), value.data(), length);
  if (!qfuzz::typeAllowed(type)) {
    FUZZ_CHECK(gsldlVTypeCheck(type.c_str()) == GSLDL_TYPE_REFUSED);
    FUZZ_CHECK(line == nullptr);
    char sentinel = 'x';
    char *position = &sentinel;
    gsldlCPutTypeAndValue(&position, type.c_str(), value.data(), length);
    FUZZ_CHECK(position == &sentinel && sentinel == 'x');
    return 0;
  }
  FUZZ_CHECK(gsldlVTypeCheck(type.c_str()) == GSLDL_TYPE_OK);
  FUZZ_CHECK(line != nullptr);
  const std::string text(line);
  gslumfFree(nullptr, line);

  const std::string expected = qfuzz::valueLine(type, value);
  FUZZ_CHECK(text == expected);
  qfuzz::checkShape(text, std::max(qfuzz::kLineLimit, type.size() + 3));
  const qfuzz::ValueForm form = qfuzz::valueForm(value);
  if (form.base64) {
    FUZZ_CHECK(text.compare(0, type.size() + 3, type + ":: ") == 0);
    checkBase64Decodes(text, type.size(), value);
  } else {
    FUZZ_CHECK(text.compare(0, type.size() + 2, type + ": ") == 0);
    FUZZ_CHECK(unfoldedValue(text, type.size() + 2) == value.substr(0, form.shown));
  }
  checkPut(type, value, text);

  // A missing value is an empty one when its length is 0, and no line else.
  if (length == 0) {
    char *empty = gsldlDLdifTypeAndValue(type.c_str(), nullptr, 0);
    FUZZ_CHECK(empty != nullptr && text == empty);
    gslumfFree(nullptr, empty);
  } else {
    FUZZ_CHECK(gsldlDLdifTypeAndValue(type.c_str(), nullptr, length) == nullptr);
  }
  return 0;
}

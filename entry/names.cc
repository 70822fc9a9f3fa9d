// entry/names.cc - the rules for LDIF line types, attribute names and control
// types. Contracts in entry/names.h.
#include "entry/names.h"

#include <array>
#include <string_view>

namespace {

// What each byte does to a line type or to an attribute name: nothing,
// ends it, or refuses it. A name also refuses a colon, which a line type
// may hold ("control: 1.2.3 true" is the type of a control's value line).
enum TypeByte : uint8_t { kTypeOrdinary, kTypeEnd, kTypeRefused };

constexpr std::array<uint8_t, 256> makeTypeBytes(bool name) {
  std::array<uint8_t, 256> bytes{};
  for (int c = 0; c < 0x20; ++c) bytes[c] = kTypeRefused;  // control characters
  bytes[0x7f] = kTypeRefused;
  if (name) bytes[':'] = kTypeRefused;
  bytes['\0'] = kTypeEnd;
  return bytes;
}
constexpr std::array<uint8_t, 256> kTypeBytes = makeTypeBytes(false);
constexpr std::array<uint8_t, 256> kNameBytes = makeTypeBytes(true);

// The length of text when every byte up to its NUL is ordinary in bytes
// and it does not start with a space or '#', in one pass; -1 otherwise.
[[nodiscard]] int64_t ordinaryLength(const char *text, const std::array<uint8_t, 256> &bytes) {
  if (text == nullptr || text[0] == ' ' || text[0] == '#') return -1;
  const char *p = text;
  while (bytes[static_cast<unsigned char>(*p)] == kTypeOrdinary) ++p;
  return *p == '\0' ? p - text : -1;
}

// Names that an LDIF reader takes for the structure of a record rather than
// for an attribute: a second "dn" starts a record of the document's choosing,
// "changetype" or "control" turns a content record into a change record.
// Lower case, and of different lengths.
constexpr std::string_view kStructuralNames[] = {"dn", "changetype", "control"};

// Whether name spells lower (lower-case letters only) in any letter case:
// for such a letter l, (c | 0x20) == l holds for c = l and its capital only.
[[nodiscard]] bool equalsLowerName(std::string_view name, std::string_view lower) {
  for (size_t i = 0; i < lower.size(); ++i) {
    if ((name[i] | 0x20) != lower[i]) return false;
  }
  return true;
}

[[nodiscard]] bool isStructuralName(std::string_view name) {
  // Readers drop blanks between a type and its colon, so "dn " is "dn".
  while (!name.empty() && name.back() == ' ') name.remove_suffix(1);
  for (std::string_view s : kStructuralNames) {
    if (s.size() == name.size()) return equalsLowerName(name, s);
  }
  return false;
}

[[nodiscard]] constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }
[[nodiscard]] constexpr bool isAlpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
[[nodiscard]] constexpr bool isKeyChar(char c) { return isAlpha(c) || isDigit(c) || c == '-'; }

// The length of the run of bytes at the start of s for which test holds.
template <class Test>
[[nodiscard]] size_t runOf(std::string_view s, Test test) {
  size_t n = 0;
  while (n < s.size() && test(s[n])) ++n;
  return n;
}

// RFC 4512: number = DIGIT / ( LDIGIT 1*DIGIT ), so no leading zero.
// Returns the number's length at the start of s, 0 when there is none.
[[nodiscard]] size_t numberAt(std::string_view s) {
  const size_t n = runOf(s, isDigit);
  return n > 1 && s[0] == '0' ? 0 : n;
}

// RFC 4512: oid = descr / numericoid; descr = ALPHA *( ALPHA / DIGIT / "-" );
// numericoid = number 1*( "." number ). The length of the type at the start
// of s, 0 when there is none.
[[nodiscard]] size_t attributeTypeAt(std::string_view s) {
  if (!s.empty() && isAlpha(s[0])) return runOf(s, isKeyChar);
  size_t n = numberAt(s);
  if (n == 0) return 0;
  size_t dots = 0;
  while (n < s.size() && s[n] == '.') {
    const size_t next = numberAt(s.substr(n + 1));
    if (next == 0) return 0;
    n += 1 + next;
    ++dots;
  }
  return dots > 0 ? n : 0;
}

// RFC 4512: attributedescription = attributetype options;
// options = *( ";" option ); option = 1*keychar.
[[nodiscard]] bool isAttributeDescription(std::string_view s) {
  size_t n = attributeTypeAt(s);
  if (n == 0) return false;
  while (n < s.size()) {
    if (s[n] != ';') return false;
    const size_t option = runOf(s.substr(n + 1), isKeyChar);
    if (option == 0) return false;
    n += 1 + option;
  }
  return true;
}

}  // namespace

extern "C" {

int64_t gslclenlLineTypeLength(const char *type) { return ordinaryLength(type, kTypeBytes); }

int64_t gslclenaAttrNameLength(const char *name, int rule) {
  const int64_t n = ordinaryLength(name, kNameBytes);
  if (n < 0) return -1;
  const std::string_view s(name, static_cast<size_t>(n));
  if (isStructuralName(s)) return -1;
  if (rule == GSLCLE_NAMES_RFC4512 && !isAttributeDescription(s)) return -1;
  return n;
}

int gslclenoIsControlOid(const char *text, size_t length) {
  if (text == nullptr) return 0;
  const std::string_view s(text, length);
  if (s.size() < 3 || s[0] < '0' || s[0] > '2' || s[1] != '.') return 0;
  // Each "." must be followed by at least one digit.
  bool after_dot = true;
  for (size_t i = 2; i < s.size(); ++i) {
    if (s[i] == '.') {
      if (after_dot) return 0;
      after_dot = true;
    } else if (isDigit(s[i])) {
      after_dot = false;
    } else {
      return 0;
    }
  }
  return after_dot ? 0 : 1;
}

}  // extern "C"

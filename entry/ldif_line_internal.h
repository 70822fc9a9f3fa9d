// entry/ldif_line_internal.h - the value line as the record writer lays it
// out: the plain-or-base64 decision taken once per value, the line's exact
// size from that decision, and the line written from it, so that a whole
// record is sized before any of it is written and each value is looked at
// once. Internal to the entry layer (C++ only).
#ifndef QUILLOMAT_ENTRY_LDIF_LINE_INTERNAL_H
#define QUILLOMAT_ENTRY_LDIF_LINE_INTERNAL_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/owned.h"
#include "entry/ldif_line.h"

namespace gslu::ldif {

// How a value is shown on its line: base64 of all of its bytes, or plain,
// the first `shown` of them as they stand (a NUL ends a plain value).
struct Form {
  bool base64;
  uint32_t shown;  // bytes of the value the line shows
};

// The decision for length bytes of value (the rules of ldif_line.h).
[[nodiscard]] Form chooseForm(const char *value, uint32_t length);

// Bytes of the line for a type of type_size bytes showing count bytes in
// the given form, its final newline included (no NUL).
[[nodiscard]] uint64_t lineSize(size_t type_size, bool base64, uint64_t count);

// Writes the line for type showing count bytes of bytes in the given form
// at out, which has room for lineSize(); returns the end of the line.
char *writeLine(char *out, std::string_view type, const char *bytes, uint64_t count, bool base64);

// Writes what follows a type of type_size bytes that is already written:
// the separator and the value in the given form, folded, and the newline;
// returns the end of the line. writeLine is the type and this.
char *writeLineTail(char *out, size_t type_size, const char *bytes, uint64_t count, bool base64);

// Whether text is a numeric OID: a digit 0-2, then one or more groups of
// "." and digits. Control types must be, since they are written as they
// stand on a "control:" line.
[[nodiscard]] bool isNumericOid(std::string_view text);

// The length of type when a line may start with it (gsldlVTypeCheck), in
// one pass over it; -1 when it may not.
[[nodiscard]] int64_t checkedTypeLength(const char *type);

// The length of name when an attribute of a record may bear it
// (gslclecnCheckAttrName): a type gsldlVTypeCheck accepts that is none of
// the names LDIF readers take for a record's structure; -1 otherwise.
[[nodiscard]] int64_t checkedAttributeNameLength(const char *name);

// Whether a line's value may be converted to the output character set.
enum class Conversion { kNone, kAsContext };

// One value line with its conversion: with Conversion::kAsContext a base64
// value of a non-binary type is converted here (once) when the core context
// converts output, which changes the bytes shown and so the line's size.
class ValueLine {
 public:
  ValueLine(gsluctx *core, std::string_view type, const char *value, uint32_t length, Form form,
            Conversion conversion);
  ValueLine(gsluctx *core, std::string_view type, const char *value, uint32_t length,
            Conversion conversion)
      : ValueLine(core, type, value, length, chooseForm(value, length), conversion) {}

  // Bytes of the line, its final newline included (no NUL).
  [[nodiscard]] size_t size() const;
  // Writes the line at out and returns the end of what was written.
  char *write(char *out) const;

 private:
  std::string_view type_;
  const char *bytes_;  // what the line shows, before encoding
  uint64_t count_;     // bytes of bytes_ shown
  bool base64_;
  Owned<char> converted_;  // the converted value, when there is one
};

}  // namespace gslu::ldif

#endif  // QUILLOMAT_ENTRY_LDIF_LINE_INTERNAL_H

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

// A continuation line starts before a character written while the column
// counter is past the fold column: kFoldColumn as LDIF lines have always
// been folded, kNoFold for lines that never fold.
inline constexpr size_t kFoldColumn = 76;
inline constexpr size_t kNoFold = SIZE_MAX / 4;

// The decision for length bytes of value (the rules of ldif_line.h). With
// strict, also a value that RFC 2849 does not allow plain goes to base64,
// whole: one that starts with '<', ends with a space, or holds a NUL.
[[nodiscard]] Form chooseForm(const char *value, uint32_t length, bool strict = false);

// Bytes of the line for a type of type_size bytes showing count bytes in
// the given form, its final newline included (no NUL).
[[nodiscard]] uint64_t lineSize(size_t type_size, bool base64, uint64_t count,
                                size_t fold = kFoldColumn);

// Writes the line for type showing count bytes of bytes in the given form
// at out, which has room for lineSize(); returns the end of the line.
char *writeLine(char *out, std::string_view type, const char *bytes, uint64_t count, bool base64,
                size_t fold = kFoldColumn);

// Writes what follows a type of type_size bytes that is already written:
// the separator and the value in the given form, folded, and the newline;
// returns the end of the line. writeLine is the type and this.
char *writeLineTail(char *out, size_t type_size, const char *bytes, uint64_t count, bool base64,
                    size_t fold = kFoldColumn);

// Whether a line's value may be converted to the output character set.
enum class Conversion { kNone, kAsContext };

// One value line with its conversion: with Conversion::kAsContext a base64
// value of a non-binary type is converted here (once) when the core context
// converts output, which changes the bytes shown and so the line's size.
class ValueLine {
 public:
  ValueLine(gsluctx *core, std::string_view type, const char *value, uint32_t length, Form form,
            Conversion conversion, size_t fold = kFoldColumn);
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
  size_t fold_;
  bool base64_;
  Owned<char> converted_;  // the converted value, when there is one
};

}  // namespace gslu::ldif

#endif  // QUILLOMAT_ENTRY_LDIF_LINE_INTERNAL_H

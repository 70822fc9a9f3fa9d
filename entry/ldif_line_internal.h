// entry/ldif_line_internal.h - the value line as the record writer lays it
// out: measured first, then written, so that a whole record is sized exactly
// before any of it is written. Internal to the entry layer (C++ only).
#ifndef QUILLOMAT_ENTRY_LDIF_LINE_INTERNAL_H
#define QUILLOMAT_ENTRY_LDIF_LINE_INTERNAL_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/owned.h"
#include "entry/ldif_line.h"

namespace gslu::ldif {

// Whether a line's value may be converted to the output character set.
enum class Conversion { kNone, kAsContext };

// One value line, laid out before it is written, so that callers can size a
// whole record exactly and then write it without intermediate blocks. With
// Conversion::kAsContext a base64 value of a non-binary type is converted
// here (once) when the core context converts output.
class ValueLine {
 public:
  ValueLine(gsluctx *core, std::string_view type, const char *value, uint32_t length,
            Conversion conversion);

  // Bytes of the line, its final newline included (no NUL).
  [[nodiscard]] size_t size() const;
  // Writes the line at out and returns the end of what was written.
  char *write(char *out) const;

 private:
  std::string_view type_;
  const unsigned char *bytes_;  // what the line shows, before encoding
  uint64_t count_;              // bytes of bytes_ shown
  bool base64_;
  Owned<char> converted_;       // the converted value, when there is one
};

}  // namespace gslu::ldif

#endif  // QUILLOMAT_ENTRY_LDIF_LINE_INTERNAL_H

// core/format.h - the formatting service: printf-like expansion of a format
// over a typed argument array (gsluArg, core/output.h), into a buffer of a
// given size. Internal (C++ only).
//
// Conversions: %s %d %i %u %x %X %c and %%, with the flags "-0 +#", a width
// and a precision as digits (each at most kMaxField) and the length
// modifiers h, l and ll.
//   - %s takes a GSLUF_ARG_STRING; a null one prints "<null arg>". A
//     precision limits the bytes taken from the string, without splitting a
//     UTF-8 character. Widths count bytes.
//   - %d %i %u %x %X take a GSLUF_ARG_INT32_PTR or GSLUF_ARG_INT64_PTR (the
//     address of the integer, never null). Without a modifier the value is
//     shown at the width it was passed; h shows it as 16 bits, l and ll as
//     64 bits (a negative 32-bit value sign-extended).
//   - %c takes a GSLUF_ARG_CHAR.
// Each conversion but %% consumes the next argument; arguments left over
// are ignored.
#ifndef QUILLOMAT_CORE_FORMAT_H
#define QUILLOMAT_CORE_FORMAT_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "core/output.h"

namespace gslu {

enum class FormatStatus {
  kOk,
  kTooSmall,       // the text and its NUL do not fit
  kBadArgument,    // a missing argument, a type that does not match its
                   // conversion, an unknown type code or a null integer
  kBadConversion,  // an unknown conversion, or a field wider than kMaxField
};

struct Formatted {
  FormatStatus status;
  std::size_t length;  // bytes written before the NUL
};

inline constexpr std::size_t kMaxField = 1u << 20;
inline constexpr uint32_t kMaxTypedArgs = GSLUF_MAX_TYPED_ARGS;
inline constexpr char kNullArgText[] = "<null arg>";

// Expands format with count arguments into buffer (limit >= 1 bytes, NUL
// included). On kTooSmall the buffer holds as much of the text as fits in
// limit - 1 bytes without splitting a UTF-8 character, NUL-terminated; on
// the other errors its content is unspecified.
[[nodiscard]] Formatted formatTyped(char *buffer, std::size_t limit, const char *format,
                                    const gsluArg *args, uint32_t count);

// Reads a typed list (type codes and the terminating 0 read as int) into
// args; false for an unknown type code or more than kMaxTypedArgs
// arguments. ap is consumed.
[[nodiscard]] bool readTypedArgs(va_list ap, gsluArg (&args)[kMaxTypedArgs], uint32_t *count);

// True when every argument carries a known type code (args may be null only
// when count is 0).
[[nodiscard]] bool typedArgsValid(const gsluArg *args, uint32_t count);

}  // namespace gslu

#endif  // QUILLOMAT_CORE_FORMAT_H

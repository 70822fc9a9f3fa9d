// core/format.cc - the formatting service. Contract in core/format.h.
#include "core/format.h"

#include <cstring>

#include "core/utf8.h"

namespace gslu {

namespace {

// Appends to a bounded buffer; once something does not fit, the buffer
// holds what did and every later append is dropped.
class Sink {
 public:
  Sink(char *buffer, std::size_t limit) : buffer_(buffer), room_(limit - 1) {}

  void put(const char *s, std::size_t n) {
    if (full_) return;
    if (n > room_ - used_) {
      n = utf8::cutPoint(s, n, room_ - used_);
      full_ = true;
    }
    std::memcpy(buffer_ + used_, s, n);
    used_ += n;
  }
  void fill(char c, std::size_t n) {
    if (full_) return;
    if (n > room_ - used_) {
      n = room_ - used_;
      full_ = true;
    }
    std::memset(buffer_ + used_, c, n);
    used_ += n;
  }
  [[nodiscard]] Formatted done(FormatStatus status) {
    buffer_[used_] = '\0';
    return {full_ && status == FormatStatus::kOk ? FormatStatus::kTooSmall : status, used_};
  }
  [[nodiscard]] bool full() const { return full_; }

 private:
  char *buffer_;
  std::size_t room_;
  std::size_t used_ = 0;
  bool full_ = false;
};

enum class Length { kNatural, kShort, kLong };

struct Spec {
  bool left = false;
  bool zero = false;
  bool plus = false;
  bool space = false;
  bool alt = false;
  std::size_t width = 0;
  bool has_precision = false;
  std::size_t precision = 0;
  Length length = Length::kNatural;
  char conversion = '\0';
};

// Reads digits into *value; false when the field exceeds kMaxField.
[[nodiscard]] bool readField(const char *&p, std::size_t *value) {
  std::size_t v = 0;
  for (; *p >= '0' && *p <= '9'; ++p) {
    v = v * 10 + static_cast<std::size_t>(*p - '0');
    if (v > kMaxField) return false;
  }
  *value = v;
  return true;
}

// Parses the conversion after a '%'; p is left after it. False for a field
// too wide (the conversion letter is checked by the caller).
[[nodiscard]] bool parseSpec(const char *&p, Spec *spec) {
  for (;; ++p) {
    switch (*p) {
      case '-': spec->left = true; continue;
      case '0': spec->zero = true; continue;
      case '+': spec->plus = true; continue;
      case ' ': spec->space = true; continue;
      case '#': spec->alt = true; continue;
      default: break;
    }
    break;
  }
  if (!readField(p, &spec->width)) return false;
  if (*p == '.') {
    ++p;
    spec->has_precision = true;
    if (!readField(p, &spec->precision)) return false;
  }
  if (*p == 'h') {
    spec->length = Length::kShort;
    ++p;
  } else if (*p == 'l') {
    spec->length = Length::kLong;
    ++p;
    if (*p == 'l') ++p;
  }
  spec->conversion = *p;
  if (*p != '\0') ++p;
  return true;
}

// Writes body (n bytes) padded to the width with spaces.
void putPadded(Sink &out, const Spec &spec, const char *body, std::size_t n) {
  const std::size_t pad = spec.width > n ? spec.width - n : 0;
  if (!spec.left) out.fill(' ', pad);
  out.put(body, n);
  if (spec.left) out.fill(' ', pad);
}

[[nodiscard]] FormatStatus putString(Sink &out, const Spec &spec, const gsluArg &arg) {
  if (arg.type != GSLUF_ARG_STRING) return FormatStatus::kBadArgument;
  const char *s = arg.value.text != nullptr ? arg.value.text : kNullArgText;
  // With a precision only that many bytes need be there, and the cut looks
  // at most four bytes beyond.
  constexpr std::size_t kCutLookahead = 4;
  std::size_t n = spec.has_precision ? strnlen(s, spec.precision + kCutLookahead) : std::strlen(s);
  if (spec.has_precision && n > spec.precision) n = utf8::cutPoint(s, n, spec.precision);
  putPadded(out, spec, s, n);
  return FormatStatus::kOk;
}

[[nodiscard]] FormatStatus putChar(Sink &out, const Spec &spec, const gsluArg &arg) {
  if (arg.type != GSLUF_ARG_CHAR) return FormatStatus::kBadArgument;
  const char c = static_cast<char>(arg.value.ch);
  putPadded(out, spec, &c, 1);
  return FormatStatus::kOk;
}

// The integer an argument points at, as the length modifier shows it:
// signed value for %d and %i, bit pattern for the others.
struct Integer {
  bool negative;
  uint64_t magnitude;
};

[[nodiscard]] bool readInteger(const gsluArg &arg, const Spec &spec, Integer *out) {
  int64_t v = 0;
  bool wide = false;
  if (arg.type == GSLUF_ARG_INT32_PTR && arg.value.i32 != nullptr) {
    v = *arg.value.i32;
  } else if (arg.type == GSLUF_ARG_INT64_PTR && arg.value.i64 != nullptr) {
    v = *arg.value.i64;
    wide = true;
  } else {
    return false;
  }
  if (spec.length == Length::kShort) {
    v = static_cast<int16_t>(v);
  } else if (spec.length == Length::kLong) {
    wide = true;
  }
  const bool is_signed = spec.conversion == 'd' || spec.conversion == 'i';
  if (is_signed) {
    out->negative = v < 0;
    out->magnitude = v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
  } else {
    out->negative = false;
    out->magnitude = spec.length == Length::kShort ? static_cast<uint16_t>(v)
                     : wide                        ? static_cast<uint64_t>(v)
                                                   : static_cast<uint32_t>(v);
  }
  return true;
}

[[nodiscard]] FormatStatus putInteger(Sink &out, const Spec &spec, const gsluArg &arg) {
  Integer value{};
  if (!readInteger(arg, spec, &value)) return FormatStatus::kBadArgument;
  const bool hex = spec.conversion == 'x' || spec.conversion == 'X';
  const char *digits = spec.conversion == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
  const uint64_t base = hex ? 16 : 10;
  char text[24];  // 2^64 has 20 decimal digits
  std::size_t n = 0;
  for (uint64_t m = value.magnitude; m != 0; m /= base) text[sizeof text - ++n] = digits[m % base];
  // A precision of 0 prints nothing for the value 0; otherwise one digit.
  if (value.magnitude == 0 && !(spec.has_precision && spec.precision == 0))
    text[sizeof text - ++n] = '0';
  const char *prefix = "";
  if (value.negative) {
    prefix = "-";
  } else if (!hex && spec.conversion != 'u' && spec.plus) {
    prefix = "+";
  } else if (!hex && spec.conversion != 'u' && spec.space) {
    prefix = " ";
  } else if (hex && spec.alt && value.magnitude != 0) {
    prefix = spec.conversion == 'X' ? "0X" : "0x";
  }
  const std::size_t prefix_size = std::strlen(prefix);
  const std::size_t precision_zeros = spec.precision > n ? spec.precision - n : 0;
  const std::size_t body = prefix_size + precision_zeros + n;
  const std::size_t pad = spec.width > body ? spec.width - body : 0;
  const bool zero_pad = spec.zero && !spec.left && !spec.has_precision;
  if (!spec.left && !zero_pad) out.fill(' ', pad);
  out.put(prefix, prefix_size);
  if (zero_pad) out.fill('0', pad);
  out.fill('0', precision_zeros);
  out.put(text + sizeof text - n, n);
  if (spec.left) out.fill(' ', pad);
  return FormatStatus::kOk;
}

[[nodiscard]] FormatStatus putConversion(Sink &out, const Spec &spec, const gsluArg &arg) {
  switch (spec.conversion) {
    case 's': return putString(out, spec, arg);
    case 'c': return putChar(out, spec, arg);
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X': return putInteger(out, spec, arg);
    default: return FormatStatus::kBadConversion;
  }
}

[[nodiscard]] bool knownType(int type) {
  return type == GSLUF_ARG_CHAR || type == GSLUF_ARG_INT32_PTR || type == GSLUF_ARG_INT64_PTR ||
         type == GSLUF_ARG_STRING;
}

}  // namespace

Formatted formatTyped(char *buffer, std::size_t limit, const char *format, const gsluArg *args,
                      uint32_t count) {
  Sink out(buffer, limit);
  uint32_t next = 0;
  for (const char *p = format; *p != '\0' && !out.full();) {
    const char *percent = std::strchr(p, '%');
    if (percent == nullptr) {
      out.put(p, std::strlen(p));
      break;
    }
    out.put(p, static_cast<std::size_t>(percent - p));
    p = percent + 1;
    if (*p == '%') {
      out.put("%", 1);
      ++p;
      continue;
    }
    Spec spec;
    if (!parseSpec(p, &spec)) return out.done(FormatStatus::kBadConversion);
    if (std::strchr("scdiuxX", spec.conversion) == nullptr || spec.conversion == '\0') {
      return out.done(FormatStatus::kBadConversion);
    }
    if (next >= count) return out.done(FormatStatus::kBadArgument);
    const FormatStatus status = putConversion(out, spec, args[next++]);
    if (status != FormatStatus::kOk) return out.done(status);
  }
  return out.done(FormatStatus::kOk);
}

bool readTypedArgs(va_list ap, gsluArg (&args)[kMaxTypedArgs], uint32_t *count) {
  *count = 0;
  for (;;) {
    const int type = va_arg(ap, int);
    if (type == GSLUF_ARG_END) return true;
    if (*count == kMaxTypedArgs || !knownType(type)) return false;
    gsluArg &a = args[(*count)++];
    a.type = type;
    switch (type) {
      case GSLUF_ARG_CHAR: a.value.ch = va_arg(ap, int); break;
      case GSLUF_ARG_INT32_PTR: a.value.i32 = va_arg(ap, const int32_t *); break;
      case GSLUF_ARG_INT64_PTR: a.value.i64 = va_arg(ap, const int64_t *); break;
      default: a.value.text = va_arg(ap, const char *); break;
    }
  }
}

bool typedArgsValid(const gsluArg *args, uint32_t count) {
  if (count > 0 && args == nullptr) return false;
  for (uint32_t i = 0; i < count; ++i) {
    if (!knownType(args[i].type)) return false;
  }
  return true;
}

}  // namespace gslu

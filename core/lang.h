// core/lang.h - the language service: languages taken from the locale
// environment, their character sets, and the per-thread service slots.
// Internal to the library (C++ only).
#ifndef QUILLOMAT_CORE_LANG_H
#define QUILLOMAT_CORE_LANG_H

#include <cstddef>
#include <cstdint>

namespace gslu {

// Descriptor flags of a language's character set.
enum LanguageFlags : uint32_t {
  kLangSingleByte = 0x1,  // every character is one byte: class tables apply
  kLangMeasured = 0x2,    // lengths are measured by the service, not in bytes
};

// A language: its name (the locale without code set or modifier, such as
// "fr_FR") and its character set, as iconv names it.
struct Language {
  char name[64];
  char codeset[48];
  uint32_t flags;
};

inline constexpr char kUtf8Codeset[] = "UTF-8";
inline constexpr char kDefaultLanguageName[] = "C";

// Reads the environment's language (LC_ALL, then LC_CTYPE, then LANG; the
// first one set and non-empty decides). Returns false when there is none:
// nothing set, or the C/POSIX locale. The character set comes from
// nl_langinfo(CODESET) of a private locale object (the process locale is
// never changed); when that locale is not installed, from the code set named
// in the locale string; a locale with neither counts as none.
[[nodiscard]] bool languageFromEnvironment(Language *out);

// The language a locale string names ("language[_territory][.codeset]
// [@modifier]"), by the same rules; false for the C/POSIX locale, a locale
// with no known character set, or a null string.
[[nodiscard]] bool languageFromLocale(const char *locale, Language *out);

// The runtime's default language with the UTF-8 character set.
void languageDefaultUtf8(Language *out);

// Replaces the character set of lang. False when the name does not fit or
// iconv does not know it.
[[nodiscard]] bool languageSetCodeset(Language *lang, const char *codeset);

// Same language and same character set (code-set names compared after
// normalisation, so "utf8" and "UTF-8" are the same).
[[nodiscard]] bool languageSame(const Language &a, const Language &b);

// True when the character set is UTF-8 under any of its spellings.
[[nodiscard]] bool codesetIsUtf8(const char *codeset);

// The converters a slot keeps between conversions (core/convert.cc).
struct SlotConverters;

// One per-thread slot of the language service. Threads whose identifiers
// share their low ten bits share a slot; the converters belong to the first
// such thread that converts (`owner`), and the others convert without a
// cache.
struct LangSlot {
  uint32_t initialized;
  uint32_t error;  // non-zero when the slot's last conversion replaced text
  uint32_t owner;  // thread identifier owning `converters`; 0 for none yet
  SlotConverters *converters;
};
inline constexpr std::size_t kLangSlotCount = 1024;
inline constexpr uint32_t kLangSlotMask = 0x3ff;

}  // namespace gslu

#endif  // QUILLOMAT_CORE_LANG_H

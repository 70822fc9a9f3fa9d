// core/lang.cc - languages from the locale environment.
#include "core/lang.h"

#include <iconv.h>
#include <langinfo.h>
#include <locale.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "core/sanitizers.h"

#if defined(QUILLOMAT_LEAK_CHECKER)
// glibc's newlocale() loses its copy of LOCPATH (built with argz) on every
// call when that variable is set; the leak checker must not blame that block
// on this program. Only the sanitizer runtime calls this function.
// Quietly: the program's standard error carries only its own messages.
// Visible, although everything else is hidden: the runtime looks them up.
extern "C" __attribute__((visibility("default"))) const char *__lsan_default_suppressions() {
  return "leak:__argz_add_sep\n";
}
extern "C" __attribute__((visibility("default"))) const char *__lsan_default_options() {
  return "print_suppressions=0";
}
#endif

namespace gslu {

namespace {

// The locale variables that decide the character set, strongest first.
constexpr const char *kLocaleVariables[] = {"LC_ALL", "LC_CTYPE", "LANG"};

[[nodiscard]] const char *environmentLocale() {
  for (const char *name : kLocaleVariables) {
    const char *v = std::getenv(name);
    if (v != nullptr && v[0] != '\0') return v;
  }
  return nullptr;
}

[[nodiscard]] bool isPortableLocale(std::string_view loc) { return loc == "C" || loc == "POSIX"; }

// Copies src into a fixed field; false when it does not fit.
template <std::size_t N>
[[nodiscard]] bool copyField(char (&dst)[N], std::string_view src) {
  if (src.size() >= N) return false;
  std::memcpy(dst, src.data(), src.size());
  dst[src.size()] = '\0';
  return true;
}

// Lower-case alphanumerics only, so "UTF-8", "utf8" and "UTF8" compare equal.
void normaliseCodeset(const char *in, char *out, std::size_t size) {
  std::size_t n = 0;
  for (; *in != '\0' && n + 1 < size; ++in) {
    unsigned char c = static_cast<unsigned char>(*in);
    if (std::isalnum(c)) out[n++] = static_cast<char>(std::tolower(c));
  }
  out[n] = '\0';
}

[[nodiscard]] bool iconvKnows(const char *codeset) {
  iconv_t cd = iconv_open(codeset, kUtf8Codeset);
  if (cd == reinterpret_cast<iconv_t>(-1)) return false;
  iconv_close(cd);
  return true;
}

// The character set of a locale, from a private locale object so that the
// process locale is never touched; when the locale is not installed, the
// code set its name gives ("de_DE.ISO-8859-1" names ISO-8859-1).
// The single-byte flag is known only for an installed locale.
[[nodiscard]] bool describeLocale(const char *loc, std::string_view name_codeset, Language *lang) {
  locale_t l = newlocale(LC_CTYPE_MASK, loc, static_cast<locale_t>(0));
  if (l != static_cast<locale_t>(0)) {
    bool ok = copyField(lang->codeset, nl_langinfo_l(CODESET, l));
    locale_t previous = uselocale(l);  // this thread only, and only to ask
    if (MB_CUR_MAX == 1) lang->flags |= kLangSingleByte;
    uselocale(previous);
    freelocale(l);
    return ok;
  }
  return !name_codeset.empty() && copyField(lang->codeset, name_codeset);
}

}  // namespace

bool codesetIsUtf8(const char *codeset) {
  char norm[sizeof(Language::codeset)];
  normaliseCodeset(codeset, norm, sizeof norm);
  return std::strcmp(norm, "utf8") == 0;
}

void languageDefaultUtf8(Language *out) {
  *out = Language{};
  (void)copyField(out->name, kDefaultLanguageName);
  (void)copyField(out->codeset, kUtf8Codeset);
}

bool languageFromEnvironment(Language *out) {
  const char *loc = environmentLocale();
  return loc != nullptr && languageFromLocale(loc, out);
}

bool languageFromLocale(const char *loc, Language *out) {
  if (loc == nullptr || isPortableLocale(loc)) return false;
  // language[_territory][.codeset][@modifier]
  std::string_view full(loc);
  std::string_view name = full.substr(0, full.find_first_of(".@"));
  std::string_view codeset;
  if (std::size_t dot = full.find('.'); dot != std::string_view::npos) {
    codeset = full.substr(dot + 1);
    codeset = codeset.substr(0, codeset.find('@'));
  }
  Language lang{};
  if (name.empty() || isPortableLocale(name) || !copyField(lang.name, name)) return false;
  if (!describeLocale(loc, codeset, &lang)) return false;
  // "ANSI_X3.4-1968" is what an installed C-like locale reports: plain
  // ASCII, which UTF-8 covers, so treat it as no environment language.
  if (std::strcmp(lang.codeset, "ANSI_X3.4-1968") == 0) return false;
  if (!codesetIsUtf8(lang.codeset) && !iconvKnows(lang.codeset)) return false;
  *out = lang;
  return true;
}

bool languageSetCodeset(Language *lang, const char *codeset) {
  if (!iconvKnows(codeset)) return false;
  if (!copyField(lang->codeset, codeset)) return false;
  // Only UTF-8 replaces a code set here; its characters are not single bytes.
  if (codesetIsUtf8(codeset)) lang->flags &= ~kLangSingleByte;
  return true;
}

bool languageSame(const Language &a, const Language &b) {
  char na[sizeof(Language::codeset)];
  char nb[sizeof(Language::codeset)];
  normaliseCodeset(a.codeset, na, sizeof na);
  normaliseCodeset(b.codeset, nb, sizeof nb);
  return std::strcmp(a.name, b.name) == 0 && std::strcmp(na, nb) == 0;
}

}  // namespace gslu

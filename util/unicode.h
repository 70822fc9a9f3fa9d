// util/unicode.h - the Unicode library (ICU) behind the string functions,
// loaded the first time a character beyond ASCII needs it. Internal to util
// (C++ only).
//
// Most runs never see such a character in a place where case or class
// matters (element and attribute names are ASCII), and loading ICU and the
// C++ runtime it needs is most of what starting the program costs. So the
// functions are looked up with dlopen and dlsym, once, under the names the
// headers this code was built with give them. When the library cannot be
// loaded, unicodeLibrary() is null, and the callers fall back to treating
// characters beyond ASCII as having no case and no class.
#ifndef QUILLOMAT_UTIL_UNICODE_H
#define QUILLOMAT_UTIL_UNICODE_H

#include <unicode/uchar.h>
#include <unicode/uversion.h>

namespace gslu {

struct UnicodeLibrary {
  UBool (*isalpha)(UChar32);
  UBool (*isupper)(UChar32);
  UBool (*islower)(UChar32);
  UBool (*isdigit)(UChar32);
  UBool (*isxdigit)(UChar32);
  UBool (*isspace)(UChar32);
  UBool (*isblank)(UChar32);
  UBool (*ispunct)(UChar32);
  int8_t (*charType)(UChar32);
  UChar32 (*foldCase)(UChar32, uint32_t);
  UChar32 (*tolower)(UChar32);
  int32_t (*charDigitValue)(UChar32);
  int32_t (*digit)(UChar32, int8_t);
  void (*getVersion)(UVersionInfo);
  void (*versionToString)(const UVersionInfo, char *);
};

// The library, loaded on the first call (thread-safe); null when it cannot
// be loaded or lacks a function.
[[nodiscard]] const UnicodeLibrary *unicodeLibrary();

// Why the library could not be loaded ("" when it was, or was not tried).
[[nodiscard]] const char *unicodeLibraryError();

// Test hook: from now on unicodeLibrary() answers table (null: as if the
// library could not be loaded); unicodeLibraryRestoreForTesting() goes back
// to the loaded library.
void unicodeLibraryReplaceForTesting(const UnicodeLibrary *table);
void unicodeLibraryRestoreForTesting();

}  // namespace gslu

#endif  // QUILLOMAT_UTIL_UNICODE_H

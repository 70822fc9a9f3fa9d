// util/unicode.cc - loads the Unicode library on first use. Contracts in
// util/unicode.h.
#include "util/unicode.h"

#include <dlfcn.h>

#include <atomic>
#include <cstdio>
#include <mutex>

namespace gslu {
namespace {

// The library's file and its functions' names as the headers give them (ICU
// renames every function after its version, u_foldCase_72 for instance).
#define QUILLOMAT_NAME_OF(symbol) QUILLOMAT_NAME_OF_EXPANDED(symbol)
#define QUILLOMAT_NAME_OF_EXPANDED(symbol) #symbol
constexpr char kLibraryFile[] = "libicuuc.so." QUILLOMAT_NAME_OF(U_ICU_VERSION_MAJOR_NUM);

UnicodeLibrary g_loaded{};
char g_error[256] = "";
std::once_flag g_once;
std::atomic<const UnicodeLibrary *> g_library{nullptr};
std::atomic<bool> g_replaced{false};
const UnicodeLibrary *g_replacement = nullptr;

template <class F>
[[nodiscard]] bool bind(void *handle, const char *name, F *out) {
  void *symbol = dlsym(handle, name);
  if (symbol == nullptr) {
    std::snprintf(g_error, sizeof g_error, "%s: no %s", kLibraryFile, name);
    return false;
  }
  *out = reinterpret_cast<F>(symbol);
  return true;
}

void load() {
  // Kept loaded until the process ends: the functions are used to the end.
  void *handle = dlopen(kLibraryFile, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char *why = dlerror();
    std::snprintf(g_error, sizeof g_error, "%s", why != nullptr ? why : kLibraryFile);
    return;
  }
  UnicodeLibrary u{};
  const bool complete = bind(handle, QUILLOMAT_NAME_OF(u_isalpha), &u.isalpha) &&
                        bind(handle, QUILLOMAT_NAME_OF(u_isupper), &u.isupper) &&
                        bind(handle, QUILLOMAT_NAME_OF(u_islower), &u.islower) &&
                        bind(handle, QUILLOMAT_NAME_OF(u_isdigit), &u.isdigit) &&
                        bind(handle, QUILLOMAT_NAME_OF(u_isxdigit), &u.isxdigit) &&
                        bind(handle, QUILLOMAT_NAME_OF(u_isspace), &u.isspace) &&
                        bind(handle, QUILLOMAT_NAME_OF(u_isblank), &u.isblank) &&
                        bind(handle, QUILLOMAT_NAME_OF(u_ispunct), &u.ispunct) &&
                        bind(handle, QUILLOMAT_NAME_OF(u_charType), &u.charType) &&
                        bind(handle, QUILLOMAT_NAME_OF(u_foldCase), &u.foldCase) &&
                        bind(handle, QUILLOMAT_NAME_OF(u_tolower), &u.tolower) &&
                        bind(handle, QUILLOMAT_NAME_OF(u_charDigitValue), &u.charDigitValue) &&
                        bind(handle, QUILLOMAT_NAME_OF(u_digit), &u.digit) &&
                        bind(handle, QUILLOMAT_NAME_OF(u_getVersion), &u.getVersion) &&
                        bind(handle, QUILLOMAT_NAME_OF(u_versionToString), &u.versionToString);
  if (!complete) return;
  g_loaded = u;
  g_library.store(&g_loaded);
}

}  // namespace

const UnicodeLibrary *unicodeLibrary() {
  if (g_replaced.load(std::memory_order_acquire)) return g_replacement;
  std::call_once(g_once, load);
  return g_library.load(std::memory_order_acquire);
}

const char *unicodeLibraryError() { return g_error; }

void unicodeLibraryReplaceForTesting(const UnicodeLibrary *table) {
  g_replacement = table;
  g_replaced.store(true, std::memory_order_release);
}

void unicodeLibraryRestoreForTesting() { g_replaced.store(false, std::memory_order_release); }

}  // namespace gslu

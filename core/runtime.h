// core/runtime.h - small in-process equivalents of the runtime services the
// core context stands on: component registry, thread service, language
// service, date service, resource manager, security service and formatting
// package. Each offers exactly the operations the core uses. Internal to the
// library (C++ only).
#ifndef QUILLOMAT_CORE_RUNTIME_H
#define QUILLOMAT_CORE_RUNTIME_H

#include <pthread.h>

#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "core/context.h"

namespace gslu {

// ---- Component registry -------------------------------------------------
// Named component contexts, private memory owned by the registry (released
// at process exit, after the termination callbacks have run) and
// termination callbacks run once at process exit.
enum class RegistryMode : int { kProcess = 1 };

struct Registry;     // opaque
struct FileService;  // the registry's standard-stream table

[[nodiscard]] Registry *registryInit(RegistryMode mode);
[[nodiscard]] void *registryLookup(Registry *reg, std::string_view name);
[[nodiscard]] bool registrySave(Registry *reg, std::string_view name, void *value);
void registryRemove(Registry *reg, std::string_view name);
[[nodiscard]] void *registryPrivateAlloc(Registry *reg, std::size_t size);
// Gives back a block of registryPrivateAlloc before the process ends (a
// start-up that failed); nothing for a block the registry does not hold.
void registryPrivateFree(Registry *reg, void *block);
// Number of private blocks the registry holds; for tests.
[[nodiscard]] std::size_t registryPrivateBlockCount(Registry *reg);
[[nodiscard]] bool registryAtExit(Registry *reg, void (*fn)(gsluctx *), gsluctx *arg);
void registryCancelAtExit(Registry *reg, void (*fn)(gsluctx *), gsluctx *arg);
[[nodiscard]] FileService *registryFileService(Registry *reg);
[[nodiscard]] bool registryLoadPackage(Registry *reg, std::string_view name);
void registryUnloadPackage(Registry *reg, std::string_view name);

// Test hook: makes the next N private allocations succeed and the one after
// fail (negative: never fail).
void registryFailPrivateAllocAfter(int n);

// ---- Memory manager -----------------------------------------------------
// Tagged allocations for the directory client library. Start-up installs
// none: the context's handles stay zero unless an embedder sets them.
struct MemoryManager {
  void *(*calloc)(void *heap, uint32_t count, uint32_t size, const char *source, int line);
};

// ---- Thread service ------------------------------------------------------
// The start-up lock is process-wide; a failure to create a lock is reported.
void startupLock();
void startupUnlock();
[[nodiscard]] bool mutexCreate(pthread_mutex_t *m);
void mutexDestroy(pthread_mutex_t *m);
[[nodiscard]] bool rwlockCreate(pthread_rwlock_t *l);
void rwlockDestroy(pthread_rwlock_t *l);
// Take a reader-writer lock for reading or writing; false when the lock was
// not taken (for instance when the calling thread already holds it for
// writing).
[[nodiscard]] bool rwlockRead(pthread_rwlock_t *l);
[[nodiscard]] bool rwlockWrite(pthread_rwlock_t *l);
void rwlockRelease(pthread_rwlock_t *l);
// Test hook: the next n reader-writer lock creations succeed and the one
// after fails (negative: never fail).
void rwlockFailCreateAfter(int n);
struct ThreadService;
[[nodiscard]] ThreadService *threadServiceInit();

// The calling thread's identifier (the kernel's, so its low bits vary).
[[nodiscard]] uint32_t currentThreadId();

// ---- Host identifier -----------------------------------------------------
// The host's 32-bit identifier, found without any name-service look-up (so
// start-up never waits on the network): the four bytes of /etc/hostid in
// the machine's byte order when that file holds them, else the first eight
// hex digits of /etc/machine-id, else a hash (FNV-1a) of the host name.
[[nodiscard]] uint32_t hostIdentifier();
// The same rules over the given files; for tests.
[[nodiscard]] uint32_t hostIdentifierFrom(const char *hostid_path, const char *machine_id_path);

// ---- File service ---------------------------------------------------------
// The standard-stream table: stream codes 1 to 3 index it from 1.
struct FileService {
  FILE *standard[3];
};

// ---- Language-bound services ---------------------------------------------
struct Language;

// Formatting service: one handle per context, in the internal language.
struct FormatService {
  const Language *lang;
};
[[nodiscard]] FormatService *formatCreate(const Language *lang);
void formatDestroy(FormatService *f);

// Date service. Local date and time split into fields; a failure is handed
// to the state's error handler with `frame`, which does not return.
struct DateFields {
  int year, month, day, hour, minute, second, fraction;
};
struct DateState;
void dateBegin(DateState *d, const Language *lang, void (*handler)(void *frame, int code));
void dateEnd(DateState *d);
void dateNow(DateState *d, void *frame, DateFields *out);

// Compiles a date format ("YYYY/MM/DD:HH24:MI:SS ") into out (size bytes);
// a format the service does not take, or one that does not fit, is handed
// to the error handler like any other failure.
void dateCompileFormat(DateState *d, void *frame, const char *format, void *out, std::size_t size);

// Test hook: the next dateNow or dateCompileFormat reports a failure to its
// handler.
void dateFailNextForTesting();

// Resource manager, reporting its messages through a callback.
struct ResourceManager;
[[nodiscard]] ResourceManager *rmInit(gsluctx *ctx, const Language *lang,
                                      void (*on_message)(gsluctx *, const char *));
void rmTerm(ResourceManager *rm);

// Security service, handed the library's memory callbacks.
struct SecurityService;
struct SecurityParams;
[[nodiscard]] SecurityService *securityInit(const SecurityParams *params);
void securityTerm(SecurityService *s);

}  // namespace gslu

#endif  // QUILLOMAT_CORE_RUNTIME_H

// core/context_internal.h - the layout of the core context and what the
// core's own modules share about it. Private to core/ (C++ only): the other
// layers see gsluctx as an opaque type and use core/owned.h and
// core/context_access.h.
#ifndef QUILLOMAT_CORE_CONTEXT_INTERNAL_H
#define QUILLOMAT_CORE_CONTEXT_INTERNAL_H

#include <pthread.h>

#include <csetjmp>
#include <cstdint>

#include "core/context.h"
#include "core/lang.h"
#include "core/memory.h"
#include "core/msgfile.h"
#include "core/output.h"
#include "core/owned.h"
#include "core/runtime.h"

namespace gslu {

inline constexpr std::size_t kMessageBufferSize = 2048;
inline constexpr std::size_t kLrmMessageSize = 512;
inline constexpr uint32_t kClientSettingDefault = 15;
inline constexpr std::size_t kPasswordSchemeCount = 13;

struct DateState {
  const Language *lang;
  void (*error_handler)(void *frame, int code);
  int begun;
};
struct SecurityParams {
  gsluSecMemCallbacks mem;
};

}  // namespace gslu

struct gsluhhTable;  // util/hash.h

// Members in the order the lifecycle works through them.
struct gsluctx {
  void *mem_manager;  // runtime memory manager; zero after start-up
  void *mem_heap;
  gslu::FormatService *format;
  gslu::DateState date;
  gslu::ThreadService *threads;
  gslu::FileService *files;
  gslu::Registry *registry;
  uint32_t uid_seed[5];
  gslu::ResourceManager *rm;
  // Log file (opened on first trace line that is written): the open FILE,
  // and its file name and full path as gslummMalloc blocks.
  void *log_file;
  void *log_name;
  void *log_path;
  void *log_stamp_format;                // 255-byte block once a log file was opened
  gslu::MessageHandle *active_messages;  // null until the catalogue is bound
  const gslu::Language *internal_lang;
  const gslu::Language *env_lang;
  const gslu::Language *output_lang;
  uint32_t input_conversion;  // 1 when internal and output languages differ
  uint32_t output_conversion;
  pthread_mutex_t rm_lock;  // the four locks, in destruction order
  pthread_mutex_t general_lock[3];
  pthread_rwlock_t rw_lock;
  uint32_t locks_created;  // bit per lock above, so shut-down and a
                           // failed start-up destroy only what exists
  gslu::MessageHandle messages;
  char message_text[gslu::kMessageBufferSize];
  gslu::LangSlot slots[gslu::kLangSlotCount];
  jmp_buf date_guard;
  gslu::Language lang_storage[3];
  uint8_t component_code;
  uint16_t instance_number;
  uint32_t life_state;
  uint32_t pid;
  void *mem_user;
  const gsluMemCallbacks *mem_table;
  uint32_t spare;
  uint32_t trace_hook_on;
  gslu::MessageHandle *output_messages_active;
  gslu::MessageHandle output_messages;
  char output_message_text[gslu::kMessageBufferSize];
  gslu::SecurityService *security;
  char lrm_message[gslu::kLrmMessageSize];
  gsluTraceHook trace_hook;
  gsluMallocHook hook_malloc;
  gsluCallocHook hook_calloc;
  gsluReallocHook hook_realloc;
  gsluFreeHook hook_free;
  uint32_t client_setting;
  gsluhhTable *password_schemes;  // scheme name -> address of its code below
  int32_t password_codes[gslu::kPasswordSchemeCount];
};

namespace gslu {

// Bits of gsluctx::locks_created.
enum LockBits : uint32_t {
  kLockRm = 0x1,
  kLockGeneral0 = 0x2,
  kLockGeneral1 = 0x4,
  kLockGeneral2 = 0x8,
  kLockRw = 0x10,
};

// The calling thread's language-service slot.
[[nodiscard]] inline LangSlot &threadSlot(gsluctx *ctx) {
  return ctx->slots[currentThreadId() & kLangSlotMask];
}

// Why the last start-up failed, for diagnostics (empty when it did not):
// names the step, and for a malformed message catalogue the file and line.
[[nodiscard]] const char *startupDiagnostic();

// Start-up steps that can fail, in the order start-up takes them; tests make
// one fail with startupFailStepForTesting.
enum StartupStep : int {
  kStepNone,
  kStepLanguageService,
  kStepContextMemory,
  kStepFirstLock,
  kStepLanguages,
  kStepThreadService,
  kStepResourceManager,
  kStepLocks,
  kStepMessages,
  kStepMessageBind,
  kStepSecondLock,
  kStepOutputMessages,
  kStepFormat,
  kStepRegistrySave,
};
void startupFailStepForTesting(StartupStep step);

// The last step of start-up builds the password-scheme table, a string hash
// table of util, the layer above the core. So start-up does not call it by
// name: the object that builds the table (core/password_schemes.cc, target
// core_schemes) registers the step when it is linked into a program. Without
// it start-up ends one step earlier and the context has no table.
struct FinalStartupStep {
  int (*build)(gsluctx *ctx);     // GSLU_INIT_OK, or GSLU_INIT_SERVICE_FAILED
  void (*destroy)(gsluctx *ctx);  // the first action of shut-down
  const char *failure;            // the diagnostic when build fails
};
void registerFinalStartupStep(const FinalStartupStep *step);

// What other modules hold in the context and shut-down releases: the
// converters of the thread slots (core/convert.cc), and the log file with
// its names and time-stamp format (core/log.cc).
void convertersRelease(gsluctx *ctx);
void logClose(gsluctx *ctx);
void logRelease(gsluctx *ctx);

// Whether ctx's memory goes to its caller-supplied callback table: the
// table is set and all four of its memory callbacks are (core/memory.cc).
[[nodiscard]] bool callbackTableServes(const gsluctx *ctx);

// Test hook: the allocation hook every new context starts with (null, the
// default: none), so that a test can fail the allocations start-up makes
// through the context: the catalogue's and the password-scheme table's.
void startupMallocHookForTesting(gsluMallocHook hook);

}  // namespace gslu

#endif  // QUILLOMAT_CORE_CONTEXT_INTERNAL_H

// core/context.cc - creation, publication and tear-down of the core context.
#include "core/context.h"

#include <unistd.h>

#include <atomic>
#include <climits>
#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include "core/context_access.h"
#include "core/context_internal.h"

gsluctx *sgsluzGlobalContext = nullptr;
__thread gsluctx *sgsluzGlobalContext_t_ = nullptr;
int sgslutRunMode = 0;

namespace gslu {
namespace {

constexpr char kRegistryName[] = "GSLUCTX";
constexpr char kFacility[] = "ldap";
constexpr char kProduct[] = "ldap";
constexpr char kFormatPackage[] = "format";
constexpr std::size_t kEnvBufferSize = 1024;  // 1023 characters and a NUL
constexpr std::size_t kPathBufferSize = PATH_MAX;

std::atomic<int> g_fail_step{kStepNone};
std::atomic<const FinalStartupStep *> g_final_step{nullptr};
std::atomic<gsluMallocHook> g_startup_malloc_hook{nullptr};
char g_diagnostic[1024];

[[nodiscard]] bool stepFails(StartupStep step) {
  int expected = step;
  return g_fail_step.compare_exchange_strong(expected, kStepNone);
}

__attribute__((format(printf, 1, 2))) void setDiagnostic(const char *format, ...) {
  va_list ap;
  va_start(ap, format);
  std::vsnprintf(g_diagnostic, sizeof g_diagnostic, format, ap);
  va_end(ap);
}

// Copies the variable into buf, cut to size - 1 characters; false if unset.
[[nodiscard]] bool readEnv(const char *name, char (&buf)[kEnvBufferSize]) {
  const char *v = std::getenv(name);
  if (v == nullptr || v[0] == '\0') return false;
  std::snprintf(buf, sizeof buf, "%s", v);
  return true;
}

// The three languages and the two conversion flags.
void setUpLanguages(gsluctx *ctx) {
  Language &internal = ctx->lang_storage[0];
  Language &environment = ctx->lang_storage[1];
  Language &output = ctx->lang_storage[2];
  if (languageFromEnvironment(&environment)) {
    internal = environment;
    if (!languageSetCodeset(&internal, kUtf8Codeset)) languageDefaultUtf8(&internal);
    output = environment;
    bool differ = !languageSame(internal, output);
    ctx->input_conversion = differ ? 1 : 0;
    ctx->output_conversion = differ ? 1 : 0;
  } else {
    languageDefaultUtf8(&internal);
    environment = internal;
    output = internal;
    ctx->input_conversion = 0;
    ctx->output_conversion = 0;
  }
  ctx->internal_lang = &internal;
  ctx->env_lang = &environment;
  ctx->output_lang = &output;
}

// The catalogue of facility "ldap", from the given directory or the
// runtime's default location, into ctx->messages. Returns whether one was
// found; the directory that worked is left in dir.
[[nodiscard]] bool openMessages(gsluctx *ctx, const char *mesgdir, char (&dir)[kPathBufferSize]) {
  MsgWhy why{};
  bool have_dir = mesgdir != nullptr ? std::snprintf(dir, sizeof dir, "%s", mesgdir) > 0
                                     : msgDefaultDirectory(kProduct, dir, sizeof dir);
  if (have_dir && msgOpen(&ctx->messages, ctx, dir, kFacility, *ctx->internal_lang, &why)) {
    return true;
  }
  if (!have_dir) std::snprintf(why.text, sizeof why.text, "no message directory could be found");
  char home[kEnvBufferSize];
  if (mesgdir == nullptr || !readEnv("VESTRA_HOME", home)) {
    setDiagnostic("message catalogue: %s", why.text);
    return false;
  }
  // The directory named by VSX_LDAP_MESGDIR failed: the home's is tried.
  MsgWhy second{};
  if (msgDefaultDirectory(kProduct, dir, sizeof dir) &&
      msgOpen(&ctx->messages, ctx, dir, kFacility, *ctx->internal_lang, &second)) {
    return true;
  }
  setDiagnostic("message catalogue: %s; %s", why.text, second.text);
  return false;
}

[[nodiscard]] bool createLock(gsluctx *ctx, pthread_mutex_t *m, LockBits bit) {
  if (!mutexCreate(m)) return false;
  ctx->locks_created |= bit;
  return true;
}

// Releases every service the context holds, in shut-down order; serves both
// gslushut and a start-up that fails half-way. Safe on a partial context.
void releaseServices(gsluctx *ctx) {
  if (ctx->security != nullptr) {
    securityTerm(ctx->security);
    ctx->security = nullptr;
  }
  if (ctx->format != nullptr) {
    formatDestroy(ctx->format);
    registryUnloadPackage(ctx->registry, kFormatPackage);
    ctx->format = nullptr;
  }
  dateEnd(&ctx->date);
  if (ctx->rm != nullptr) {
    bool locked = (ctx->locks_created & kLockRm) != 0;
    if (locked) pthread_mutex_lock(&ctx->rm_lock);
    rmTerm(ctx->rm);
    ctx->rm = nullptr;
    if (locked) pthread_mutex_unlock(&ctx->rm_lock);
  }
  logRelease(ctx);
  convertersRelease(ctx);
  msgClose(&ctx->messages);
  msgClose(&ctx->output_messages);
  ctx->active_messages = nullptr;
  ctx->output_messages_active = nullptr;
  threadSlot(ctx).initialized = 0;
  if (ctx->locks_created & kLockRm) mutexDestroy(&ctx->rm_lock);
  constexpr LockBits kGeneral[] = {kLockGeneral0, kLockGeneral1, kLockGeneral2};
  for (int i = 0; i < 3; ++i) {
    if (ctx->locks_created & kGeneral[i]) mutexDestroy(&ctx->general_lock[i]);
  }
  if (ctx->locks_created & kLockRw) rwlockDestroy(&ctx->rw_lock);
  ctx->locks_created = 0;
}

// Everything a context holds, from its first lock to the formatting service,
// on a zeroed context. Returns 0 or 2; on failure the caller releases what
// was built.
[[nodiscard]] int buildServices(gsluctx *ctx, const char *mesgdir) {
  constexpr int kFailed = GSLU_INIT_SERVICE_FAILED;
  if (stepFails(kStepFirstLock) || !createLock(ctx, &ctx->general_lock[0], kLockGeneral0)) {
    return kFailed;
  }
  threadSlot(ctx).initialized = 1;
  for (LangSlot &slot : ctx->slots) slot.initialized = 1;
  setUpLanguages(ctx);
  if (stepFails(kStepLanguages) || ctx->internal_lang == nullptr || ctx->env_lang == nullptr ||
      ctx->output_lang == nullptr) {
    return kFailed;
  }
  dateBegin(&ctx->date, ctx->internal_lang, gsluderrf);
  ctx->threads = stepFails(kStepThreadService) ? nullptr : threadServiceInit();
  if (ctx->threads == nullptr || !rwlockCreate(&ctx->rw_lock)) return kFailed;
  ctx->locks_created |= kLockRw;
  if (!stepFails(kStepResourceManager)) {
    ctx->rm = rmInit(ctx, ctx->internal_lang, gsluLRMMsgHandler);
  }
  if (ctx->rm == nullptr) return kFailed;
  if (stepFails(kStepLocks) || !createLock(ctx, &ctx->rm_lock, kLockRm) ||
      !createLock(ctx, &ctx->general_lock[2], kLockGeneral2)) {
    return kFailed;
  }
  char dir[kPathBufferSize];
  if (stepFails(kStepMessages) || !openMessages(ctx, mesgdir, dir)) return kFailed;
  if (stepFails(kStepMessageBind) ||
      !msgSetBuffer(&ctx->messages, ctx->message_text, sizeof ctx->message_text) ||
      !msgBind(&ctx->messages)) {
    return kFailed;
  }
  if (stepFails(kStepSecondLock) || !createLock(ctx, &ctx->general_lock[1], kLockGeneral1)) {
    return kFailed;
  }
  ctx->active_messages = &ctx->messages;
  // The output language's handle shares the catalogue already read, or a
  // converted copy of it: the file is read once.
  MsgWhy why{};
  if (stepFails(kStepOutputMessages) ||
      !msgOpenFor(&ctx->output_messages, ctx->messages, *ctx->output_lang, &why) ||
      !msgSetBuffer(&ctx->output_messages, ctx->output_message_text,
                    sizeof ctx->output_message_text) ||
      !msgBind(&ctx->output_messages)) {
    if (why.text[0] != '\0')
      setDiagnostic("message catalogue %s/%s.msg: %s", dir, kFacility, why.text);
    return kFailed;
  }
  ctx->output_messages_active = &ctx->output_messages;
  ctx->component_code = 0;
  ctx->instance_number = 0;
  ctx->log_file = nullptr;
  if (stepFails(kStepFormat) || !registryLoadPackage(ctx->registry, kFormatPackage)) {
    return kFailed;
  }
  ctx->format = formatCreate(ctx->internal_lang);
  if (ctx->format == nullptr) return kFailed;
  sgsluuiInit(ctx);
  ctx->life_state = GSLU_LIFE_ALIVE;
  return GSLU_INIT_OK;
}

// What follows publication: the security service, the at-exit callback and
// the client setting.
void finishPublished(gsluctx *ctx) {
  ctx->mem_table = nullptr;
  ctx->mem_user = nullptr;
  ctx->security = nullptr;
  SecurityParams params{};
  (void)gsluicbInitCallback(ctx, &params.mem);
  ctx->security = securityInit(&params);  // its result is not checked
  (void)registryAtExit(ctx->registry, gslushutcb, ctx);
  ctx->client_setting = kClientSettingDefault;
}

// Holds the process-wide start-up lock for its lifetime.
class StartupLockGuard {
 public:
  StartupLockGuard() { startupLock(); }
  ~StartupLockGuard() { startupUnlock(); }
  StartupLockGuard(const StartupLockGuard &) = delete;
  StartupLockGuard &operator=(const StartupLockGuard &) = delete;
};

// A context block being built: released with everything it holds, unless
// committed. Nothing of a failed start-up is kept, so a library caller that
// goes on calling with a null context retries without growing.
class ContextUnderConstruction {
 public:
  ContextUnderConstruction(Registry *reg, gsluctx *ctx) : reg_(reg), ctx_(ctx) {}
  ~ContextUnderConstruction() {
    if (ctx_ == nullptr) return;
    releaseServices(ctx_);
    registryPrivateFree(reg_, ctx_);
  }
  ContextUnderConstruction(const ContextUnderConstruction &) = delete;
  ContextUnderConstruction &operator=(const ContextUnderConstruction &) = delete;
  [[nodiscard]] gsluctx *get() const { return ctx_; }
  [[nodiscard]] gsluctx *commit() { return std::exchange(ctx_, nullptr); }

 private:
  Registry *reg_;
  gsluctx *ctx_;
};

// Under the start-up lock: the context already registered (*created false),
// or a new one built, registered and published (*created true).
[[nodiscard]] int createPublished(Registry *reg, const char *mesgdir, gsluctx **out,
                                  bool *created) {
  const StartupLockGuard lock;
  if (auto *existing = static_cast<gsluctx *>(registryLookup(reg, kRegistryName))) {
    *out = existing;
    return GSLU_INIT_OK;
  }
  if (stepFails(kStepLanguageService)) {
    setDiagnostic("the language service could not be initialised");
    return GSLU_INIT_SERVICE_FAILED;
  }
  auto *block = stepFails(kStepContextMemory)
                    ? nullptr
                    : static_cast<gsluctx *>(registryPrivateAlloc(reg, sizeof(gsluctx)));
  if (block == nullptr) {
    setDiagnostic("no memory for the core context");
    return GSLU_INIT_NO_MEMORY;
  }
  ContextUnderConstruction ctx(reg, block);
  // The registry hands out zeroed memory, so every handle, hook and the
  // time-stamp format start out null (tests may ask for an allocation hook).
  block->hook_malloc = g_startup_malloc_hook.load();
  block->registry = reg;
  block->files = registryFileService(reg);
  int rc = buildServices(block, mesgdir);
  if (rc == GSLU_INIT_OK &&
      (stepFails(kStepRegistrySave) || !registrySave(reg, kRegistryName, block))) {
    rc = GSLU_INIT_SERVICE_FAILED;
  }
  if (rc != GSLU_INIT_OK) {
    if (g_diagnostic[0] == '\0') setDiagnostic("a runtime service could not be started");
    return rc;
  }
  sgsluusSetContext(ctx.commit());
  *out = block;
  *created = true;
  return GSLU_INIT_OK;
}

}  // namespace

void registerFinalStartupStep(const FinalStartupStep *step) { g_final_step.store(step); }

void startupFailStepForTesting(StartupStep step) { g_fail_step.store(step); }

void startupMallocHookForTesting(gsluMallocHook hook) { g_startup_malloc_hook.store(hook); }

const char *startupDiagnostic() { return g_diagnostic; }

bool internalSetIsSingleByte(gsluctx *ctx) {
  const gsluctx *g = resolveContext(ctx);
  return g != nullptr && g->internal_lang != nullptr &&
         (g->internal_lang->flags & kLangSingleByte) != 0;
}

bool convertsOutput(const gsluctx *ctx) { return ctx != nullptr && ctx->output_conversion != 0; }

}  // namespace gslu

using namespace gslu;

extern "C" {

gsluctx *sgsluugGetContext(void) {
  return sgslutRunMode == GSLU_RUN_MODE_THREADED ? sgsluzGlobalContext_t_ : sgsluzGlobalContext;
}

void sgsluusSetContext(gsluctx *ctx) {
  if (sgslutRunMode == GSLU_RUN_MODE_THREADED) {
    sgsluzGlobalContext_t_ = ctx;
  } else {
    sgsluzGlobalContext = ctx;
  }
}

const char *gsluidStartupDiagnostic(void) { return startupDiagnostic(); }

gsluctx *gsluizgcGetContext(void) {
  if (gsluctx *ctx = sgsluugGetContext()) return ctx;
  Registry *reg = registryInit(RegistryMode::kProcess);
  if (auto *ctx = static_cast<gsluctx *>(registryLookup(reg, kRegistryName))) return ctx;
  gsluctx *ctx = nullptr;
  (void)gsluinit(&ctx);
  return ctx;
}

int gsluinit(gsluctx **out) {
  if (out == nullptr) return GSLU_INIT_NULL_ARG;
  char mesgdir[kEnvBufferSize];
  const bool have_mesgdir = readEnv("VSX_LDAP_MESGDIR", mesgdir);
  *out = nullptr;
  g_diagnostic[0] = '\0';
  Registry *reg = registryInit(RegistryMode::kProcess);
  gsluctx *ctx = nullptr;
  bool created = false;
  if (const int rc = createPublished(reg, have_mesgdir ? mesgdir : nullptr, &ctx, &created);
      rc != GSLU_INIT_OK) {
    return rc;
  }
  if (!created) {
    *out = ctx;
    return GSLU_INIT_OK;
  }
  finishPublished(ctx);
  // Deliberate: the context is already published, and stays so when its
  // last step (the password-scheme table) fails; a caller may find it
  // half-built through the global pointer.
  if (const FinalStartupStep *step = g_final_step.load();
      step != nullptr && step->build(ctx) != GSLU_INIT_OK) {
    setDiagnostic("%s", step->failure);
    return GSLU_INIT_SERVICE_FAILED;
  }
  *out = ctx;
  return GSLU_INIT_OK;
}

int gslushut(gsluctx *ctx) {
  if (ctx == nullptr) return GSLU_INIT_NULL_ARG;
  if (const FinalStartupStep *step = g_final_step.load()) step->destroy(ctx);
  if (sgsluugGetContext() == ctx) sgsluusSetContext(nullptr);
  if (sgsluzGlobalContext == ctx) sgsluzGlobalContext = nullptr;
  ctx->life_state = GSLU_LIFE_SHUT_DOWN;
  sgsluucCloseContext(ctx);
  releaseServices(ctx);
  registryCancelAtExit(ctx->registry, gslushutcb, ctx);
  if (registryLookup(ctx->registry, kRegistryName) == ctx)
    registryRemove(ctx->registry, kRegistryName);
  return GSLU_INIT_OK;
}

void gslushutcb(gsluctx *ctx) {
  if (ctx == nullptr || ctx->life_state == GSLU_LIFE_SHUT_DOWN) return;
  (void)gslushut(ctx);
}

int gsluicbInitCallback(gsluctx *ctx, gsluSecMemCallbacks *table) {
  if (table == nullptr) return GSLU_INIT_NULL_TABLE;
  table->allocate = gslucmMalloc;
  table->reallocate = gslucrRealloc;
  table->release = gslucfFree;
  table->user = ctx;
  return GSLU_INIT_OK;
}

gsluctx *gslccx_Getgsluctx(const gslcClientHandle *handle) {
  if (handle != nullptr) {
    bool has_allocator = handle->mem_table != nullptr;
    if (handle->core != nullptr) {
      if (has_allocator) {
        handle->core->mem_table = handle->mem_table;
        handle->core->mem_user = handle->mem_user;
      }
      return handle->core;
    }
    if (has_allocator) return nullptr;
  }
  if (gsluctx *ctx = sgsluugGetContext()) return ctx;
  return gsluizgcGetContext();
}

void sgsluuiInit(gsluctx *ctx) {
  if (ctx == nullptr) return;
  // Weights of year, month, day, hour, minute and second; the fraction of a
  // second is added unweighted.
  constexpr uint32_t kWeights[] = {378432, 1036800, 86400, 3600, 60, 1};
  constexpr uint32_t kClockFactor = 37;
  constexpr uint32_t kClockOffset = 1554;
  constexpr uint32_t kSeedModulus = 10000;
  constexpr uint32_t kHostModulus = 1000;
  volatile uint32_t seed = 0;
  if (setjmp(ctx->date_guard) == 0) {
    DateFields f{};
    dateNow(&ctx->date, ctx, &f);
    const int fields[] = {f.year, f.month, f.day, f.hour, f.minute, f.second};
    uint32_t s = static_cast<uint32_t>(f.fraction);
    for (int i = 0; i < 6; ++i) s += static_cast<uint32_t>(fields[i]) * kWeights[i];
    seed = s;
  } else {
    seed = static_cast<uint32_t>(std::clock()) * kClockFactor + kClockOffset;
  }
  unsigned int state = seed;
  ctx->uid_seed[0] = static_cast<uint32_t>(rand_r(&state)) % kSeedModulus;
  const auto host = static_cast<uint64_t>(hostIdentifier());
  for (int i = 0; i < 4; ++i) {
    ctx->uid_seed[i + 1] = static_cast<uint32_t>(host >> (8 * i)) % kHostModulus;
  }
  ctx->pid = static_cast<uint32_t>(getpid());
}

void sgsluucCloseContext(gsluctx *) {}

void gsluLRMMsgHandler(gsluctx *ctx, const char *text) {
  if (ctx == nullptr || text == nullptr) return;
  std::snprintf(ctx->lrm_message, sizeof ctx->lrm_message, "%s", text);
}

void gsluderrf(void *frame, int) { std::longjmp(static_cast<gsluctx *>(frame)->date_guard, 1); }

}  // extern "C"

// core/runtime.cc - the runtime services behind the core context.
#include "core/runtime.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include "core/context_internal.h"

namespace gslu {

// ---- Component registry -------------------------------------------------

namespace {

constexpr std::size_t kMaxEntries = 16;
constexpr std::size_t kMaxNameLength = 31;
constexpr std::size_t kMaxAtExit = 16;
constexpr std::size_t kMaxPackages = 8;

struct NamedEntry {
  char name[kMaxNameLength + 1];
  void *value;
};

struct PrivateBlock {
  PrivateBlock *next;
  // Blocks are handed out with max_align_t alignment right after this header.
  alignas(std::max_align_t) unsigned char data[1];
};

struct AtExitEntry {
  void (*fn)(gsluctx *);
  gsluctx *arg;
};

// Guards every member of Registry.
pthread_mutex_t g_registry_lock = PTHREAD_MUTEX_INITIALIZER;
std::atomic<int> g_fail_private_after{-1};

}  // namespace

struct Registry {
  NamedEntry entries[kMaxEntries];
  PrivateBlock *blocks;
  AtExitEntry at_exit[kMaxAtExit];
  std::size_t at_exit_count;
  char packages[kMaxPackages][kMaxNameLength + 1];
  FileService files;
};

namespace {

Registry *g_registry = nullptr;

struct RegistryGuard {
  RegistryGuard() { pthread_mutex_lock(&g_registry_lock); }
  ~RegistryGuard() { pthread_mutex_unlock(&g_registry_lock); }
  RegistryGuard(const RegistryGuard &) = delete;
  RegistryGuard &operator=(const RegistryGuard &) = delete;
};

// Runs the termination callbacks (latest first), then releases the private
// memory: contexts live there, so they outlast their own shut-down.
void registryTerminate() {
  AtExitEntry todo[kMaxAtExit];
  std::size_t n;
  {
    RegistryGuard guard;
    n = g_registry->at_exit_count;
    std::memcpy(todo, g_registry->at_exit, sizeof todo);
    g_registry->at_exit_count = 0;
  }
  while (n > 0) {
    --n;
    todo[n].fn(todo[n].arg);
  }
  RegistryGuard guard;
  for (PrivateBlock *b = g_registry->blocks; b != nullptr;) {
    PrivateBlock *next = b->next;
    std::free(b);
    b = next;
  }
  g_registry->blocks = nullptr;
}

[[nodiscard]] bool nameFits(std::string_view name) {
  return !name.empty() && name.size() <= kMaxNameLength;
}

}  // namespace

Registry *registryInit(RegistryMode) {
  RegistryGuard guard;
  if (g_registry == nullptr) {
    // Lives until the process ends; its at-exit hook frees what it holds.
    static Registry registry{};
    registry.files = FileService{{stdin, stdout, stderr}};
    g_registry = &registry;
    std::atexit(registryTerminate);
  }
  return g_registry;
}

void *registryLookup(Registry *reg, std::string_view name) {
  RegistryGuard guard;
  for (const NamedEntry &e : reg->entries) {
    if (e.value != nullptr && name == e.name) return e.value;
  }
  return nullptr;
}

bool registrySave(Registry *reg, std::string_view name, void *value) {
  if (!nameFits(name) || value == nullptr) return false;
  RegistryGuard guard;
  NamedEntry *free_slot = nullptr;
  for (NamedEntry &e : reg->entries) {
    if (e.value != nullptr && name == e.name) return false;
    if (e.value == nullptr && free_slot == nullptr) free_slot = &e;
  }
  if (free_slot == nullptr) return false;
  std::memcpy(free_slot->name, name.data(), name.size());
  free_slot->name[name.size()] = '\0';
  free_slot->value = value;
  return true;
}

void registryRemove(Registry *reg, std::string_view name) {
  RegistryGuard guard;
  for (NamedEntry &e : reg->entries) {
    if (e.value != nullptr && name == e.name) e = NamedEntry{};
  }
}

void *registryPrivateAlloc(Registry *reg, std::size_t size) {
  int budget = g_fail_private_after.load();
  if (budget == 0) return nullptr;
  if (budget > 0) g_fail_private_after.store(budget - 1);
  // Detect and prevent integer overflow of the header plus the block.
  if (size > SIZE_MAX - sizeof(PrivateBlock)) return nullptr;
  auto *b = static_cast<PrivateBlock *>(std::calloc(1, sizeof(PrivateBlock) + size));
  if (b == nullptr) return nullptr;
  RegistryGuard guard;
  b->next = reg->blocks;
  reg->blocks = b;
  return b->data;
}

void registryPrivateFree(Registry *reg, void *block) {
  if (block == nullptr) return;
  PrivateBlock *found = nullptr;
  {
    RegistryGuard guard;
    for (PrivateBlock **link = &reg->blocks; *link != nullptr; link = &(*link)->next) {
      if ((*link)->data == block) {
        found = *link;
        *link = found->next;
        break;
      }
    }
  }
  std::free(found);
}

std::size_t registryPrivateBlockCount(Registry *reg) {
  RegistryGuard guard;
  std::size_t n = 0;
  for (const PrivateBlock *b = reg->blocks; b != nullptr; b = b->next) ++n;
  return n;
}

void registryFailPrivateAllocAfter(int n) { g_fail_private_after.store(n); }

bool registryAtExit(Registry *reg, void (*fn)(gsluctx *), gsluctx *arg) {
  RegistryGuard guard;
  for (std::size_t i = 0; i < reg->at_exit_count; ++i) {
    if (reg->at_exit[i].fn == fn && reg->at_exit[i].arg == arg) return true;
  }
  if (reg->at_exit_count == kMaxAtExit) return false;
  reg->at_exit[reg->at_exit_count++] = AtExitEntry{fn, arg};
  return true;
}

void registryCancelAtExit(Registry *reg, void (*fn)(gsluctx *), gsluctx *arg) {
  RegistryGuard guard;
  std::size_t kept = 0;
  for (std::size_t i = 0; i < reg->at_exit_count; ++i) {
    if (reg->at_exit[i].fn != fn || reg->at_exit[i].arg != arg)
      reg->at_exit[kept++] = reg->at_exit[i];
  }
  reg->at_exit_count = kept;
}

FileService *registryFileService(Registry *reg) { return &reg->files; }

bool registryLoadPackage(Registry *reg, std::string_view name) {
  if (!nameFits(name)) return false;
  RegistryGuard guard;
  for (auto &p : reg->packages) {
    if (name == p) return true;
  }
  for (auto &p : reg->packages) {
    if (p[0] == '\0') {
      std::memcpy(p, name.data(), name.size());
      p[name.size()] = '\0';
      return true;
    }
  }
  return false;
}

void registryUnloadPackage(Registry *reg, std::string_view name) {
  RegistryGuard guard;
  for (auto &p : reg->packages) {
    if (name == p) p[0] = '\0';
  }
}

// ---- Thread service ------------------------------------------------------

namespace {
pthread_mutex_t g_startup_lock = PTHREAD_MUTEX_INITIALIZER;
std::atomic<int> g_fail_rwlock_after{-1};
}  // namespace

struct ThreadService {
  int initialized;
};

void startupLock() { pthread_mutex_lock(&g_startup_lock); }
void startupUnlock() { pthread_mutex_unlock(&g_startup_lock); }
bool mutexCreate(pthread_mutex_t *m) { return pthread_mutex_init(m, nullptr) == 0; }
void mutexDestroy(pthread_mutex_t *m) { (void)pthread_mutex_destroy(m); }
bool rwlockCreate(pthread_rwlock_t *l) {
  int left = g_fail_rwlock_after.load();
  while (left >= 0 && !g_fail_rwlock_after.compare_exchange_weak(left, left - 1)) {
  }
  if (left == 0) return false;
  return pthread_rwlock_init(l, nullptr) == 0;
}
void rwlockDestroy(pthread_rwlock_t *l) { (void)pthread_rwlock_destroy(l); }
bool rwlockRead(pthread_rwlock_t *l) { return pthread_rwlock_rdlock(l) == 0; }
bool rwlockWrite(pthread_rwlock_t *l) { return pthread_rwlock_wrlock(l) == 0; }
void rwlockRelease(pthread_rwlock_t *l) { (void)pthread_rwlock_unlock(l); }
void rwlockFailCreateAfter(int n) { g_fail_rwlock_after.store(n); }

ThreadService *threadServiceInit() {
  static ThreadService service{1};
  return &service;
}

uint32_t currentThreadId() {
  // The kernel's thread id: pthread_self() is an aligned address whose low
  // ten bits would put every thread in the same slot.
  thread_local const uint32_t tid = static_cast<uint32_t>(gettid());
  return tid;
}

// ---- Host identifier -----------------------------------------------------

namespace {

constexpr char kHostIdPath[] = "/etc/hostid";
constexpr char kMachineIdPath[] = "/etc/machine-id";
constexpr std::size_t kMachineIdDigits = 8;  // 32 bits of the 128 it holds
constexpr uint32_t kFnvOffset = 2166136261u;
constexpr uint32_t kFnvPrime = 16777619u;

// Up to size bytes of the file at path; -1 when it cannot be read.
ssize_t readSmallFile(const char *path, void *buffer, std::size_t size) {
  const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  ssize_t n;
  do {
    n = ::read(fd, buffer, size);
  } while (n < 0 && errno == EINTR);
  (void)::close(fd);
  return n;
}

[[nodiscard]] int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

[[nodiscard]] bool fromHostIdFile(const char *path, uint32_t *id) {
  uint32_t value = 0;
  if (readSmallFile(path, &value, sizeof value) != static_cast<ssize_t>(sizeof value)) return false;
  *id = value;
  return true;
}

[[nodiscard]] bool fromMachineId(const char *path, uint32_t *id) {
  char text[kMachineIdDigits];
  if (readSmallFile(path, text, sizeof text) != static_cast<ssize_t>(sizeof text)) return false;
  uint32_t value = 0;
  for (char c : text) {
    const int d = hexDigit(c);
    if (d < 0) return false;
    value = value << 4 | static_cast<uint32_t>(d);
  }
  *id = value;
  return true;
}

[[nodiscard]] uint32_t fromHostName() {
  char name[256] = {};
  if (gethostname(name, sizeof name - 1) != 0) name[0] = '\0';
  uint32_t h = kFnvOffset;
  for (const char *p = name; *p != '\0'; ++p) h = (h ^ static_cast<unsigned char>(*p)) * kFnvPrime;
  return h;
}

}  // namespace

uint32_t hostIdentifierFrom(const char *hostid_path, const char *machine_id_path) {
  uint32_t id = 0;
  if (fromHostIdFile(hostid_path, &id) || fromMachineId(machine_id_path, &id)) return id;
  return fromHostName();
}

uint32_t hostIdentifier() { return hostIdentifierFrom(kHostIdPath, kMachineIdPath); }

// ---- Formatting, date, resource manager, security ------------------------

FormatService *formatCreate(const Language *lang) {
  auto *f = new (std::nothrow) FormatService{lang};
  return f;
}

void formatDestroy(FormatService *f) { delete f; }

namespace {
std::atomic<bool> g_date_fail_next{false};
}  // namespace

void dateBegin(DateState *d, const Language *lang, void (*handler)(void *frame, int code)) {
  d->lang = lang;
  d->error_handler = handler;
  d->begun = 1;
}

void dateEnd(DateState *d) { d->begun = 0; }

void dateFailNextForTesting() { g_date_fail_next.store(true); }

void dateNow(DateState *d, void *frame, DateFields *out) {
  constexpr int kDateErrorClock = 1;
  struct timespec ts {};
  struct tm tm {};
  bool failed = g_date_fail_next.exchange(false) || d->begun == 0 ||
                clock_gettime(CLOCK_REALTIME, &ts) != 0 || localtime_r(&ts.tv_sec, &tm) == nullptr;
  if (failed) {
    d->error_handler(frame, kDateErrorClock);
    return;  // not reached: the handler jumps back to its guard
  }
  *out = DateFields{tm.tm_year + 1900,
                    tm.tm_mon + 1,
                    tm.tm_mday,
                    tm.tm_hour,
                    tm.tm_min,
                    tm.tm_sec,
                    static_cast<int>(ts.tv_nsec / 10000000)};
}

void dateCompileFormat(DateState *d, void *frame, const char *format, void *out, std::size_t size) {
  constexpr int kDateErrorFormat = 2;
  // The compiled form is the checked format itself: its fields are the
  // ones the service knows, in the order they are written.
  constexpr char kFields[] = "YMDHI:S/ 24";
  const std::size_t length = std::strlen(format);
  bool failed = g_date_fail_next.exchange(false) || d->begun == 0 || length >= size ||
                std::strspn(format, kFields) != length;
  if (failed) {
    d->error_handler(frame, kDateErrorFormat);
    return;  // not reached: the handler jumps back to its guard
  }
  std::memcpy(out, format, length + 1);
}

struct ResourceManager {
  gsluctx *ctx;
  const Language *lang;
  void (*on_message)(gsluctx *, const char *);
};

ResourceManager *rmInit(gsluctx *ctx, const Language *lang,
                        void (*on_message)(gsluctx *, const char *)) {
  return new (std::nothrow) ResourceManager{ctx, lang, on_message};
}

void rmTerm(ResourceManager *rm) { delete rm; }

struct SecurityService {
  gsluSecMemCallbacks mem;
};

SecurityService *securityInit(const SecurityParams *params) {
  return new (std::nothrow) SecurityService{params->mem};
}

void securityTerm(SecurityService *s) { delete s; }

}  // namespace gslu

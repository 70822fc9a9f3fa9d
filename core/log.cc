// core/log.cc - tracing and the log file. Contracts in core/output.h.
#include <sys/stat.h>
#include <unistd.h>

#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>

#include "core/context_internal.h"
#include "core/convert.h"
#include "core/format.h"
#include "core/memory.h"
#include "core/output.h"
#include "core/output_internal.h"

uint32_t ldap_debug = GSLUTC_LEVEL_ERROR;
int32_t debug_flag = 0;

namespace gslu {

namespace {

constexpr std::size_t kTraceBufferSize = 1024;
constexpr std::size_t kDebugBufferSize = 4096;
constexpr std::size_t kHomeBufferSize = 255;
constexpr std::size_t kLogNameBufferSize = 32;
constexpr uint32_t kStampFormatSize = 255;
constexpr std::size_t kTimeBufferSize = 40;
constexpr uint32_t kAllOnes = 0xFFFFFFFFu;

constexpr char kHomeVariable[] = "VESTRA_HOME";
constexpr char kLogDirectory[] = "/ldap/log/";
constexpr char kStampFormat[] = "YYYY/MM/DD:HH24:MI:SS ";
constexpr char kTimeFormat[] = "%Y/%m/%d:%H:%M:%S";
constexpr char kStampSeparator[] = " * ";

// What a log-file name is formatted with.
enum class NameArgs { kNone, kInstance, kInstanceAndProcess };

struct LogFileName {
  int component;
  const char *format;
  NameArgs args;
};

// Log-file names by component code; every other code, among them the 0 of
// this program, takes kDefaultLogFileName.
constexpr LogFileName kLogFileNames[] = {
    {4, "qdrctl%.2d.log", NameArgs::kInstance},
    {7, "pzksrv%.2d.log", NameArgs::kInstance},
    {8, "pzksrv%.2ds%d.log", NameArgs::kInstanceAndProcess},
    {9, "farsync.log", NameArgs::kNone},
    {11, "massedit.log", NameArgs::kNone},
    {12, "massimport.log", NameArgs::kNone},
    {13, "textdump.log", NameArgs::kNone},
    {14, "indexer.log", NameArgs::kNone},
    {15, "masspurge.log", NameArgs::kNone},
    // Deliberate: a conversion and no argument for it. The formatter
    // refuses such a name, so this component gets no log file; the entry is
    // kept as the component's tools know it.
    {16, "qdrcmprec%d.log", NameArgs::kNone},
};
constexpr LogFileName kDefaultLogFileName = {0, "qdrldapd%.2ds%d.log",
                                             NameArgs::kInstanceAndProcess};

[[nodiscard]] const LogFileName &logFileNameOf(uint8_t component) {
  for (const LogFileName &row : kLogFileNames) {
    if (row.component == component) return row;
  }
  return kDefaultLogFileName;
}

// The trace decision.
[[nodiscard]] bool lineWanted(uint32_t level) {
  const uint32_t mask = ldap_debug;
  if (mask != 0 && (level == GSLUTC_LEVEL_ERROR || level == GSLUTC_LEVEL_FATAL)) return true;
  return (level & mask) != 0 && debug_flag != 0;
}

[[nodiscard]] bool hookInstalled(const gsluctx *ctx) {
  return ctx->trace_hook_on != 0 && ctx->trace_hook != nullptr;
}

// Formats the log-file name of the context's component into name.
[[nodiscard]] bool formatLogFileName(gsluctx *ctx, char (&name)[kLogNameBufferSize]) {
  const LogFileName &row = logFileNameOf(ctx->component_code);
  const int32_t instance = ctx->instance_number;
  uint32_t process = 0;
  sgslupgGetProcId(ctx, &process);
  const int32_t process_id = static_cast<int32_t>(process);
  const gsluArg args[] = {typedArg(&instance), typedArg(&process_id)};
  const uint32_t count = row.args == NameArgs::kNone ? 0 : row.args == NameArgs::kInstance ? 1 : 2;
  return formatTyped(name, sizeof name, row.format, args, count).status == FormatStatus::kOk;
}

// A gslummMalloc copy of the concatenation of the parts, or null.
[[nodiscard]] char *joinAlloc(gsluctx *ctx, std::initializer_list<const char *> parts) {
  std::size_t total = 1;
  for (const char *p : parts) total += std::strlen(p);  // bounded by the callers' buffers
  auto *out = static_cast<char *>(gslummMalloc(ctx, static_cast<uint32_t>(total)));
  if (out == nullptr) return nullptr;
  char *end = out;
  for (const char *p : parts) end = stpcpy(end, p);
  return out;
}

// Compiles the time-stamp format into block under the date service's error
// guard; false when the guard trips. Nothing with a destructor lives in
// this frame, so the jump back skips nothing.
[[nodiscard]] bool compileStampFormat(gsluctx *ctx, void *block) {
  if (setjmp(ctx->date_guard) != 0) return false;
  dateCompileFormat(&ctx->date, ctx, kStampFormat, block, kStampFormatSize);
  return true;
}

// Makes sure the context has a log file that still exists on disk.
[[nodiscard]] int ensureLogFile(gsluctx *ctx) {
  if (ctx->log_file != nullptr) {
    struct stat st {};
    if (ctx->log_path != nullptr && ::stat(static_cast<const char *>(ctx->log_path), &st) == 0) {
      return GSLUF_OK;
    }
    logClose(ctx);
  }
  return gslufgGetLogfile(ctx);
}

void writeTimeStamp(const gsluctx *ctx, FILE *f) {
  if (ctx->log_stamp_format == nullptr) return;
  char now[kTimeBufferSize] = {};
  sgsludqdrLocalTimeString(now, sizeof now);
  if (now[0] == '\0') return;
  std::fputs(now, f);
  std::fputs(kStampSeparator, f);
}

[[nodiscard]] uint32_t traceV(gsluctx *ctx, uint32_t level, const char *format, va_list ap) {
  gsluctx *g = resolveContext(ctx);
  if (g == nullptr) return kAllOnes;
  // Decided before the arguments are even read.
  if (!hookInstalled(g) && !lineWanted(level)) return GSLUF_OK;
  gsluArg args[kMaxTypedArgs];
  uint32_t count = 0;
  if (!readTypedArgs(ap, args, &count)) return GSLUF_FORMAT_FAILED;
  return gslutcaTraceArgs(g, level, format, args, count);
}

}  // namespace

void logClose(gsluctx *ctx) {
  if (ctx->log_file != nullptr) std::fclose(static_cast<FILE *>(ctx->log_file));
  if (ctx->log_name != nullptr) (void)gslumfFree(ctx, ctx->log_name);
  if (ctx->log_path != nullptr) (void)gslumfFree(ctx, ctx->log_path);
  ctx->log_file = ctx->log_name = ctx->log_path = nullptr;
}

void logRelease(gsluctx *ctx) {
  logClose(ctx);
  // The time-stamp format outlives re-opened log files, not the context.
  if (ctx->log_stamp_format != nullptr) (void)gslumfFree(ctx, ctx->log_stamp_format);
  ctx->log_stamp_format = nullptr;
}

}  // namespace gslu

using namespace gslu;

extern "C" {

int gslutsSetTraceHook(gsluctx *ctx, gsluTraceHook hook) {
  gsluctx *g = resolveContext(ctx);
  if (g == nullptr) return GSLUF_NO_CONTEXT;
  g->trace_hook = hook;
  g->trace_hook_on = hook != nullptr ? 1 : 0;
  return GSLUF_OK;
}

uint32_t gslutcaTraceArgs(gsluctx *ctx, uint32_t level, const char *format, const gsluArg *args,
                          uint32_t count) {
  gsluctx *g = resolveContext(ctx);
  if (g == nullptr) return kAllOnes;
  if (hookInstalled(g)) {
    g->trace_hook(level, format, args, count);
    return GSLUF_OK;
  }
  if (!lineWanted(level)) return GSLUF_OK;
  if (format == nullptr || !typedArgsValid(args, count)) return GSLUF_FORMAT_FAILED;
  char line[kTraceBufferSize];
  const FormatStatus status = formatTyped(line, sizeof line, format, args, count).status;
  // A line too long for the buffer is logged cut.
  if (status != FormatStatus::kOk && status != FormatStatus::kTooSmall) return GSLUF_FORMAT_FAILED;
  return static_cast<uint32_t>(gsluffFLog(g, level, line));
}

uint32_t gslutcTraceWithCtx(gsluctx *ctx, uint32_t level, const char *format, ...) {
  va_list ap;
  va_start(ap, format);
  const uint32_t result = traceV(ctx, level, format, ap);
  va_end(ap);
  return result;
}

uint32_t gslutcTrace(uint32_t level, const char *format, ...) {
  va_list ap;
  va_start(ap, format);
  const uint32_t result = traceV(nullptr, level, format, ap);
  va_end(ap);
  return result;
}

int gsluffFLog(gsluctx *ctx, uint32_t level, const char *text) {
  if (!lineWanted(level)) return GSLUF_OK;
  gsluctx *g = resolveContext(ctx);
  if (g == nullptr) return GSLUF_NO_CONTEXT;
  if (g->mem_table != nullptr && g->mem_table->log != nullptr) {
    return g->mem_table->log(g, g->mem_user, level, text);
  }
  const gsluArg arg = typedArg(text);
  return gslufdaDebugArgs(g, GSLUF_DEBUG_LOG, "%s", &arg, 1);
}

int gslufdaDebugArgs(gsluctx *ctx, int /*mode*/, const char *format, const gsluArg *args,
                     uint32_t count) {
  gsluctx *g = resolveContext(ctx);
  if (g == nullptr) return GSLUF_NO_CONTEXT;
  if (format == nullptr || !typedArgsValid(args, count)) return GSLUF_FORMAT_FAILED;
  char line[kDebugBufferSize];
  const Formatted f = formatTyped(line, sizeof line, format, args, count);
  if (f.status != FormatStatus::kOk && f.status != FormatStatus::kTooSmall)
    return GSLUF_FORMAT_FAILED;
  uint64_t length = f.length;
  if (g->output_conversion != 0 &&
      convertOutputInPlace(g, line, f.length, sizeof line, &length) != GSLUUC_OK) {
    return GSLUF_FORMAT_FAILED;
  }
  if (const int status = ensureLogFile(g); status != GSLUF_OK) return status;
  auto *file = static_cast<FILE *>(g->log_file);
  writeTimeStamp(g, file);
  const bool written = std::fwrite(line, 1, length, file) == length;
  return written && std::fflush(file) == 0 ? GSLUF_OK : GSLUF_WRITE_FAILED;
}

int gslufdDebug(gsluctx *ctx, int mode, const char *format, ...) {
  va_list ap;
  va_start(ap, format);
  gsluArg args[kMaxTypedArgs];
  uint32_t count = 0;
  const bool read = readTypedArgs(ap, args, &count);
  va_end(ap);
  if (!read) return GSLUF_FORMAT_FAILED;
  return gslufdaDebugArgs(ctx, mode, format, args, count);
}

int gslufgGetLogfile(gsluctx *ctx) {
  gsluctx *g = resolveContext(ctx);
  if (g == nullptr) return GSLUF_NO_CONTEXT;
  const char *value = std::getenv(kHomeVariable);
  if (value == nullptr || value[0] == '\0') return GSLUF_WRITE_FAILED;
  char home[kHomeBufferSize];
  std::snprintf(home, sizeof home, "%s", value);  // cut to the buffer
  char name[kLogNameBufferSize];
  if (!formatLogFileName(g, name)) return GSLUF_WRITE_FAILED;
  Owned<char> path(joinAlloc(g, {home, kLogDirectory, name}), ContextFree{g});
  Owned<char> name_block(joinAlloc(g, {name}), ContextFree{g});
  if (!path || !name_block) return GSLUF_NO_MEMORY;
  // Everything the log needs is acquired first; the context changes only
  // once nothing can fail any more.
  Owned<void> stamp(nullptr, ContextFree{g});
  if (g->log_stamp_format == nullptr) {
    stamp.reset(gslummMalloc(g, kStampFormatSize));
    if (!stamp) return GSLUF_NO_MEMORY;
    if (!compileStampFormat(g, stamp.get())) return GSLUF_WRITE_FAILED;
  }
  const bool exists = ::access(path.get(), F_OK) == 0;
  FILE *file = openStreamFile(path.get(), exists ? GSLUF_MODE_APPEND : GSLUF_MODE_CREATE);
  if (file == nullptr) return GSLUF_WRITE_FAILED;
  logClose(g);
  g->log_file = file;
  g->log_path = path.release();
  g->log_name = name_block.release();
  if (stamp) g->log_stamp_format = stamp.release();
  return GSLUF_OK;
}

void sgsludqdrLocalTimeString(char *buffer, size_t size) {
  if (buffer == nullptr || size == 0) return;
  buffer[0] = '\0';
  const std::time_t now = std::time(nullptr);
  struct tm local {};
  if (localtime_r(&now, &local) == nullptr) return;
  if (std::strftime(buffer, size, kTimeFormat, &local) == 0) buffer[0] = '\0';
}

void sgslupgGetProcId(gsluctx * /*ctx*/, uint32_t *out) {
  if (out != nullptr) *out = static_cast<uint32_t>(getpid());
}

}  // extern "C"

// driver/main.cc - the quillomat command: converts each DSML v1 document
// named on the command line, in order, to LDIF on standard output, one record
// per entry as soon as the entry's closing tag has been read.
//
// Exit status: 0 when every document was converted and all output reached
// standard output; 1 for a usage error, a document that could not be
// converted (message 2101; the entries before the failure stay written),
// output that could not be written (message 2102), or no core context; the
// reader's own status when its parser context cannot be created.
#include <cstdint>
#include <cstdio>

#include "core/context.h"
#include "core/memory.h"
#include "core/messages.h"
#include "core/output.h"
#include "core/pool.h"
#include "dsml/reader.h"
#include "entry/ldif_record.h"

namespace {

constexpr char kNoContext[] = "\nError initializing CORE context.\n";
constexpr char kUsage[] = "usage: quillomat file1 file2 ...\n\n";
constexpr char kRecordFormat[] = "%s\n";  // the newline ends the record with an empty line

constexpr uint32_t kMsgNotConverted = 2101;
constexpr uint32_t kMsgOutputLost = 2102;

constexpr int kExitFailure = 1;

[[nodiscard]] gsluctx *coreContext() {
  if (gsluctx *ctx = sgsluugGetContext()) return ctx;
  return gsluizgcGetContext();
}

// Prints catalogue message `number` and a newline on standard error.
void printMessage(gsluctx *ctx, uint32_t number) {
  const char *text = nullptr;
  int severity = 0;
  (void)gslusgmGetMessage(nullptr, number, &text, &severity);
  (void)gslufpFprintf(ctx, GSLUF_STREAM_STDERR, kRecordFormat, GSLUF_ARG_STRING, text,
                      GSLUF_ARG_END);
}

// Every way out passes here: output that never reached standard output
// (a full disk, a closed pipe) turns any status into a failure, so a
// pipeline never takes a cut LDIF stream for a complete one.
[[nodiscard]] int finish(gsluctx *ctx, int status) {
  if (gslufcsCloseStdout(ctx) != GSLUF_OK) {
    printMessage(ctx, kMsgOutputLost);
    return kExitFailure;
  }
  return status;
}

}  // namespace

// The reader's entry callback: prints the entry as one LDIF record and an
// empty line. The reader destroys the entry after a 0 result.
extern "C" int32_t s0gslPrintLDAPEntry(LDAPEntry *entry, void * /*unused*/) {
  gsluctx *ctx = coreContext();
  char *text = nullptr;
  const int status = gslclegalGetAsLDIF(nullptr, entry, &text);
  if (status != GSLCLEGAL_OK) return status;
  (void)gslufpFprintf(ctx, GSLUF_STREAM_STDOUT, kRecordFormat, GSLUF_ARG_STRING, text,
                      GSLUF_ARG_END);
  (void)gslumfFree(ctx, text);
  return 0;
}

int main(int argc, char **argv) {
  gsluctx *ctx = coreContext();
  if (ctx == nullptr) {
    std::fputs(kNoContext, stderr);
    return kExitFailure;
  }
#if !defined(__SANITIZE_ADDRESS__)
  // The conversion runs on this thread alone, so the small-block pool may
  // serve it; a sanitized build keeps the C library's allocator, whose
  // every block the sanitizer watches.
  (void)gslu::poolInstall(ctx);
#endif
  // Only a count of exactly 1 is a usage error; with none at all there is
  // simply nothing to convert.
  if (argc == 1) {
    (void)gslufpFprintf(ctx, GSLUF_STREAM_STDERR, kUsage, GSLUF_ARG_END);
    return finish(ctx, kExitFailure);
  }
  GslxdvParserCtx *handle = nullptr;
  int status = gslxdv1cpCreateParserCtx(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                        &handle);
  if (status != GSLXDV_OK) return finish(ctx, status);
  for (int i = 1; i < argc; ++i) {
    status = gslxdv1pParse(argv[i], GSLXDV_SOURCE_URI, handle, s0gslPrintLDAPEntry, nullptr);
    if (status != GSLXDV_OK) {
      printMessage(ctx, kMsgNotConverted);
      // The run stops at the first document that fails; the parser context
      // is released all the same so that nothing is left behind.
      (void)gslxdv1cCleanup(&handle);
      return finish(ctx, kExitFailure);
    }
  }
  (void)gslxdv1cCleanup(&handle);
  return finish(ctx, status);
}

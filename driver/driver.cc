// driver/driver.cc - the quillomat command's work: converts each DSML v1
// document named on the command line, in order, to LDIF on standard output,
// one record per entry as soon as the entry's closing tag has been read.
// Contracts in driver/driver.h.
#include "driver/driver.h"

#include <cstdio>

#include "core/memory.h"
#include "core/messages.h"
#include "core/output.h"
#include "dsml/reader.h"
#include "entry/ldif_record.h"

namespace quillomat {
namespace {

constexpr char kNoContext[] = "\nError initializing CORE context.\n";
constexpr char kUsage[] = "usage: quillomat file1 file2 ...\n\n";
constexpr char kRecordFormat[] = "%s\n";  // the newline ends the record with an empty line
constexpr char kLineFormat[] = "%s\n";

// What a message says when the catalogue does not have it: the run must
// never end on an empty line that explains nothing.
struct BuiltInMessage {
  uint32_t number;
  const char *text;
};
constexpr BuiltInMessage kBuiltInMessages[] = {
    {GSLUSGM_DOCUMENT_NOT_CONVERTED,
     "quillomat: a DSML document could not be converted to LDIF; the entries before the failure "
     "were written in full."},
    {GSLUSGM_STDOUT_INCOMPLETE,
     "quillomat: standard output could not be written; the LDIF written there is incomplete."},
};

// Set by the entry callback when printing a record failed because standard
// output could not be written: the run then reports lost output rather than
// a document that could not be converted.
bool g_output_lost = false;

[[nodiscard]] gsluctx *publishedContext() {
  if (gsluctx *ctx = sgsluugGetContext()) return ctx;
  return gsluizgcGetContext();
}

[[nodiscard]] const char *builtInText(uint32_t number) {
  for (const BuiltInMessage &m : kBuiltInMessages) {
    if (m.number == number) return m.text;
  }
  return "";
}

// Prints catalogue message `number` and a newline on standard error.
void printMessage(gsluctx *ctx, uint32_t number) {
  const char *text = nullptr;
  int severity = 0;
  if (gslusgmGetMessage(nullptr, number, &text, &severity) != GSLUSGM_OK || text == nullptr ||
      text[0] == '\0') {
    text = builtInText(number);
  }
  (void)gslufpFprintf(ctx, GSLUF_STREAM_STDERR, kLineFormat, GSLUF_ARG_STRING, text,
                      GSLUF_ARG_END);
}

// Every way out passes here: output that never reached standard output
// (a full disk, a closed pipe) turns any status into a failure, so a
// pipeline never takes a cut LDIF stream for a complete one.
[[nodiscard]] int finish(gsluctx *ctx, int status) {
  if (gslufcsCloseStdout(ctx) != GSLUF_OK) {
    printMessage(ctx, GSLUSGM_STDOUT_INCOMPLETE);
    return kExitFailure;
  }
  return status;
}

// A document failed: either standard output was lost while its entries were
// written, or the document itself could not be converted.
[[nodiscard]] int documentFailed(gsluctx *ctx) {
  if (g_output_lost) {
    (void)gslufcsCloseStdout(ctx);
    printMessage(ctx, GSLUSGM_STDOUT_INCOMPLETE);
    return kExitFailure;
  }
  printMessage(ctx, GSLUSGM_DOCUMENT_NOT_CONVERTED);
  return finish(ctx, kExitFailure);
}

}  // namespace

gsluctx *startContext() {
  if (gsluctx *ctx = publishedContext()) return ctx;
  std::fputs(kNoContext, stderr);
  // The reason goes on a line of its own, so the documented first line
  // stays as it is for whoever matches it.
  if (const char *why = gsluidStartupDiagnostic(); why != nullptr && why[0] != '\0') {
    std::fprintf(stderr, "quillomat: %s\n", why);
  }
  return nullptr;
}

int convertAll(gsluctx *ctx, int argc, char **argv) {
  g_output_lost = false;
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
      // The run stops at the first document that fails; the parser context
      // is released all the same so that nothing is left behind.
      (void)gslxdv1cCleanup(&handle);
      return documentFailed(ctx);
    }
  }
  (void)gslxdv1cCleanup(&handle);
  return finish(ctx, status);
}

}  // namespace quillomat

extern "C" int32_t s0gslPrintLDAPEntry(LDAPEntry *entry, void * /*unused*/) {
  gsluctx *ctx = quillomat::publishedContext();
  char *text = nullptr;
  const int status = gslclegalGetAsLDIF(nullptr, entry, &text);
  if (status != GSLCLEGAL_OK) return status;
  const int printed = gslufpFprintf(ctx, GSLUF_STREAM_STDOUT, quillomat::kRecordFormat,
                                    GSLUF_ARG_STRING, text, GSLUF_ARG_END);
  (void)gslumfFree(ctx, text);
  // Any failure on the way to standard output stops the run: going on
  // would leave a hole in the LDIF that nobody notices.
  if (printed == GSLUF_WRITE_FAILED) quillomat::g_output_lost = true;
  return printed;
}

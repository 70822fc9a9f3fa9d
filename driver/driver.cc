// driver/driver.cc - the quillomat command's work: reads the options, then
// converts each DSML document (v1 or v2) named on the command line, in
// order, to LDIF on standard output (or into a file that only a successful
// run writes), one record per entry or operation as soon as its closing
// tag has been read; says where and why a document failed, what a document
// read whole left out, and what of the LDIF written RFC 2849 does not allow.
// Contracts in driver/driver.h.
#include "driver/driver.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "core/convert.h"
#include "core/format.h"
#include "core/memory.h"
#include "core/output.h"
#include "driver/messages.h"
#include "driver/options.h"
#include "driver/output_file.h"
#include "driver/progress.h"
#include "dsml/reader.h"
#include "dsml/xml.h"
#include "entry/ldif_record.h"
#include "entry/names.h"
#include "util/strings.h"

#ifndef QUILLOMAT_VERSION
#define QUILLOMAT_VERSION "unknown"
#endif

namespace quillomat {
namespace {

constexpr char kNoContext[] = "\nError initializing CORE context.\n";
constexpr char kUsage[] = "usage: quillomat file1 file2 ...\n\n";
constexpr char kUsageLine[] = "usage: quillomat [options] file1 file2 ...\n";
constexpr char kRecordFormat[] = "%s\n";  // the newline ends the record with an empty line
constexpr char kRecordEnd[] = "\n";
constexpr char kLineFormat[] = "%s\n";

// Standard input is read through its path, in the same chunks as a file;
// messages call it by the name compilers use.
constexpr std::string_view kStdinArgument = "-";
constexpr char kStdinPath[] = "/dev/stdin";
constexpr char kStdinName[] = "<stdin>";

// The output's own language: what --strict writes, whatever the locale.
constexpr char kUtf8Language[] = "C";

}  // namespace

// One run of the command: the options, and what the entry callback (which
// is handed the run as its argument) needs and tells back.
struct Run {
  GslxdvParserCtx *reader = nullptr;  // which DSML version an entry is from
  Progress *progress = nullptr;
  int v1_writing = GSLCLE_LDIF_FORM_LIBRARY;  // gslclegalfGetAsLDIFForm's options
  int v2_writing = GSLCLE_LDIF_FORM_RFC2849 | GSLCLE_LDIF_SAFE_VALUES;
  bool whole_records = false;  // every record whole (the v2 ones always are)
  // What the LDIF written holds that RFC 2849 does not allow.
  uint64_t records_cut = 0;
  uint64_t values_cut = 0;
  uint64_t values_leading_lt = 0;
  // Set by the entry callback when printing a record failed because
  // standard output could not be written: the run then reports lost output
  // rather than a document that could not be converted.
  bool output_lost = false;
};

namespace {

[[nodiscard]] gsluctx *publishedContext() {
  if (gsluctx *ctx = sgsluugGetContext()) return ctx;
  return gsluizgcGetContext();
}

// Prints message `number` and a newline on standard error.
void printMessage(gsluctx *ctx, uint32_t number) {
  (void)gslufpFprintf(ctx, GSLUF_STREAM_STDERR, kLineFormat, GSLUF_ARG_STRING, messageText(number),
                      GSLUF_ARG_END);
}

// ---- Lines that say where and why ------------------------------------------------

// The text arguments of a diagnostic line, in the order the messages take
// them: the file, the line, the column, the detail.
struct Place {
  const char *file;
  char line[16];
  char column[16];
  char detail[4 * GSLXDV_DETAIL_SIZE];  // control characters escaped
};

// Copies text, writing control characters as C escapes, so that a detail
// (a forged attribute name, say) cannot break the one line it goes into.
void escapeInto(char (&out)[4 * GSLXDV_DETAIL_SIZE], const char *text) {
  std::size_t n = 0;
  for (const char *p = text; *p != '\0' && n + 5 < sizeof out; ++p) {
    const auto c = static_cast<unsigned char>(*p);
    if (c == '\n') {
      out[n++] = '\\';
      out[n++] = 'n';
    } else if (c == '\r') {
      out[n++] = '\\';
      out[n++] = 'r';
    } else if (c == '\t') {
      out[n++] = '\\';
      out[n++] = 't';
    } else if (c < 0x20 || c == 0x7f) {
      n += static_cast<std::size_t>(std::snprintf(out + n, sizeof out - n, "\\x%02x", c));
    } else {
      out[n++] = static_cast<char>(c);
    }
  }
  out[n] = '\0';
}

[[nodiscard]] Place placeOf(const char *file, const GslxdvDiagnostic &d) {
  Place p{};
  p.file = file;
  std::snprintf(p.line, sizeof p.line, "%u", d.line);
  std::snprintf(p.column, sizeof p.column, "%u", d.column);
  escapeInto(p.detail, d.detail);
  return p;
}

// The one table from a failure's cause to the message that words it, and
// whether that message names a place.
struct CauseMessage {
  int32_t cause;
  uint32_t message;
  bool placed;
};
constexpr CauseMessage kCauseMessages[] = {
    {GSLXDV_CAUSE_UNREADABLE, kMsgCannotOpen, false},
    {GSLXDV_CAUSE_UNSUPPORTED, kMsgUnsupportedSource, false},
    {GSLXDV_CAUSE_BAD_URI, kMsgBadUri, false},
    {GSLXDV_CAUSE_NOT_WELL_FORMED, kMsgNotWellFormed, true},
    {GSLXDV_CAUSE_ENTITY_REFUSED, kMsgEntityRefused, true},
    {GSLXDV_CAUSE_NO_DN, kMsgNoDn, true},
    {GSLXDV_CAUSE_NO_NAME, kMsgNoName, true},
    {GSLXDV_CAUSE_REFUSED_NAME, kMsgRefusedName, true},
    {GSLXDV_CAUSE_BAD_BASE64, kMsgBadBase64, true},
    {GSLXDV_CAUSE_NO_MEMORY, kMsgNoMemory, false},
    {GSLXDV_CAUSE_CALLBACK, kMsgEntryNotWritten, true},
    {GSLXDV_CAUSE_UNMATCHED, kMsgUnmatchedClose, true},
    {GSLXDV_CAUSE_TOO_DEEP, kMsgTooDeep, true},
    {GSLXDV_CAUSE_OTHER, kMsgNotRead, true},
    {GSLXDV_CAUSE_NO_NEWRDN, kMsgNoNewRdn, true},
    {GSLXDV_CAUSE_BAD_BOOLEAN, kMsgBadBoolean, true},
    {GSLXDV_CAUSE_BAD_CONTROL_TYPE, kMsgBadControlType, true},
    {GSLXDV_CAUSE_URI_VALUE, kMsgUriValue, true},
    {GSLXDV_CAUSE_BAD_OPERATION, kMsgBadOperation, true},
};

[[nodiscard]] CauseMessage causeMessage(const GslxdvDiagnostic &d) {
  // Entity expansion past the parser's limit comes with the parser's own
  // words, like any other error it finds.
  if (d.cause == GSLXDV_CAUSE_ENTITY_REFUSED && d.detail[0] != '\0') {
    return {d.cause, kMsgNotWellFormed, true};
  }
  for (const CauseMessage &c : kCauseMessages) {
    if (c.cause == d.cause) return c;
  }
  return {d.cause, kMsgNotRead, true};
}

// Prints the one line that says which document failed, where and why, and
// sends it to the error-level trace as well.
void printFailure(gsluctx *ctx, const char *file, const GslxdvDiagnostic &d) {
  const Place p = placeOf(file, d);
  const CauseMessage c = causeMessage(d);
  char cause[2048];
  const bool expanded =
      c.placed ? formatMessage(cause, sizeof cause, c.message, {p.file, p.line, p.column, p.detail})
               : formatMessage(cause, sizeof cause, c.message, {p.file, p.detail});
  if (!expanded) {
    // Neither text takes these arguments: the place and the detail alone.
    char built_in[sizeof cause];
    const int n =
        c.placed ? std::snprintf(built_in, sizeof built_in, "%s:%s:%s: %s", p.file, p.line,
                                 p.column, p.detail)
                 : std::snprintf(built_in, sizeof built_in, "%s: %s", p.file, p.detail);
    std::snprintf(cause, sizeof cause, "%s", n > 0 ? built_in : file);
  }
  char line[4096];
  (void)formatMessage(line, sizeof line, kMsgFailedLine, {cause});
  (void)gslufpFprintf(ctx, GSLUF_STREAM_STDERR, kLineFormat, GSLUF_ARG_STRING, line, GSLUF_ARG_END);
  (void)gslu::trace(ctx, GSLUTC_LEVEL_ERROR, "%s\n", static_cast<const char *>(line));
}

void printNotDsml(gsluctx *ctx, const char *file, const GslxdvDiagnostic &d) {
  const Place p = placeOf(file, d);
  printLine(ctx, kMsgNotDsml, {p.file, p.line, p.column, p.detail});
}

// ---- What a document, or the run, left out ---------------------------------------

// A list built for a warning line, cut (with ", ...") when it would not fit.
class ListText {
 public:
  void add(const char *item) {
    char escaped[4 * GSLXDV_DETAIL_SIZE];
    escapeInto(escaped, item);
    append(used_ != 0 ? ", " : "");
    append(escaped);
  }
  void addCount(uint64_t count, const char *name) {
    char item[128];
    std::snprintf(item, sizeof item, "%llu %s", static_cast<unsigned long long>(count), name);
    add(item);
  }
  void addMessage(uint32_t number, uint64_t count) {
    if (count == 0) return;
    char n[24], item[256];
    std::snprintf(n, sizeof n, "%llu", static_cast<unsigned long long>(count));
    if (formatMessage(item, sizeof item, number, {n})) add(item);
  }
  void addMore() { append(used_ != 0 ? ", ..." : "..."); }
  [[nodiscard]] const char *text() const { return text_; }
  [[nodiscard]] bool empty() const { return used_ == 0; }

 private:
  void append(const char *s) {
    const int n = std::snprintf(text_ + used_, sizeof text_ - used_, "%s", s);
    used_ = std::min(sizeof text_ - 1, used_ + static_cast<std::size_t>(n));
  }
  char text_[1024] = {};
  std::size_t used_ = 0;
};

[[nodiscard]] ListText listOf(const GslxdvTextList &list) {
  ListText out;
  for (uint32_t i = 0; i < list.count; ++i) out.add(list.texts[i]);
  if (list.more != 0) out.addMore();
  return out;
}

// One line per kind of thing the document's LDIF leaves out, in a fixed
// order, each only when there was something of that kind.
void printV2Warnings(gsluctx *ctx, const char *file, const GslxdvWarnings &w) {
  ListText skipped;
  for (int32_t kind = 0; kind < GSLXDV_SKIPPED_KINDS; ++kind) {
    if (w.skipped[kind] != 0) skipped.addCount(w.skipped[kind], gslxdvskSkippedKindName(kind));
  }
  if (!skipped.empty()) printLine(ctx, kMsgSkipped, {file, skipped.text()});
  char count[16];
  if (w.failed_searches != 0) {
    std::snprintf(count, sizeof count, "%u", w.failed_searches);
    printLine(ctx, kMsgFailedSearches, {file, count, listOf(w.result_codes).text()});
  }
  if (w.error_responses != 0) {
    std::snprintf(count, sizeof count, "%u", w.error_responses);
    if (w.error_types.count != 0) {
      printLine(ctx, kMsgErrorResponses, {file, count, listOf(w.error_types).text()});
    } else {
      printLine(ctx, kMsgUntypedErrorResponses, {file, count});
    }
  }
  if (w.dropped_controls != 0) {
    std::snprintf(count, sizeof count, "%u", w.dropped_controls);
    printLine(ctx, kMsgDroppedControls, {file, count});
  }
}

// What a document read whole has to say after it.
void printDocumentWarnings(gsluctx *ctx, GslxdvParserCtx *reader, const char *file) {
  GslxdvDiagnostic d{};
  (void)gslxdv1gdGetDiagnostic(reader, &d);
  if (d.cause == GSLXDV_CAUSE_NOT_DSML) printNotDsml(ctx, file, d);
  if (gslxdvgvGetVersion(reader) != GSLXDV_VERSION_2) return;
  GslxdvWarnings w{};
  (void)gslxdvgwGetWarnings(reader, &w);
  printV2Warnings(ctx, file, w);
}

// At the end of the run, one line when the LDIF written holds what RFC 2849
// does not allow: such output is what earlier versions wrote and stays the
// default, but its readers would not load it as it was meant.
void printRunWarning(gsluctx *ctx, const Run &run) {
  ListText what;
  what.addMessage(kMsgRecordsCut, run.records_cut);
  what.addMessage(kMsgValuesCut, run.values_cut);
  what.addMessage(kMsgValuesLeadingLt, run.values_leading_lt);
  if (!what.empty()) printLine(ctx, kMsgNotRfc2849, {what.text()});
}

// ---- The command line ------------------------------------------------------------

// A usage error: its message, then the usage line and where to read more.
[[nodiscard]] int usageError(gsluctx *ctx, const UsageError &e) {
  char option[3] = {'-', e.letter, '\0'};
  const char *argument = e.letter != 0 ? option : e.argument;
  printLine(ctx, e.message, {argument});
  (void)gslufpFprintf(ctx, GSLUF_STREAM_STDERR, kUsageLine, GSLUF_ARG_END);
  printLine(ctx, kMsgTryHelp, {});
  return kExitFailure;
}

void printHelp(gsluctx *ctx) {
  (void)gslufpFprintf(ctx, GSLUF_STREAM_STDOUT, kLineFormat, GSLUF_ARG_STRING,
                      messageText(kMsgHelp), GSLUF_ARG_END);
}

void printVersion(gsluctx *ctx) {
  char line[256];
  std::snprintf(line, sizeof line, "quillomat %s (%s, %s)", QUILLOMAT_VERSION, xmlParserVersion(),
                gslusvUnicodeVersion());
  (void)gslufpFprintf(ctx, GSLUF_STREAM_STDOUT, kLineFormat, GSLUF_ARG_STRING, line, GSLUF_ARG_END);
}

// ---- The way out -----------------------------------------------------------------

// Every way out passes here: output that never reached standard output
// (a full disk, a closed pipe) turns any status into a failure, so a
// pipeline never takes a cut LDIF stream for a complete one. A named output
// file takes the place of the one it replaces only now, and only when the
// run wrote everything it meant to; otherwise it is left as it was.
[[nodiscard]] int finish(gsluctx *ctx, const Options &options, OutputFile *file, int status,
                         bool output_wanted) {
  if (gslufcsCloseStdout(ctx) != GSLUF_OK) {
    printMessage(ctx, kMsgOutputLost);
    output_wanted = false;
    status = kExitFailure;
  }
  if (!file->isOpen()) return status;
  if (!output_wanted) {
    file->discard();
    printLine(ctx, kMsgOutputKept, {options.output});
    return status;
  }
  if (const int why = file->commit(); why != 0) {
    printLine(ctx, kMsgCannotWriteOutput, {options.output, std::strerror(why)});
    printLine(ctx, kMsgOutputKept, {options.output});
    return kExitFailure;
  }
  return status;
}

// How the entries are written, from the options.
void chooseWriting(const Options &options, Run *run) {
  const int wrap = options.no_wrap ? GSLCLE_LDIF_NO_WRAP : 0;
  const int strict = options.strict ? GSLCLE_LDIF_STRICT : 0;
  run->v1_writing = GSLCLE_LDIF_FORM_LIBRARY | wrap | strict;
  run->v2_writing = GSLCLE_LDIF_FORM_RFC2849 | GSLCLE_LDIF_SAFE_VALUES | wrap | strict;
  run->whole_records = options.whole_records || options.strict;
}

// Converts one document; false when it failed (after saying why).
[[nodiscard]] bool convertDocument(gsluctx *ctx, Run *run, const char *argument) {
  const bool is_stdin = std::string_view(argument) == kStdinArgument;
  const char *source = is_stdin ? kStdinPath : argument;
  const char *name = is_stdin ? kStdinName : argument;
  run->progress->startDocument(name);
  const int status =
      gslxdvpParse(source, GSLXDV_SOURCE_URI, run->reader, s0gslPrintLDAPEntry, run);
  run->progress->endDocument();
  GslxdvDiagnostic d{};
  (void)gslxdv1gdGetDiagnostic(run->reader, &d);
  if (status == GSLXDV_OK) {
    printDocumentWarnings(ctx, run->reader, name);
    return true;
  }
  if (run->output_lost) return false;  // said once, at the way out
  if (d.cause == GSLXDV_CAUSE_NONE || d.cause == GSLXDV_CAUSE_NOT_DSML) {
    printMessage(ctx, kMsgNotConverted);
  } else {
    printFailure(ctx, name, d);
  }
  return false;
}

// The documents, in order.
[[nodiscard]] int convertDocuments(gsluctx *ctx, const Options &options, OutputFile *file) {
  GslxdvParserCtx *handle = nullptr;
  const int created =
      gslxdv1cpCreateParserCtx(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &handle);
  if (created != GSLXDV_OK) return finish(ctx, options, file, created, false);
  Progress progress(ctx, options.progress);
  Run run;
  run.reader = handle;
  run.progress = &progress;
  chooseWriting(options, &run);
  if (options.strict) (void)gslxdvsnSetNameRule(handle, GSLCLE_NAMES_RFC4512);
  if (options.progress) (void)gslxdvspSetProgress(handle, Progress::hook, &progress);
  bool failed = false;
  for (uint32_t i = 0; i < options.document_count; ++i) {
    if (convertDocument(ctx, &run, options.documents[i])) continue;
    failed = true;
    // Lost output stops the run whatever the options: nothing more can be
    // written.
    if (run.output_lost || !options.keep_going) break;
  }
  (void)gslxdv1cCleanup(&handle);
  if (!run.output_lost) printRunWarning(ctx, run);
  // With --continue the documents that converted are the output the run
  // meant to write, though some failed.
  const bool output_wanted = !run.output_lost && (!failed || options.keep_going);
  return finish(ctx, options, file, failed ? kExitFailure : kExitSuccess, output_wanted);
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
  OutputFile file;
  const Options none;
  // Only a count of exactly 1 is a usage error; with none at all there is
  // simply nothing to convert.
  if (argc == 1) {
    (void)gslufpFprintf(ctx, GSLUF_STREAM_STDERR, kUsage, GSLUF_ARG_END);
    return finish(ctx, none, &file, kExitFailure, false);
  }
  if (argc == 0) return finish(ctx, none, &file, kExitSuccess, false);
  // Every argument is read before any document is, so that a usage error
  // converts nothing.
  Options options;
  UsageError error;
  readOptions(argc, argv, &options, &error);
  if (error.message != 0) return finish(ctx, none, &file, usageError(ctx, error), false);
  switch (options.request) {
    case Request::kHelp: printHelp(ctx); return finish(ctx, none, &file, kExitSuccess, false);
    case Request::kVersion:
      printVersion(ctx);
      return finish(ctx, none, &file, kExitSuccess, false);
    case Request::kConvert: break;
  }
  if (options.output != nullptr) {
    if (const int why = file.open(options.output); why != 0) {
      printLine(ctx, kMsgCannotWriteOutput, {options.output, std::strerror(why)});
      return finish(ctx, none, &file, kExitFailure, false);
    }
  }
  // LDIF that every reader loads is UTF-8, whatever the locale.
  if (options.strict) (void)gsluucbSetOutputLanguage(ctx, kUtf8Language);
  return convertDocuments(ctx, options, &file);
}

}  // namespace quillomat

extern "C" int32_t s0gslPrintLDAPEntry(LDAPEntry *entry, void *arg) {
  gsluctx *ctx = quillomat::publishedContext();
  auto *run = static_cast<quillomat::Run *>(arg);
  // A DSML v2 record is read by ldapmodify and its kind: its change records
  // take the RFC 2849 forms, and it is never cut into pieces.
  const bool v2 = run != nullptr && gslxdvgvGetVersion(run->reader) == GSLXDV_VERSION_2;
  const int writing = run == nullptr ? GSLCLE_LDIF_FORM_LIBRARY
                      : v2           ? run->v2_writing
                                     : run->v1_writing;
  char *text = nullptr;
  size_t length = 0;
  GslcleLdifNotes notes{};
  const int status = gslclegalfGetAsLDIFForm(nullptr, entry, writing, &text, &length, &notes);
  if (status != GSLCLEGAL_OK) return status;
  int printed = GSLUF_OK;
  if (v2 || (run != nullptr && run->whole_records)) {
    printed = gslufwWriteWhole(ctx, GSLUF_STREAM_STDOUT, text, length);
    if (printed == GSLUF_OK) {
      printed = gslufwWriteWhole(ctx, GSLUF_STREAM_STDOUT, quillomat::kRecordEnd, 1);
    }
  } else {
    printed = gslufpFprintf(ctx, GSLUF_STREAM_STDOUT, quillomat::kRecordFormat, GSLUF_ARG_STRING,
                            text, GSLUF_ARG_END);
    // The record and its newline, in pieces once longer than one.
    if (run != nullptr && length + 1 > GSLUF_PIECE_BYTES) ++run->records_cut;
  }
  (void)gslumfFree(ctx, text);
  if (run != nullptr) {
    run->values_cut += notes.values_cut;
    run->values_leading_lt += notes.values_leading_lt;
    run->progress->countRecord();
    // Any failure on the way to standard output stops the run: going on
    // would leave a hole in the LDIF that nobody notices.
    if (printed == GSLUF_WRITE_FAILED) run->output_lost = true;
  }
  return printed;
}

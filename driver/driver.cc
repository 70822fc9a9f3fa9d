// driver/driver.cc - the quillomat command's work: reads the options, then
// converts each DSML document (v1 or v2) named on the command line, in
// order, to LDIF on standard output, one record per entry or operation as
// soon as its closing tag has been read, and says where and why a document
// failed, and what a document read whole left out.
// Contracts in driver/driver.h.
#include "driver/driver.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "core/format.h"
#include "core/memory.h"
#include "core/messages.h"
#include "core/output.h"
#include "dsml/reader.h"
#include "dsml/xml.h"
#include "entry/ldif_record.h"
#include "util/strings.h"

#ifndef QUILLOMAT_VERSION
#define QUILLOMAT_VERSION "unknown"
#endif

namespace quillomat {
namespace {

constexpr char kNoContext[] = "\nError initializing CORE context.\n";
constexpr char kUsage[] = "usage: quillomat file1 file2 ...\n\n";
constexpr char kRecordFormat[] = "%s\n";  // the newline ends the record with an empty line
constexpr char kRecordEnd[] = "\n";
constexpr char kLineFormat[] = "%s\n";

// Arguments with a meaning of their own.
constexpr std::string_view kStdinArgument = "-";
constexpr std::string_view kEndOfOptions = "--";
constexpr std::string_view kHelp = "--help";
constexpr std::string_view kVersion = "--version";
constexpr std::string_view kWholeRecords = "--whole-records";
constexpr std::string_view kWholeRecordsShort = "-w";

// Standard input is read through its path, in the same chunks as a file;
// messages call it by the name compilers use.
constexpr char kStdinPath[] = "/dev/stdin";
constexpr char kStdinName[] = "<stdin>";

// Catalogue messages of the command (see mesg/ldap.msg).
enum Message : uint32_t {
  kMsgNotConverted = GSLUSGM_DOCUMENT_NOT_CONVERTED,
  kMsgOutputLost = GSLUSGM_STDOUT_INCOMPLETE,
  kMsgFailedLine = 2103,
  kMsgCannotOpen = 2104,
  kMsgUnsupportedSource = 2105,
  kMsgBadUri = 2106,
  kMsgNotWellFormed = 2107,
  kMsgEntityRefused = 2108,
  kMsgNoDn = 2109,
  kMsgNoName = 2110,
  kMsgRefusedName = 2111,
  kMsgBadBase64 = 2112,
  kMsgNoMemory = 2113,
  kMsgEntryNotWritten = 2114,
  kMsgUnmatchedClose = 2115,
  kMsgNotDsml = 2116,
  kMsgUnknownOption = 2117,
  kMsgStdinTwice = 2118,
  kMsgNoDocument = 2119,
  kMsgHelp = 2120,
  kMsgTooDeep = 2121,
  kMsgNotRead = 2122,
  kMsgNoNewRdn = 2123,
  kMsgBadBoolean = 2124,
  kMsgBadControlType = 2125,
  kMsgUriValue = 2126,
  kMsgBadOperation = 2127,
  kMsgSkipped = 2128,
  kMsgFailedSearches = 2129,
  kMsgErrorResponses = 2130,
  kMsgDroppedControls = 2131,
  kMsgUntypedErrorResponses = 2132,
};

// What a message says when the catalogue does not have it: the run must
// never end on an empty line that explains nothing. The causes fall back to
// their arguments alone.
struct BuiltInMessage {
  uint32_t number;
  const char *text;
};
constexpr BuiltInMessage kBuiltInMessages[] = {
    {kMsgNotConverted,
     "quillomat: a DSML document could not be converted to LDIF; the entries before the failure "
     "were written in full."},
    {kMsgOutputLost,
     "quillomat: standard output could not be written; the LDIF written there is incomplete."},
    {kMsgFailedLine,
     "quillomat: %s; the document could not be converted to LDIF (the entries before it were "
     "written in full)"},
    {kMsgNotDsml, "quillomat: %s:%s:%s: warning: the root element is %s, not dsml"},
    {kMsgSkipped, "quillomat: %s: warning: skipped: %s"},
    {kMsgFailedSearches, "quillomat: %s: warning: %s searchResultDone with result codes %s"},
    {kMsgErrorResponses, "quillomat: %s: warning: %s errorResponse (%s)"},
    {kMsgDroppedControls, "quillomat: %s: warning: the controls of %s searchResultEntry dropped"},
    {kMsgUntypedErrorResponses, "quillomat: %s: warning: %s errorResponse"},
    {kMsgUnknownOption, "quillomat: unknown option %s"},
    {kMsgStdinTwice, "quillomat: standard input (-) can be named only once"},
    {kMsgNoDocument, "quillomat: no document named"},
    {kMsgHelp, "usage: quillomat [options] file1 file2 ..."},
};
constexpr char kBuiltInPlaced[] = "%s:%s:%s: %s";  // file, line, column, detail
constexpr char kBuiltInPlaceless[] = "%s: %s";     // file, detail

// One run of the command: what the entry callback is handed (as its
// argument) and what it tells back.
struct Run {
  GslxdvParserCtx *reader = nullptr;  // which DSML version an entry is from
  bool whole_records = false;         // --whole-records
  // Set by the entry callback when printing a record failed because
  // standard output could not be written: the run then reports lost output
  // rather than a document that could not be converted.
  bool output_lost = false;
};

[[nodiscard]] gsluctx *publishedContext() {
  if (gsluctx *ctx = sgsluugGetContext()) return ctx;
  return gsluizgcGetContext();
}

[[nodiscard]] const char *builtInText(uint32_t number) {
  for (const BuiltInMessage &m : kBuiltInMessages) {
    if (m.number == number) return m.text;
  }
  return nullptr;
}

// The catalogue's text of message `number`, else the built-in one, else
// `fallback` (which may be null). Valid until the next look-up.
[[nodiscard]] const char *messageText(uint32_t number, const char *fallback = "") {
  const char *text = nullptr;
  int severity = 0;
  if (gslusgmGetMessage(nullptr, number, &text, &severity) == GSLUSGM_OK && text != nullptr &&
      text[0] != '\0') {
    return text;
  }
  const char *built_in = builtInText(number);
  return built_in != nullptr ? built_in : fallback;
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

// The message that words a cause, and whether it names a place.
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

// Expands format with the place's texts into out; false when it does not
// fit or the format does not match them.
[[nodiscard]] bool expand(char *out, std::size_t size, const char *format, const Place &p,
                          bool placed) {
  const gsluArg placed_args[] = {gslu::typedArg(p.file), gslu::typedArg(p.line),
                                 gslu::typedArg(p.column), gslu::typedArg(p.detail)};
  const gsluArg placeless_args[] = {gslu::typedArg(p.file), gslu::typedArg(p.detail)};
  const gsluArg *args = placed ? placed_args : placeless_args;
  const uint32_t count = placed ? 4 : 2;
  return gslu::formatTyped(out, size, format, args, count).status == gslu::FormatStatus::kOk;
}

// Prints the one line that says which document failed, where and why, and
// sends it to the error-level trace as well.
void printFailure(gsluctx *ctx, const char *file, const GslxdvDiagnostic &d) {
  const Place p = placeOf(file, d);
  const CauseMessage c = causeMessage(d);
  char cause[2048];
  const char *format = messageText(c.message, nullptr);
  if ((format == nullptr || !expand(cause, sizeof cause, format, p, c.placed)) &&
      !expand(cause, sizeof cause, c.placed ? kBuiltInPlaced : kBuiltInPlaceless, p, c.placed)) {
    std::snprintf(cause, sizeof cause, "%s", file);
  }
  char line[4096];
  const gsluArg arg = gslu::typedArg(static_cast<const char *>(cause));
  if (gslu::formatTyped(line, sizeof line, messageText(kMsgFailedLine), &arg, 1).status !=
      gslu::FormatStatus::kOk) {
    (void)gslu::formatTyped(line, sizeof line, builtInText(kMsgFailedLine), &arg, 1);
  }
  (void)gslufpFprintf(ctx, GSLUF_STREAM_STDERR, kLineFormat, GSLUF_ARG_STRING, line, GSLUF_ARG_END);
  (void)gslu::trace(ctx, GSLUTC_LEVEL_ERROR, "%s\n", static_cast<const char *>(line));
}

void printWarning(gsluctx *ctx, const char *file, const GslxdvDiagnostic &d) {
  const Place p = placeOf(file, d);
  char line[4096];
  if (!expand(line, sizeof line, messageText(kMsgNotDsml), p, true)) {
    (void)expand(line, sizeof line, builtInText(kMsgNotDsml), p, true);
  }
  (void)gslufpFprintf(ctx, GSLUF_STREAM_STDERR, kLineFormat, GSLUF_ARG_STRING, line, GSLUF_ARG_END);
}

// ---- What a DSML v2 document left out ---------------------------------------------

// A list built for a warning line, cut (with ", ...") when it would not fit.
class ListText {
 public:
  void add(const char *item) {
    char escaped[4 * GSLXDV_DETAIL_SIZE];
    escapeInto(escaped, item);
    append(used_ != 0 ? ", " : "");
    append(escaped);
  }
  void addCount(uint32_t count, const char *name) {
    char item[128];
    std::snprintf(item, sizeof item, "%u %s", count, name);
    add(item);
  }
  void addMore() { append(used_ != 0 ? ", ..." : "..."); }
  [[nodiscard]] const char *text() const { return text_; }

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

// Prints message `number` with the texts as its arguments, as one line on
// standard error; the built-in text when the catalogue's does not take
// them.
void printLine(gsluctx *ctx, uint32_t number, std::initializer_list<const char *> texts) {
  gsluArg args[4];
  uint32_t count = 0;
  for (const char *t : texts) args[count++] = gslu::typedArg(t);
  char line[4096];
  const char *built_in = builtInText(number);
  if (gslu::formatTyped(line, sizeof line, messageText(number), args, count).status !=
          gslu::FormatStatus::kOk &&
      (built_in == nullptr || gslu::formatTyped(line, sizeof line, built_in, args, count).status !=
                                  gslu::FormatStatus::kOk)) {
    return;
  }
  (void)gslufpFprintf(ctx, GSLUF_STREAM_STDERR, kLineFormat, GSLUF_ARG_STRING, line, GSLUF_ARG_END);
}

// One line per kind of thing the document's LDIF leaves out, in a fixed
// order, each only when there was something of that kind.
void printV2Warnings(gsluctx *ctx, const char *file, const GslxdvWarnings &w) {
  ListText skipped;
  for (int32_t kind = 0; kind < GSLXDV_SKIPPED_KINDS; ++kind) {
    if (w.skipped[kind] != 0) skipped.addCount(w.skipped[kind], gslxdvskSkippedKindName(kind));
  }
  if (skipped.text()[0] != '\0') printLine(ctx, kMsgSkipped, {file, skipped.text()});
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
  if (d.cause == GSLXDV_CAUSE_NOT_DSML) printWarning(ctx, file, d);
  if (gslxdvgvGetVersion(reader) != GSLXDV_VERSION_2) return;
  GslxdvWarnings w{};
  (void)gslxdvgwGetWarnings(reader, &w);
  printV2Warnings(ctx, file, w);
}

// ---- The way out -----------------------------------------------------------------

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

// A document failed: either standard output was lost while its entries were
// written, or the document itself could not be converted.
[[nodiscard]] int documentFailed(gsluctx *ctx, const Run &run, const char *file,
                                 const GslxdvDiagnostic &d) {
  if (run.output_lost) {
    (void)gslufcsCloseStdout(ctx);
    printMessage(ctx, kMsgOutputLost);
    return kExitFailure;
  }
  if (d.cause == GSLXDV_CAUSE_NONE || d.cause == GSLXDV_CAUSE_NOT_DSML) {
    printMessage(ctx, kMsgNotConverted);
  } else {
    printFailure(ctx, file, d);
  }
  return finish(ctx, kExitFailure);
}

// ---- The command line ------------------------------------------------------------

// What the arguments ask for, once they are all known to be valid.
enum class Request { kConvert, kHelp, kVersion };

[[nodiscard]] bool isOption(std::string_view arg) { return arg.size() > 1 && arg[0] == '-'; }

// A usage error: its message, then the usage line.
[[nodiscard]] int usageError(gsluctx *ctx, uint32_t message, const char *argument) {
  const char *text = messageText(message);
  (void)gslufpFprintf(ctx, GSLUF_STREAM_STDERR, text, GSLUF_ARG_STRING, argument, GSLUF_ARG_END);
  (void)gslufpFprintf(ctx, GSLUF_STREAM_STDERR, kRecordEnd, GSLUF_ARG_END);
  (void)gslufpFprintf(ctx, GSLUF_STREAM_STDERR, kUsage, GSLUF_ARG_END);
  return finish(ctx, kExitFailure);
}

// Reads every argument before any document is read, so that a usage error
// converts nothing. Returns -1 to go on with *request, or the exit status.
[[nodiscard]] int readArguments(gsluctx *ctx, int argc, char **argv, Request *request, Run *run) {
  *request = Request::kConvert;
  bool options_ended = false;
  bool stdin_named = false;
  int documents = 0;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (!options_ended && arg == kEndOfOptions) {
      options_ended = true;
    } else if (arg == kStdinArgument) {
      if (stdin_named) return usageError(ctx, kMsgStdinTwice, argv[i]);
      stdin_named = true;
      ++documents;
    } else if (options_ended || !isOption(arg)) {
      ++documents;
    } else if (arg == kHelp) {
      *request = Request::kHelp;
    } else if (arg == kVersion) {
      if (*request != Request::kHelp) *request = Request::kVersion;
    } else if (arg == kWholeRecords || arg == kWholeRecordsShort) {
      run->whole_records = true;
    } else {
      return usageError(ctx, kMsgUnknownOption, argv[i]);
    }
  }
  if (*request == Request::kConvert && documents == 0) return usageError(ctx, kMsgNoDocument, "");
  return -1;
}

[[nodiscard]] int printHelp(gsluctx *ctx) {
  (void)gslufpFprintf(ctx, GSLUF_STREAM_STDOUT, kLineFormat, GSLUF_ARG_STRING,
                      messageText(kMsgHelp), GSLUF_ARG_END);
  return finish(ctx, kExitSuccess);
}

[[nodiscard]] int printVersion(gsluctx *ctx) {
  char line[256];
  std::snprintf(line, sizeof line, "quillomat %s (%s, %s)", QUILLOMAT_VERSION, xmlParserVersion(),
                gslusvUnicodeVersion());
  (void)gslufpFprintf(ctx, GSLUF_STREAM_STDOUT, kLineFormat, GSLUF_ARG_STRING, line, GSLUF_ARG_END);
  return finish(ctx, kExitSuccess);
}

// The documents, in order, skipping the options.
[[nodiscard]] int convertDocuments(gsluctx *ctx, int argc, char **argv, Run *run) {
  GslxdvParserCtx *handle = nullptr;
  const int created =
      gslxdv1cpCreateParserCtx(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &handle);
  if (created != GSLXDV_OK) return finish(ctx, created);
  run->reader = handle;
  bool options_ended = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (!options_ended && arg == kEndOfOptions) {
      options_ended = true;
      continue;
    }
    const bool is_stdin = arg == kStdinArgument;
    if (!is_stdin && !options_ended && isOption(arg)) continue;
    const char *source = is_stdin ? kStdinPath : argv[i];
    const char *name = is_stdin ? kStdinName : argv[i];
    const int status = gslxdvpParse(source, GSLXDV_SOURCE_URI, handle, s0gslPrintLDAPEntry, run);
    if (status != GSLXDV_OK) {
      GslxdvDiagnostic d{};
      (void)gslxdv1gdGetDiagnostic(handle, &d);
      // The run stops at the first document that fails; the parser context
      // is released all the same so that nothing is left behind.
      (void)gslxdv1cCleanup(&handle);
      return documentFailed(ctx, *run, name, d);
    }
    printDocumentWarnings(ctx, handle, name);
  }
  (void)gslxdv1cCleanup(&handle);
  return finish(ctx, kExitSuccess);
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
  Run run;
  // Only a count of exactly 1 is a usage error; with none at all there is
  // simply nothing to convert.
  if (argc == 1) {
    (void)gslufpFprintf(ctx, GSLUF_STREAM_STDERR, kUsage, GSLUF_ARG_END);
    return finish(ctx, kExitFailure);
  }
  if (argc == 0) return finish(ctx, kExitSuccess);
  Request request = Request::kConvert;
  if (const int status = readArguments(ctx, argc, argv, &request, &run); status >= 0) {
    return status;
  }
  switch (request) {
    case Request::kHelp: return printHelp(ctx);
    case Request::kVersion: return printVersion(ctx);
    case Request::kConvert: break;
  }
  return convertDocuments(ctx, argc, argv, &run);
}

}  // namespace quillomat

extern "C" int32_t s0gslPrintLDAPEntry(LDAPEntry *entry, void *arg) {
  gsluctx *ctx = quillomat::publishedContext();
  auto *run = static_cast<quillomat::Run *>(arg);
  // A DSML v2 record is read by ldapmodify and its kind: its change records
  // take the RFC 2849 forms, and it is never cut into pieces.
  const bool v2 = run != nullptr && gslxdvgvGetVersion(run->reader) == GSLXDV_VERSION_2;
  char *text = nullptr;
  size_t length = 0;
  const int status = gslclegalfGetAsLDIFForm(
      nullptr, entry, v2 ? GSLCLE_LDIF_FORM_RFC2849 : GSLCLE_LDIF_FORM_LIBRARY, &text, &length,
      nullptr);
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
  }
  (void)gslumfFree(ctx, text);
  // Any failure on the way to standard output stops the run: going on
  // would leave a hole in the LDIF that nobody notices.
  if (printed == GSLUF_WRITE_FAILED && run != nullptr) run->output_lost = true;
  return printed;
}

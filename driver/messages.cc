// driver/messages.cc - the command's texts. Contracts in driver/messages.h.
#include "driver/messages.h"

#include "core/format.h"
#include "core/output.h"

namespace quillomat {
namespace {

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
    {2117, "quillomat: unknown option %s"},
    {2118, "quillomat: standard input (-) can be named only once"},
    {2119, "quillomat: no document named"},
    {2133, "quillomat: option %s needs a value"},
    {2134, "quillomat: option %s takes no value"},
    {kMsgHelp, "usage: quillomat [options] file1 file2 ..."},
    {kMsgTryHelp, "Try 'quillomat --help' for more information."},
    {kMsgOutputKept, "quillomat: %s is left as it was"},
    {kMsgCannotWriteOutput, "quillomat: %s: cannot be written: %s"},
    {kMsgProgressOf, "quillomat: %s: %s%% of %s MB, %s records, %s MB/s"},
    {kMsgProgress, "quillomat: %s: %s MB, %s records, %s MB/s"},
    {kMsgProgressDone, "quillomat: %s: %s MB, %s records in %s s (%s MB/s)"},
    {kMsgNotRfc2849, "quillomat: warning: the LDIF written is not valid RFC 2849 (%s)"},
    {kMsgRecordsCut, "records cut into pieces: %s"},
    {kMsgValuesCut, "values cut at a NUL byte: %s"},
    {kMsgValuesLeadingLt, "plain values starting with '<': %s"},
};

}  // namespace

const char *builtInText(uint32_t number) {
  for (const BuiltInMessage &m : kBuiltInMessages) {
    if (m.number == number) return m.text;
  }
  return nullptr;
}

const char *messageText(uint32_t number, const char *fallback) {
  const char *text = nullptr;
  int severity = 0;
  if (gslusgmGetMessage(nullptr, number, &text, &severity) == GSLUSGM_OK && text != nullptr &&
      text[0] != '\0') {
    return text;
  }
  const char *built_in = builtInText(number);
  return built_in != nullptr ? built_in : fallback;
}

bool formatMessage(char *out, std::size_t size, uint32_t number,
                   std::initializer_list<const char *> texts) {
  gsluArg args[GSLUF_MAX_TYPED_ARGS];
  uint32_t count = 0;
  for (const char *t : texts) {
    if (count < GSLUF_MAX_TYPED_ARGS) args[count++] = gslu::typedArg(t);
  }
  const char *catalogue = messageText(number, nullptr);
  const char *built_in = builtInText(number);
  for (const char *format : {catalogue, built_in}) {
    if (format != nullptr &&
        gslu::formatTyped(out, size, format, args, count).status == gslu::FormatStatus::kOk) {
      return true;
    }
  }
  if (size != 0) out[0] = '\0';
  return false;
}

void printLine(gsluctx *ctx, uint32_t number, std::initializer_list<const char *> texts) {
  char line[4096];
  if (!formatMessage(line, sizeof line, number, texts)) return;
  (void)gslufpFprintf(ctx, GSLUF_STREAM_STDERR, "%s\n", GSLUF_ARG_STRING, line, GSLUF_ARG_END);
}

}  // namespace quillomat

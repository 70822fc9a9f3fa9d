// driver/messages.h - the command's texts: the catalogue numbers it prints,
// and their look-up and expansion with a built-in text where the catalogue
// has none (a failure is never reported by an empty line). Internal (C++
// only).
#ifndef QUILLOMAT_DRIVER_MESSAGES_H
#define QUILLOMAT_DRIVER_MESSAGES_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "core/context.h"
#include "core/messages.h"

namespace quillomat {

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
  kMsgTryHelp = 2135,
  kMsgOutputKept = 2136,
  kMsgCannotWriteOutput = 2137,
  kMsgProgressOf = 2138,
  kMsgProgress = 2139,
  kMsgProgressDone = 2140,
  kMsgNotRfc2849 = 2141,
  kMsgRecordsCut = 2142,
  kMsgValuesCut = 2143,
  kMsgValuesLeadingLt = 2144,
};

// The catalogue's text of message `number`, else its built-in text, else
// `fallback` (which may be null). Valid until the next look-up.
[[nodiscard]] const char *messageText(uint32_t number, const char *fallback = "");

// The built-in text of message `number`, or null.
[[nodiscard]] const char *builtInText(uint32_t number);

// Expands message `number` with texts as its arguments into out (size
// bytes): the catalogue's text, else the built-in one when the catalogue's
// does not take these arguments. false (out then "") when neither does.
bool formatMessage(char *out, std::size_t size, uint32_t number,
                   std::initializer_list<const char *> texts);

// formatMessage, then the line and a newline on standard error.
void printLine(gsluctx *ctx, uint32_t number, std::initializer_list<const char *> texts);

}  // namespace quillomat

#endif  // QUILLOMAT_DRIVER_MESSAGES_H

// core/msgfile.h - the message-file service: numbered message catalogues of
// one facility, looked up by number. Internal (C++ only).
//
// Catalogue format (UTF-8 text, one file per facility, "<facility>.msg"):
//   # a comment line; blank lines are ignored
//   2101  text of message 2101
// A message line is a decimal number (1 to 4294967295), at least one space
// or tab, then the text up to the end of the line. In the text "\n", "\t"
// and "\\" stand for a newline, a tab and a backslash; any other backslash
// is malformed. Every other line, a number given twice, or a text longer
// than the handle's buffer makes the whole catalogue malformed: opening
// fails and names the line.
#ifndef QUILLOMAT_CORE_MSGFILE_H
#define QUILLOMAT_CORE_MSGFILE_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "core/lang.h"

namespace gslu {

struct MessageCatalog;  // the parsed file

// One open facility in one language. After a lookup, `status` holds the
// status word of the last lookup and `error` is non-zero when it failed.
struct MessageHandle {
  MessageCatalog *catalog;
  char *buffer;
  std::size_t buffer_size;
  uint32_t status;
  uint32_t error;
  uint32_t bound;
};

// Message numbers with a meaning to the core.
enum MessageNumber : uint32_t {
  kMsgDocumentNotConverted = 2101,
  kMsgUnknownNumber = 9999,
};

// Opens <dir>/<facility>.msg for lang: its texts are delivered in lang's
// character set (converted from UTF-8 when lang is not UTF-8). Returns false
// on any error, with a one-line reason in *why (file and line for a
// malformed catalogue).
[[nodiscard]] bool msgOpen(MessageHandle *h, const char *dir, const char *facility,
                           const Language &lang, std::string *why);

// The runtime's default message directory: $VESTRA_HOME/<product>/mesg when
// VESTRA_HOME is set, else ../share/quillomat/mesg next to the directory of
// the running executable; when that directory does not exist and this code
// runs from libquillomat.so, the catalogue directory of the installation
// that library belongs to (share/quillomat/mesg). Empty when none can be
// found.
[[nodiscard]] std::string msgDefaultDirectory(const char *product);

// Gives the handle its text buffer, then binds it for lookups.
[[nodiscard]] bool msgSetBuffer(MessageHandle *h, char *buffer, std::size_t size);
[[nodiscard]] bool msgBind(MessageHandle *h);

// Copies message `number` into the handle's buffer and returns the buffer;
// sets h->error when the number is unknown (the buffer then holds "").
const char *msgLookup(MessageHandle *h, uint32_t number);

// Releases the catalogue; the handle is all zero afterwards except buffer.
void msgClose(MessageHandle *h);

}  // namespace gslu

#endif  // QUILLOMAT_CORE_MSGFILE_H

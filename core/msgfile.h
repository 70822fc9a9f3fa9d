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
// than 2047 bytes makes the whole catalogue malformed: opening fails and
// names the line.
//
// Every block comes from the given core context's allocator, and nothing
// here throws: running out of memory is a failure like any other, reported
// through `why`.
#ifndef QUILLOMAT_CORE_MSGFILE_H
#define QUILLOMAT_CORE_MSGFILE_H

#include <cstddef>
#include <cstdint>

#include "core/context.h"
#include "core/lang.h"

namespace gslu {

struct MessageCatalog;  // the parsed file, shared by the handles opened on it

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

// Why opening failed: one line naming the file (and the line, for a
// malformed catalogue).
inline constexpr std::size_t kMsgWhySize = 1024;
struct MsgWhy {
  char text[kMsgWhySize];
};

// Opens <dir>/<facility>.msg, reading the file once, with blocks from ctx.
// Its texts are delivered in lang's character set (converted from UTF-8
// when lang is not UTF-8). False on any error, with the reason in *why.
[[nodiscard]] bool msgOpen(MessageHandle *h, gsluctx *ctx, const char *dir, const char *facility,
                           const Language &lang, MsgWhy *why);

// Opens h on the catalogue that `source` holds, for lang, without reading
// the file again: a UTF-8 lang shares source's catalogue, any other gets a
// converted copy. False with *why when a text cannot be converted or memory
// runs out.
[[nodiscard]] bool msgOpenFor(MessageHandle *h, const MessageHandle &source, const Language &lang,
                              MsgWhy *why);

// The runtime's default message directory, into out (size bytes):
// $VESTRA_HOME/<product>/mesg when VESTRA_HOME is set, else
// ../share/quillomat/mesg next to the directory of the running executable;
// when that directory does not exist and this code runs from
// libquillomat.so, the catalogue directory of the installation the library
// belongs to. False when none can be found or the path does not fit.
[[nodiscard]] bool msgDefaultDirectory(const char *product, char *out, std::size_t size);

// Gives the handle its text buffer, then binds it for lookups.
[[nodiscard]] bool msgSetBuffer(MessageHandle *h, char *buffer, std::size_t size);
[[nodiscard]] bool msgBind(MessageHandle *h);

// Copies message `number` into the handle's buffer and returns the buffer;
// sets h->error when the number is unknown (the buffer then holds "").
const char *msgLookup(MessageHandle *h, uint32_t number);

// Releases the handle's hold on its catalogue; the handle is all zero
// afterwards except buffer.
void msgClose(MessageHandle *h);

}  // namespace gslu

#endif  // QUILLOMAT_CORE_MSGFILE_H

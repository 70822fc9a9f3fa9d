// driver/progress.h - what -p shows on standard error while documents are
// converted: the document, how much of it has been read (in percent when
// its size is known), the records written and the speed. On a terminal the
// line is redrawn in place at most four times a second; otherwise a line
// is written every ten seconds. Each document ends with a final line.
// Internal (C++ only).
//
// The reader calls chunk() once per chunk it reads (256 KiB), so the clock
// is read once per chunk and a record costs one increment: the display
// costs the conversion nothing measurable.
#ifndef QUILLOMAT_DRIVER_PROGRESS_H
#define QUILLOMAT_DRIVER_PROGRESS_H

#include <cstdint>

#include "core/context.h"

namespace quillomat {

class Progress {
 public:
  // enabled false: every call does nothing.
  Progress(gsluctx *ctx, bool enabled);

  void startDocument(const char *name);
  // The reader's progress hook: read bytes of size (0: unknown) so far.
  void chunk(uint64_t read, uint64_t size);
  void countRecord() { ++records_; }
  // The final line of the document.
  void endDocument();

  // The reader's hook, with the Progress as its argument.
  static void hook(void *progress, uint64_t read, uint64_t size);

 private:
  void draw(bool final);

  gsluctx *ctx_;
  bool enabled_;
  bool terminal_;          // standard error is a terminal: redraw in place
  int64_t interval_ns_;    // between two lines
  const char *name_ = "";  // the document
  int64_t started_ns_ = 0;
  int64_t drawn_ns_ = 0;   // when the last line was written
  uint64_t read_ = 0;
  uint64_t size_ = 0;
  uint64_t records_ = 0;
};

}  // namespace quillomat

#endif  // QUILLOMAT_DRIVER_PROGRESS_H

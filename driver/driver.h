// driver/driver.h - the quillomat command below main(): the core context's
// start, the per-file loop, the entry callback and the exit status, so that
// they can be driven and checked inside a test process as well as by main().
// Internal (C++ only).
//
// Exit status: 0 when every document was converted and all output reached
// standard output; 1 for a usage error, a document that could not be
// converted (message 2101; the entries before the failure stay written),
// output that could not be written (message 2102: the run stops at the first
// failed write), or no core context; the reader's own status when its
// parser context cannot be created.
#ifndef QUILLOMAT_DRIVER_DRIVER_H
#define QUILLOMAT_DRIVER_DRIVER_H

#include <cstdint>

#include "core/context.h"
#include "entry/entry.h"

// The reader's entry callback: prints the entry as one LDIF record and an
// empty line on standard output. arg is the run the driver hands the reader
// (its options, and the reader that tells an entry's DSML version: the
// records of DSML v2 are written whole, with the change records in their
// RFC 2849 forms), or null: a DSML v1 record printed as by default. 0 when
// the record was printed; otherwise the status of the step that failed
// (rendering, or printing: then nothing more can be written), which stops
// the document. The entry is never destroyed here.
extern "C" int32_t s0gslPrintLDAPEntry(LDAPEntry *entry, void *arg);

namespace quillomat {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;

// The process-wide core context, created when there is none yet. When it
// cannot be had, writes "\nError initializing CORE context.\n" and the
// reason start-up gave (the catalogue's file and line, say) on the process's
// standard error and returns null.
[[nodiscard]] gsluctx *startContext();

// Converts the documents named by argv[1] to argv[argc - 1] in order and
// returns the exit status. Closes standard output on every way out (see
// gslufcsCloseStdout), so it runs once per process.
[[nodiscard]] int convertAll(gsluctx *ctx, int argc, char **argv);

}  // namespace quillomat

#endif  // QUILLOMAT_DRIVER_DRIVER_H

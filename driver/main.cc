// driver/main.cc - the quillomat command: `quillomat file1 file2 ...`
// converts each DSML v1 document to LDIF on standard output. The work is in
// driver/driver.cc; exit statuses are listed in driver/driver.h.
#include "core/pool.h"
#include "driver/driver.h"

int main(int argc, char **argv) {
  gsluctx *ctx = quillomat::startContext();
  if (ctx == nullptr) return quillomat::kExitFailure;
#if !defined(__SANITIZE_ADDRESS__)
  // The conversion runs on this thread alone, so the small-block pool may
  // serve it; a sanitized build keeps the C library's allocator, whose
  // every block the sanitizer watches.
  (void)gslu::poolInstall(ctx);
#endif
  return quillomat::convertAll(ctx, argc, argv);
}

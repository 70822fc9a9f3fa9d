// core/password_schemes.cc - the password-scheme table of the core context,
// built as start-up's last step. This object stands above util (it needs the
// string hash table) and registers the step with the core.
#include "core/password_schemes.h"

#include "util/hash.h"

namespace gslu {

int buildPasswordSchemes(gsluctx *ctx) {
  constexpr int kFailed = GSLU_INIT_SERVICE_FAILED;
  if (gsluhhClntcCreateStrHash(ctx, kPasswordSchemeBuckets, &ctx->password_schemes, 0) !=
      GSLUHH_OK) {
    return kFailed;
  }
  gsluhhTable *table = ctx->password_schemes;
  // Keys are compared with the plain case-insensitive comparison.
  if (gsluhhClntSetHTOptions(table, GSLUHH_OPT_LANGCMP, 0, nullptr) != GSLUHH_OK ||
      gsluhhClntSetHTOptions(table, GSLUHH_OPT_NOCASE, 1, nullptr) != GSLUHH_OK) {
    return kFailed;
  }
  for (std::size_t i = 0; i < kPasswordSchemeCount; ++i) {
    ctx->password_codes[i] = kPasswordSchemes[i].code;
  }
  constexpr int32_t kSpare = 1;
  for (std::size_t i = 0; i < kPasswordSchemeCount; ++i) {
    if (gsluhhClntbInsertStr(table, kPasswordSchemes[i].name, &ctx->password_codes[i], kSpare) !=
        GSLUHH_OK) {
      return kFailed;
    }
  }
  return GSLU_INIT_OK;
}

void destroyPasswordSchemes(gsluctx *ctx) {
  if (ctx->password_schemes == nullptr) return;
  (void)gsluhhClntaDestroyStrHash(ctx, ctx->password_schemes);
  ctx->password_schemes = nullptr;
}

namespace {

constexpr FinalStartupStep kPasswordSchemeStep = {buildPasswordSchemes, destroyPasswordSchemes,
                                                  "the password-scheme table could not be built"};

// Registered while the program starts, before main() runs.
[[maybe_unused]] const bool g_registered = (registerFinalStartupStep(&kPasswordSchemeStep), true);

}  // namespace

}  // namespace gslu

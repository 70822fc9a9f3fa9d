// core/messages.cc - message lookup by number.
#include "core/messages.h"

#include <cstdio>
#include <cstring>

#include "core/context_internal.h"

namespace {

constexpr char kNoHandleText[] = "Unable To create LDAP error message from mesg no.";
// Deliberate: "Message" here, "message" above; both texts are kept as they
// stand because callers and scripts match them.
constexpr char kNoHandleTextR[] = "Unable To create LDAP error Message for error:";

// Looks number up in h; unknown numbers give the text of 9999 and 3.
[[nodiscard]] int lookup(gslu::MessageHandle *h, uint32_t number, const char **text, int *status) {
  const char *found = gslu::msgLookup(h, number);
  if (h->error != 0) {
    *text = gslu::msgLookup(h, GSLUSGM_UNKNOWN_NUMBER);
    return GSLUSGM_NOT_FOUND;
  }
  *text = found;
  if (status != nullptr) *status = static_cast<int>(h->status);
  return GSLUSGM_OK;
}

// Bounded copy: at most size - 1 bytes and always a terminator.
void copyBounded(char *buffer, std::size_t size, const char *text) {
  if (buffer == nullptr || size == 0) return;
  std::size_t n = std::strlen(text);
  if (n >= size) n = size - 1;
  std::memcpy(buffer, text, n);
  buffer[n] = '\0';
}

}  // namespace

extern "C" {

int gslusgmGetMessage(gsluctx *ctx, uint32_t number, const char **text, int *status) {
  gsluctx *g = gslu::resolveContext(ctx);
  if (g == nullptr || g->active_messages == nullptr) {
    if (text != nullptr) *text = kNoHandleText;
    return GSLUSGM_NOT_FOUND;
  }
  const char *dummy;
  return lookup(g->active_messages, number, text != nullptr ? text : &dummy, status);
}

int gslusngmNlsGetMessage(gsluctx *ctx, uint32_t number, const char **text, int *status) {
  gsluctx *g = gslu::resolveContext(ctx);
  if (g == nullptr || g->output_messages_active == nullptr) {
    if (text != nullptr) *text = kNoHandleText;
    return GSLUSGM_NOT_FOUND;
  }
  const char *dummy;
  return lookup(g->output_messages_active, number, text != nullptr ? text : &dummy, status);
}

int gslusgmGetMessage_r(gsluctx *ctx, uint32_t number, char *buffer, size_t size, int *status) {
  gsluctx *g = gslu::resolveContext(ctx);
  if (g == nullptr || g->active_messages == nullptr) {
    if (buffer != nullptr && size > 0) {
      std::snprintf(buffer, size, "%s%u\n", kNoHandleTextR, number);
    }
    return GSLUSGM_NOT_FOUND;
  }
  const char *text = nullptr;
  int rc = lookup(g->active_messages, number, &text, status);
  copyBounded(buffer, size, text);
  return rc;
}

}  // extern "C"

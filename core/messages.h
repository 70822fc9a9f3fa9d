/*
 * core/messages.h - user-visible texts, looked up by number in the message
 * catalogue of facility "ldap" opened at start-up. Conventions as in
 * core/context.h.
 */
#ifndef QUILLOMAT_CORE_MESSAGES_H
#define QUILLOMAT_CORE_MESSAGES_H

#include "core/context.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
  GSLUSGM_OK = 0,
  GSLUSGM_NOT_FOUND = 3 /* no handle, or unknown number (text of 9999) */
};

/* Message numbers used by the converter. */
enum {
  GSLUSGM_DOCUMENT_NOT_CONVERTED = 2101,
  GSLUSGM_STDOUT_INCOMPLETE = 2102, /* gslufcsCloseStdout failed */
  GSLUSGM_UNKNOWN_NUMBER = 9999
};

/* Sets *text to message `number` in the internal (UTF-8) language; the text
 * stays valid until the next lookup on the same handle. 0 on success, with
 * *status set to the handle's status word. Unknown number: *text is message
 * 9999, result 3. No handle (start-up did not get that far): *text is
 * "Unable To create LDAP error message from mesg no.", result 3, *status
 * untouched. ctx may be null. */
int gslusgmGetMessage(gsluctx *ctx, uint32_t number, const char **text, int *status);

/* The same on the handle opened in the output language. */
int gslusngmNlsGetMessage(gsluctx *ctx, uint32_t number, const char **text, int *status);

/* The same, copying at most size bytes of the text into buffer (bounded
 * string copy). Without a handle, buffer receives "Unable To create LDAP
 * error Message for error:" followed by the number and a newline. */
int gslusgmGetMessage_r(gsluctx *ctx, uint32_t number, char *buffer, size_t size, int *status);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_CORE_MESSAGES_H */

/*
 * entry/names.h - what may stand as the type at the start of an LDIF line,
 * as the name of an attribute in a record, and as the type of a control,
 * written in one place: the DSML readers refuse a document's names by these
 * rules where they read them (so that the failure names the place), and
 * the record writer refuses a record whose names break them (so that no
 * caller can write one). No text a document chooses may change the
 * structure of the LDIF written for it.
 *
 * Conventions: names and types are NUL-terminated; null is refused.
 * Nothing is allocated and no context is needed.
 */
#ifndef QUILLOMAT_ENTRY_NAMES_H
#define QUILLOMAT_ENTRY_NAMES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Rules for attribute names. */
enum {
  /* What an LDIF record bears faithfully: a line type (below) holding no
     colon (which would end the type early: "seeAlso:" would make the value
     read as base64, "description:< file:///..." a URL that ldapadd
     fetches), and none of "dn", "changetype" and "control" in any letter
     case, also followed by spaces (another record, or a change record, of
     the document's choosing). */
  GSLCLE_NAMES_LDIF = 0,
  /* That, and an RFC 4512 attribute description: a letter followed by
     letters, digits and hyphens, or a numeric OID (no leading zeros), then
     any number of ";" and an option of letters, digits and hyphens. */
  GSLCLE_NAMES_RFC4512 = 1
};

/* The length of type when an LDIF line may start with it: it holds no
 * control character (a byte below 0x20, or 0x7F: a line break would start
 * a line of the document's choosing) and does not start with a space
 * (which continues the line before) or '#' (which makes the line a
 * comment). -1 when it may not. */
int64_t gslclenlLineTypeLength(const char *type);

/* The length of name when an attribute of a record may bear it under rule
 * (GSLCLE_NAMES_*; any other value is GSLCLE_NAMES_LDIF); -1 when it may
 * not. */
int64_t gslclenaAttrNameLength(const char *name, int rule);

/* 1 when the length bytes at text are a numeric OID as a control's type
 * must be: a digit 0 to 2, then one or more groups of "." and digits (the
 * form DSML v2 gives control types); else 0. */
int gslclenoIsControlOid(const char *text, size_t length);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_ENTRY_NAMES_H */

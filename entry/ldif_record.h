/*
 * entry/ldif_record.h - one directory entry as the text of one LDIF record:
 * a "dn:" line followed by the entry's attribute lines (a content record) or
 * by the lines of an add, modify, modrdn or delete change record.
 *
 * Conventions (those of entry/entry.h, plus):
 *   1. The whole record is built in memory as one NUL-terminated text of
 *      exactly its size. A record that fits 16 KiB, nearly every one, is
 *      written in one walk into a buffer on the stack, each value's form
 *      decided as it is written, and copied into a block of its size; a
 *      larger one, and every record of a context that converts output, is
 *      sized first (each value's form decided once), then written once
 *      into its block. The caller owns the text and frees it with
 *      gslumfFree().
 *   2. Value lines are those of entry/ldif_line.h (base64 and folding as
 *      needed); the new RDN and new superior of a modrdn record are written
 *      as they stand, neither encoded nor folded.
 *   3. Which record an entry gives, by its change type:
 *        add, never set explicitly  content record, no "changetype" line:
 *                                   each attribute's value lines; an
 *                                   attribute without values gives
 *                                   "name: " and a newline;
 *        add set explicitly, modify "changetype: add" / "changetype: modify",
 *                                   then one block per attribute: "add: ",
 *                                   "delete: " or "replace: " and its name,
 *                                   then its value lines (an add without
 *                                   values gives "name: " as above). Blocks
 *                                   are separated by "-" lines; deliberately
 *                                   none follows the last block. Without
 *                                   attributes only the "dn:" line is
 *                                   written, with no "changetype" line;
 *        modrdn                     "changetype: modrdn", "newrdn: ",
 *                                   "deleteoldrdn: " 0 or 1, and
 *                                   "newsuperior: " when one is set;
 *        delete                     "changetype: delete".
 *      A modification of type increment has the header "increment: ".
 *   4. The string builders return null when there is no core context, when
 *      there is nothing to write (see each) or when the text cannot be
 *      allocated.
 *   5. gslclegalfGetAsLDIFForm with GSLCLE_LDIF_FORM_RFC2849 writes change
 *      records as RFC 2849 (with RFC 4525's increment) has them, which
 *      common LDIF readers such as ldapmodify take; the forms of 3 are
 *      rejected by them. Content records are the same bytes in both forms.
 *        control lines                right after the "dn:" line of a change
 *                                     record, one per control in order:
 *                                     "control: OID true" (or "false"), and
 *                                     with a value the line continues as
 *                                     the value line whose type is that
 *                                     text ("control: OID true: v", or
 *                                     ":: " and base64), never converted;
 *        add set explicitly           "changetype: add", then the attribute
 *                                     lines of a content record (also with
 *                                     no attributes);
 *        modify                       "changetype: modify", then per
 *                                     attribute its header line, its value
 *                                     lines and a "-" line, the last one
 *                                     included; no empty value is made up
 *                                     for a modification without values;
 *        modrdn                       "changetype: modrdn", the new RDN as
 *                                     a "newrdn" value line (empty when
 *                                     none is set), "deleteoldrdn: " 0 or
 *                                     1, and a "newsuperior" value line
 *                                     when one is set (even empty);
 *        delete                       "changetype: delete".
 *      Value lines may be base64 and folded (entry/ldif_line.h), the new RDN
 *      and new superior included, so no rename field is refused.
 */
#ifndef QUILLOMAT_ENTRY_LDIF_RECORD_H
#define QUILLOMAT_ENTRY_LDIF_RECORD_H

#include <stddef.h>
#include <stdint.h>

#include "core/context.h"
#include "entry/entry.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Statuses of gslclegalGetAsLDIF and gslclecnCheckAttrName. */
enum {
  GSLCLEGAL_OK = 0,
  GSLCLEGAL_REFUSED = 2,    /* an attribute name, new RDN or new superior
                               would change the structure of the LDIF
                               (see gslclecnCheckAttrName) */
  GSLCLEGAL_NO_MEMORY = 5,  /* the text could not be allocated (*text null) */
  GSLCLEGAL_NULL_ARG = 9,   /* null entry or text */
  GSLCLEGAL_NO_CONTEXT = 89 /* no core context */
};

/* Options of gslclegalfGetAsLDIFForm, or-ed together. */
enum {
  GSLCLE_LDIF_FORM_LIBRARY = 0,  /* change records in the forms of convention 3 */
  GSLCLE_LDIF_FORM_RFC2849 = 1,  /* change records in the forms of convention 5 */
  GSLCLE_LDIF_SAFE_VALUES = 2,   /* base64 also for a value that RFC 2849
                                    does not allow plain, written whole: one
                                    that starts with '<', ends with a space
                                    or holds a NUL */
  GSLCLE_LDIF_NO_WRAP = 4,       /* no line is folded */
  GSLCLE_LDIF_RFC4512_NAMES = 8, /* attribute names held to
                                    GSLCLE_NAMES_RFC4512 */
  GSLCLE_LDIF_NO_CONVERSION = 16, /* nothing converted to the output
                                     character set: the text stays UTF-8 */
  /* LDIF that every RFC 2849 reader reads back exactly as it was meant. */
  GSLCLE_LDIF_STRICT =
      GSLCLE_LDIF_SAFE_VALUES | GSLCLE_LDIF_RFC4512_NAMES | GSLCLE_LDIF_NO_CONVERSION
};

/* What a record holds that RFC 2849 does not allow, when written without
 * GSLCLE_LDIF_SAFE_VALUES: readers take such a value for something else. */
typedef struct GslcleLdifNotes {
  uint32_t values_cut;        /* plain values written up to their first NUL
                                 byte only */
  uint32_t values_leading_lt; /* plain values starting with '<' */
} GslcleLdifNotes;

/* Values of gslcleGetAttrAsLDIF's with_header. */
enum {
  GSLCLE_LDIF_NO_HEADER = 0, /* content record: value lines only */
  GSLCLE_LDIF_HEADER = 1     /* modify or explicit add: "add: name" first */
};

/* Whether name may name an attribute of a record: GSLCLEGAL_OK, or
 * GSLCLEGAL_REFUSED for a name that GSLCLE_NAMES_LDIF refuses
 * (entry/names.h): one that would change what an LDIF reader makes of the
 * record. A null name is refused. */
int gslclecnCheckAttrName(const char *name);

/* Renders entry as one LDIF record into *text (cleared first). Unlike the
 * string builders below, a record that cannot be allocated whole is
 * reported (5) rather than cut to its "dn:" line, so no entry is ever
 * written incomplete. An entry holding an attribute name that
 * gslclecnCheckAttrName refuses, or a new RDN or new superior with a line
 * break, is refused whole (2) and nothing is written. */
int gslclegalGetAsLDIF(const gslcClientHandle *ctx, const LDAPEntry *entry, char **text);

/* gslclegalGetAsLDIF with options (GSLCLE_LDIF_*, or-ed), *length (when
 * length is not null) the text's length, so that nobody measures it again,
 * and *notes (when notes is not null) what the record holds that RFC 2849
 * does not allow. The out-parameters are cleared first. The form's rules
 * for rename fields apply: the RFC 2849 form refuses none. With
 * GSLCLE_LDIF_RFC4512_NAMES a record holding a name that
 * GSLCLE_NAMES_RFC4512 refuses is refused (2). */
int gslclegalfGetAsLDIFForm(const gslcClientHandle *ctx, const LDAPEntry *entry, int options,
                            char **text, size_t *length, GslcleLdifNotes *notes);

/* The string builders below return null, like a failed allocation, for a
 * name or rename field that gslclegalGetAsLDIF refuses. */

/* The attribute lines of a content record; null for an entry without
 * attributes, or when they add up to nothing. */
char *gslcleGetAddStr(const gslcClientHandle *ctx, const LDAPEntry *entry);

/* The body of a modify record, or of an add record whose change type was
 * set explicitly; null for an entry without attributes. */
char *gslcleGetModifyStr(const gslcClientHandle *ctx, const LDAPEntry *entry);

/* The body of a modrdn record. */
char *gslcleGetModRDNStr(const gslcClientHandle *ctx, const LDAPEntry *entry);

/* The lines of one attribute, with its "add: "/"delete: "/"replace: " header
 * line when with_header is 1; may be the empty text (no header, no values
 * and a change type other than add). */
char *gslcleGetAttrAsLDIF(const gslcClientHandle *ctx, const LDAPAttribute *attribute,
                          int with_header);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_ENTRY_LDIF_RECORD_H */

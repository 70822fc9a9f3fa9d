/*
 * entry/entry.h - the in-memory directory entry: a DN, an ordered list of
 * attributes with their values, the change type and the rename fields.
 *
 * Conventions (those of core/context.h, plus):
 *   1. Every operation takes a client handle first and works on the core
 *      context that gslccx_Getgsluctx() finds for it; a null handle stands
 *      for the process-wide core context. When no core context can be had
 *      the operation fails with GSLCLE_NO_CONTEXT (89) before looking at
 *      anything else.
 *   2. Checks run in this order: core context, then pointer arguments
 *      (GSLCLE_NULL_ARG, 9), then the operation's preconditions.
 *   3. "Copy" means a fresh NUL-terminated copy made with gslussdStrdup()
 *      that the receiver owns and frees with gslumfFree(). Every block comes
 *      from the core context's allocator (core/memory.h). What a record
 *      owns and never hands out shares the record's block: an entry's DN,
 *      an attribute's name, and a counted value's bytes with its BERVal.
 *   4. Out-parameters are cleared first (null or 0) once the arguments have
 *      passed the null checks, so on failure they hold nothing to free.
 *   5. Ownership: an entry owns its DN, its rename strings, its attribute
 *      list and every attribute in it. An attribute owns its name, its
 *      values array and every value. Adding an attribute to an entry hands it
 *      over (it is not copied); adding a value stores a copy.
 *
 * Values: an attribute's value kind is fixed at creation. Kind
 * GSLCLE_VALUES_TEXT keeps NUL-terminated strings; kind GSLCLE_VALUES_BINARY
 * keeps counted byte strings (BERVal), which may hold any byte, NUL
 * included; each is stored as one block, its bytes after the BERVal (so it
 * is freed with the attribute, never by itself). The values array grows in steps of
 * GSLCLE_VALUES_STEP slots: when a value is added while the count is a multiple of five (0
 * included) the array is reallocated to count + 5 slots, the old size (count slots) being passed to
 * the reallocation.
 *
 * Not offered here: building an entry from a directory search result, which
 * needs the directory client library's result records.
 */
#ifndef QUILLOMAT_ENTRY_ENTRY_H
#define QUILLOMAT_ENTRY_ENTRY_H

#include <stddef.h>
#include <stdint.h>

#include "core/context.h"
#include "util/list.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Status codes of this module. */
enum {
  GSLCLE_OK = 0,
  GSLCLE_BAD_CHANGE_TYPE = 1, /* change type outside 1-4 (entry) or 5-7
                                 (attribute) */
  GSLCLE_NOT_APPLICABLE = 2,  /* the operation does not apply to this
                                 record: rename field of a non-modrdn entry,
                                 attribute added to an entry that is neither
                                 add nor modify, value of the wrong kind */
  GSLCLE_BAD_OID = 3,         /* a control type that is not a numeric OID */
  GSLCLE_BAD_VALUE_KIND = 4,  /* value kind other than 0 or 128 */
  GSLCLE_NO_MEMORY = 5,       /* an allocation failed; the record being
                                 built is left as it was */
  GSLCLE_NULL_ARG = 9,        /* a required pointer argument is null */
  GSLCLE_NO_CORE = 10,        /* gslcledaDestLDAPAttr: no core context */
  GSLCLE_NO_CONTEXT = 89,     /* no core context from the client handle */
  GSLCLE_EMPTY_NAME = 89      /* attribute creation with an empty name */
};

/* Results of gslcleAttrNameCmpCBF besides the comparison itself. */
enum {
  GSLCLE_CMP_EQUAL = 0,
  GSLCLE_CMP_NULL_ARG = -2,  /* null attribute or name */
  GSLCLE_CMP_NO_CONTEXT = 89 /* no core context: counts as a mismatch */
};

/* Change types of an entry. */
enum {
  GSLCLE_CHANGE_ADD = 1,
  GSLCLE_CHANGE_DELETE = 2,
  GSLCLE_CHANGE_MODIFY = 3,
  GSLCLE_CHANGE_MODRDN = 4
};

/* Change types of an attribute (its modification in a modify record).
 * GSLCLE_ATTR_INCREMENT (an LDIF "increment:", RFC 4525) is set only by
 * gslclesiSetAttrIncrement; gslclegastSetAttrChangeType keeps to 5-7. */
enum {
  GSLCLE_ATTR_ADD = 5,
  GSLCLE_ATTR_DELETE = 6,
  GSLCLE_ATTR_REPLACE = 7,
  GSLCLE_ATTR_INCREMENT = 8
};

/* Value kinds of an attribute. */
enum {
  GSLCLE_VALUES_TEXT = 0,    /* NUL-terminated strings */
  GSLCLE_VALUES_BINARY = 128 /* counted byte strings (BERVal) */
};

/* Growth step of the values array, in slots. */
enum { GSLCLE_VALUES_STEP = 5 };

/* A counted byte string: exactly length bytes, no terminator kept or
 * counted. bytes is null when the string was made from a null source or is
 * empty (length 0). Whoever holds the pointer owns the record and its bytes. */
typedef struct BERVal {
  size_t length;
  char *bytes;
} BERVal;

/* One attribute. Read-only for callers: change it through the operations. */
typedef struct LDAPAttribute {
  char *name;          /* owned copy of the attribute type (options such as
                          ";binary" included) */
  void **values;       /* owned array of count values (char * for kind 0,
                          BERVal * for kind 128); null before the first */
  uint32_t count;      /* number of values */
  uint8_t value_kind;  /* GSLCLE_VALUES_TEXT or GSLCLE_VALUES_BINARY */
  uint8_t change_type; /* GSLCLE_ATTR_*, GSLCLE_ATTR_ADD at creation */
  void *next;          /* link field of the entry's attribute list (see
                          util/list.h): null at creation and while the
                          attribute is in no list or is its last element */
} LDAPAttribute;

/* One control of a change record (an LDIF "control:" line). Read-only for
 * callers; made by gslcleacAddControl, owned by the entry. */
typedef struct LDAPEntryControl {
  char *oid;         /* the control type, a numeric OID; in the record's block */
  BERVal value;      /* its value, when has_value is 1 (bytes in the record's
                        block; null when the value is empty) */
  uint8_t has_value; /* 0: the control has no value at all */
  uint8_t critical;  /* 0 or 1 */
  void *next;        /* link field of the entry's control list */
} LDAPEntryControl;

/* One entry. Read-only for callers: change it through the operations. */
typedef struct LDAPEntry {
  char *dn;                     /* owned copy of the DN */
  GslulsList *attributes;       /* LDAPAttribute records in the order they
                                   were added; null before the first */
  uint8_t change_type;          /* GSLCLE_CHANGE_*, add at creation */
  uint8_t explicit_change_type; /* 1 once a change type was set: tells an
                                   LDIF "changetype: add" record from a
                                   plain content record (both type add) */
  char *new_rdn;                /* owned or null; modrdn only */
  uint8_t delete_old_rdn;       /* 0 or 1; modrdn only */
  char *new_superior;           /* owned or null; modrdn only */
  void *reserved[2];            /* null; not used by this library */
  GslulsList *controls;         /* LDAPEntryControl records in the order
                                   they were added; null before the first */
} LDAPEntry;

/* ---- Entry operations ------------------------------------------------------ */

/* Creates an entry holding a copy of dn, change type add, no attributes and
 * every other field 0 or null, into *entry. 9 for a null dn or entry, 5
 * when the record or the DN copy cannot be allocated. */
int gslcleceCreateLDAPEntry(const gslcClientHandle *ctx, const char *dn, LDAPEntry **entry);

/* Frees the entry with its DN, every attribute (gslcledaDestLDAPAttr), the
 * attribute list, every control and the rename strings. 9 for a null
 * entry. */
int gslcledeDestroyLDAPEntry(const gslcClientHandle *ctx, LDAPEntry *entry);

/* Appends attribute to the entry's attribute list, creating the list on
 * first use; the entry then owns the attribute. Only for change types add
 * and modify (else 2, and the attribute stays the caller's). 9 for a null
 * entry or attribute, 5 when the list cannot be created; otherwise the
 * list's append status (GSLULS_ALREADY_LINKED, 2, for an attribute that is
 * in a list and not its last element). An attribute must never be added
 * twice, to one entry or to two. */
int gslcleaaAddLDAPAttribute(const gslcClientHandle *ctx, LDAPEntry *entry,
                             LDAPAttribute *attribute);

/* *dn = a copy of the entry's DN. 9 for a null argument, 5 when the copy
 * cannot be allocated. */
int gslclegdGetDN(const gslcClientHandle *ctx, const LDAPEntry *entry, char **dn);

/* *attribute = the entry's first attribute whose name equals name ignoring
 * case (gslcleAttrNameCmpCBF), pointing into the entry (not a copy); null
 * when the entry has none of that name or no attributes at all. 0, or 9 for
 * a null argument. */
int gslcleganGetAttributeByName(const gslcClientHandle *ctx, const LDAPEntry *entry,
                                const char *name, LDAPAttribute **attribute);

/* *attributes = the entry's own attribute list (not a copy; null before the
 * first attribute). 9 for a null argument. */
int gslclegaGetAttributes(const gslcClientHandle *ctx, const LDAPEntry *entry,
                          GslulsList **attributes);

/* *count = the number of attributes (0 without a list). 9 for a null
 * argument; otherwise the list's size status. */
int gslclesSize(const gslcClientHandle *ctx, const LDAPEntry *entry, uint32_t *count);

/* *change_type = the entry's change type. 9 for a null argument. */
int gslclegctGetChangeType(const gslcClientHandle *ctx, const LDAPEntry *entry,
                           uint8_t *change_type);

/* Sets the change type (1-4, else 1 and nothing changes) and marks it
 * explicit. 9 for a null entry. */
int gslclesctSetChangeType(const gslcClientHandle *ctx, LDAPEntry *entry, int change_type);

/* *new_rdn = a copy of the new RDN (null when none is set). Modrdn entries
 * only (else 2). 9 for a null argument, 5 when the copy cannot be made. */
int gslclegnGetNewRDN(const gslcClientHandle *ctx, const LDAPEntry *entry, char **new_rdn);

/* Replaces the new RDN with a copy of new_rdn, which must not be null (9).
 * Modrdn entries only (else 2). Should the copy fail, the field is left
 * null and the status is still 0. */
int gslclesnSetNewRDN(const gslcClientHandle *ctx, LDAPEntry *entry, const char *new_rdn);

/* *new_superior = a copy of the new superior (null when none is set).
 * Modrdn entries only (else 2). 9 for a null argument, 5 when the copy
 * cannot be made. */
int gslclegnsGetNewSuperior(const gslcClientHandle *ctx, const LDAPEntry *entry,
                            char **new_superior);

/* Replaces the new superior with a copy of new_superior, which may be null
 * (the field becomes null), unlike gslclesnSetNewRDN. Modrdn entries only
 * (else 2). 9 for a null entry. Should the copy fail, the field is left
 * null and the status is still 0. */
int gslclesnsSetNewSuperior(const gslcClientHandle *ctx, LDAPEntry *entry,
                            const char *new_superior);

/* *delete_old_rdn = the delete-old-RDN flag (0 or 1). Modrdn entries only
 * (else 2). 9 for a null argument. */
int gslclegdoGetDeleteOldRdn(const gslcClientHandle *ctx, const LDAPEntry *entry,
                             uint8_t *delete_old_rdn);

/* Sets the delete-old-RDN flag: 1 for any non-zero value, else 0. Modrdn
 * entries only (else 2). 9 for a null entry. */
int gslclesdoSetDeleteOldRdn(const gslcClientHandle *ctx, LDAPEntry *entry, int delete_old_rdn);

/* Appends a control to the entry, whatever its change type: a copy of oid,
 * which must be a numeric OID (a digit 0-2, then one or more "." and
 * digits; else 3, GSLCLE_BAD_OID), the criticality (1 for any non-zero
 * value) and, when value is not null, a copy of its bytes. The entry owns
 * the control. 9 for a null entry or oid, 5 when the record or the list
 * cannot be allocated (the entry is then unchanged). Only change records
 * carry controls when written as LDIF (entry/ldif_record.h). */
int gslcleacAddControl(const gslcClientHandle *ctx, LDAPEntry *entry, const char *oid,
                       int critical, const BERVal *value);

/* GSLCLE_OK when oid is a numeric OID as gslcleacAddControl requires, else
 * GSLCLE_BAD_OID (also for null). */
int gslclecoCheckControlOid(const char *oid);

/* ---- Attribute operations -------------------------------------------------- */

/* Creates an attribute named by a copy of name, of value kind value_kind
 * (its low 8 bits: 0 or 128, else 4), with no values and change type
 * GSLCLE_ATTR_ADD, into *attribute. 9 for a null name or attribute, 89 for
 * an empty name, 5 when the record or the name copy cannot be allocated. */
int gslcleclaCreateLDAPAttribute(const gslcClientHandle *ctx, const char *name, int value_kind,
                                 LDAPAttribute **attribute);

/* Frees the attribute: gslcledaDestLDAPAttr with the handle's core context. */
void gslcledaDestroyLDAPAttribute(const gslcClientHandle *ctx, LDAPAttribute *attribute);

/* Frees every value, the values array and the record with its name. core
 * null: the process-wide context. 10 when there is no core context, 9 for a
 * null attribute. Must not be used on an attribute that an entry owns. */
int gslcledaDestLDAPAttr(gsluctx *core, LDAPAttribute *attribute);

/* Appends a copy of value to a kind-0 attribute (else 2). 9 for a null
 * argument, 5 when the copy or the grown array cannot be allocated (the
 * attribute is then unchanged). */
int gslcleavAddAttrValue(const gslcClientHandle *ctx, LDAPAttribute *attribute, const char *value);

/* Appends a copy of value to a kind-128 attribute (else 2): the same length
 * and bytes as gslcleBERValDUP(value) gives (length 0 and null bytes for a
 * null or empty source), stored as one block. 9 for a null argument, 5 when
 * the copy or the grown array cannot be allocated (the attribute is then
 * unchanged). */
int gslcleabvAddAttrBValue(const gslcClientHandle *ctx, LDAPAttribute *attribute,
                           const BERVal *value);

/* *name = a copy of the attribute's name. 9 for a null argument, 5 when the
 * copy cannot be allocated. */
int gslclegatnGetAttrName(const gslcClientHandle *ctx, const LDAPAttribute *attribute, char **name);

/* *values = a fresh array of copies of the count string values followed by
 * a null entry; free it with gslcleValsFree(). Kind-0 attributes only (else
 * 2). 9 for a null argument, 5 when an allocation fails (nothing is handed
 * back then). */
int gslclegavGetAttrValues(const gslcClientHandle *ctx, const LDAPAttribute *attribute,
                           char ***values);

/* *values = a fresh array of count BERVal copies followed by a null entry;
 * for a kind-0 attribute each string becomes a BERVal of its bytes without
 * the NUL. Free it with gslcleBERValsFree(). 9 for a null argument, 5 when
 * an allocation fails (nothing is handed back then). */
int gslclegabvGetAttrBValues(const gslcClientHandle *ctx, const LDAPAttribute *attribute,
                             BERVal ***values);

/* *count = the number of values. 9 for a null argument. */
int gslcleasAttrSize(const gslcClientHandle *ctx, const LDAPAttribute *attribute, uint32_t *count);

/* *change_type = the attribute's change type. 9 for a null argument. */
int gslclegactGetAttrChangeType(const gslcClientHandle *ctx, const LDAPAttribute *attribute,
                                uint8_t *change_type);

/* Sets the attribute's change type (5-7, else 1 and nothing changes). 9 for
 * a null attribute. */
int gslclegastSetAttrChangeType(const gslcClientHandle *ctx, LDAPAttribute *attribute,
                                int change_type);

/* Sets the attribute's change type to GSLCLE_ATTR_INCREMENT: in a modify
 * record its values are added to the attribute's present value (LDIF
 * "increment:"). 9 for a null attribute. */
int gslclesiSetAttrIncrement(const gslcClientHandle *ctx, LDAPAttribute *attribute);

/* Compares the attribute's name with name ignoring case
 * (gslusicStrcasecmp): 0 when equal, non-zero otherwise. -2 for a null
 * attribute or name, 89 when no core context can be had (a mismatch to a
 * search). The comparison callback of gslcleganGetAttributeByName. */
int32_t gslcleAttrNameCmpCBF(const gslcClientHandle *ctx, const LDAPAttribute *attribute,
                             const char *name);

/* ---- Counted-string helpers ----------------------------------------------- */

/* A new BERVal holding a copy of length bytes at bytes; for null bytes, or
 * length 0, a BERVal of length 0 with null bytes (not a null result). Null
 * when an allocation fails (nothing leaks), when length exceeds what the
 * allocator takes, or without a core context. */
BERVal *gslcleBERValNEW(const gslcClientHandle *ctx, const char *bytes, size_t length);

/* gslcleBERValNEW over value's bytes and length; null for a null value. */
BERVal *gslcleBERValDUP(const gslcClientHandle *ctx, const BERVal *value);

/* Frees every string of the null-terminated array values, then the array.
 * A null array frees nothing. */
void gslcleValsFree(const gslcClientHandle *ctx, char **values);

/* Frees every BERVal (its bytes, then the record) of the null-terminated
 * array values, then the array. A null array frees nothing. */
void gslcleBERValsFree(const gslcClientHandle *ctx, BERVal **values);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_ENTRY_ENTRY_H */

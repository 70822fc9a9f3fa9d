/*
 * util/hash.h - chained hash table keyed by NUL-terminated strings.
 *
 * Conventions (those of core/context.h, plus):
 *   1. A table maps each key to one value pointer. The table keeps its own
 *      copy of every key; the value is the caller's pointer, or a copy the
 *      table keeps beside the key (copyValue), or the table's copy of the key
 *      itself (GSLUHH_OPT_VALUE_IS_KEY).
 *   2. Every function taking a context accepts a null one and then works
 *      with the process-wide context. The functions with a one-letter tag
 *      (gsluhhClntcCreateStrHash ... gsluhhClnteRemoveStr), and
 *      gsluhhClntSetHTOptions and gsluhhClntGetNumElements, always work with
 *      the process-wide context.
 *   3. Memory comes from the context's allocator. Failures are also traced
 *      at level 0x7fffffff; a duplicate key is traced at level 0x40000.
 *   4. Locks: each table has a reader-writer lock; a table created with
 *      bucket locks has one more per bucket. The order is always table
 *      before bucket. Insert and delete hold the bucket lock (not the table
 *      lock) while they change a chain; iteration, verification and the
 *      dumps take no bucket lock, so they must not run beside writers on a
 *      table with bucket locks.
 *   5. The bucket of a key is a weighted sum of its bytes: byte i weighs
 *      i*i*i (mod 2^32), so the first byte never counts. The hash reads raw
 *      bytes; a case-insensitive table finds a key spelled with other
 *      capitals only when both spellings land in the same bucket (always so
 *      for ASCII letters with 16 buckets).
 *   6. Keys are compared only with stored keys of the same byte length.
 *      Lookups compare as the options say; insertion and deletion always
 *      compare exactly.
 *
 * Statuses: 0 success; 2 a bad argument, lock failure, allocation failure,
 * bad hash value or unknown option; 1001 not a valid table; 1002 a duplicate
 * key; 1003 key not found or end of iteration; 1025 a duplicate key as
 * gsluhhClntbInsertStr reports it.
 */
#ifndef QUILLOMAT_UTIL_HASH_H
#define QUILLOMAT_UTIL_HASH_H

#include <stdint.h>

#include "core/context.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Status codes of this module. */
enum {
  GSLUHH_OK = 0,
  GSLUHH_FAILED = 2,
  GSLUHH_INVALID_TABLE = 1001, /* validity word wrong, or no buckets */
  GSLUHH_DUPLICATE = 1002,     /* the key is already in the table */
  GSLUHH_NOT_FOUND = 1003,     /* no such key; end of iteration */
  GSLUHH_STR_DUPLICATE = 1025  /* gsluhhClntbInsertStr: the key is already there */
};

/* Validity word of a live table; 0 once it is freed. */
#define GSLUHH_MAGIC 0x89abcdefU

/* Bucket counts: a request of 0 gets the default, larger requests are cut
 * to the maximum. */
enum { GSLUHH_DEFAULT_BUCKETS = 256, GSLUHH_MAX_BUCKETS = 65003 };

/* Number of precomputed hash weights; longer keys are not supported. */
enum { GSLUHH_WEIGHT_COUNT = 10000 };

/* Options of gsluhhClntSetHTOptions. */
enum {
  GSLUHH_OPT_DEFAULTS = 0,     /* all switches back to their defaults */
  GSLUHH_OPT_LANGCMP = 1,      /* compare keys through the language service (== 1) */
  GSLUHH_OPT_NOCASE = 2,       /* compare keys ignoring case */
  GSLUHH_OPT_VALUE_IS_KEY = 4, /* a copied value is the table's copy of the key */
  GSLUHH_OPT_FREEFUNC = 8,     /* release function for values (pointer) */
  GSLUHH_OPT_LOCK_SEARCH = 16  /* gsluhhClntHashSearch takes the table lock */
};

/* Comparison modes handed to the language service's comparison. */
enum { GSLUHH_CMP_EXACT = 0, GSLUHH_CMP_NOCASE = 1 };

/* The table and its buckets: their layout is the module's own
 * (util/hash_internal.h). */
typedef struct gsluhhTable gsluhhTable;
typedef struct gsluhhBucket gsluhhBucket;

/* Hash function: the bucket index of key. *position is the weight index of
 * the key's first byte (callers start it at 0) and is advanced by one per
 * byte, so that it ends as the key's length. */
typedef uint32_t (*gsluhhHashFunction)(gsluhhTable *table, const char *key, uint32_t *position);

/* Called with a non-null value when its element leaves the table. */
typedef void (*gsluhhReleaseFunction)(void *value);

/* One key and its value, allocated as one block: this record, the key's
 * copy and, when the value is copied, the value's copy. */
typedef struct gsluhhElement {
  struct gsluhhElement *next; /* in the bucket, insertion order */
  struct gsluhhElement *prev;
  gsluhhBucket *bucket; /* owning bucket */
  char *key;            /* the table's copy of the key */
  uint32_t int_key;     /* integer key; string insertion leaves it 0 */
  uint32_t key_length;  /* bytes before the NUL */
  void *value;
} gsluhhElement;

/* Position of an iteration. */
typedef struct gsluhhIterator {
  gsluhhTable *table;
  gsluhhBucket *bucket;   /* current bucket */
  gsluhhElement *element; /* current element, null before the first step */
  uint32_t bucket_index;
} gsluhhIterator;

/* ---- Creation and destruction ------------------------------------------- */

/* Creates a table of requested buckets (0: 256; more than 65003: 65003) with
 * the default hash function into *table. bucketLocks non-zero gives every
 * bucket its own lock. 0, or 2 with *table null. */
int gsluhhClntcCreateStrHash(gsluctx *ctx, uint32_t requested, gsluhhTable **table,
                             int32_t bucketLocks);

/* As gsluhhClntcCreateStrHash, with hash (null: gsluhhClntHashFunc) as the
 * hash function. The table starts ready, with one reference and the default
 * options. 0, or 2 (null table pointer, allocation or lock failure) with
 * *table null. */
int gsluhhClntHashTableAlloc(gsluctx *ctx, uint32_t requested, gsluhhHashFunction hash,
                             gsluhhTable **table, int32_t bucketLocks);

/* Allocates count + 1 empty buckets into *buckets, each with an initialised
 * lock when bucketLocks is non-zero. 0, or 2 with *buckets null. */
int gsluhhClntHashBucketsAlloc(gsluctx *ctx, uint32_t count, gsluhhBucket **buckets,
                               int32_t bucketLocks);

/* Sets option (GSLUHH_OPT_*) to value, or the release function to release
 * for GSLUHH_OPT_FREEFUNC (which also turns GSLUHH_OPT_VALUE_IS_KEY off).
 * GSLUHH_OPT_NOCASE with value 1 makes the comparison mode case-insensitive,
 * any other value exact. 0; 2 for a null table, a lock failure or an unknown
 * option (nothing changes then). */
int gsluhhClntSetHTOptions(gsluhhTable *table, int32_t option, int32_t value,
                           gsluhhReleaseFunction release);

/* Drops one reference; the last one frees the table, its elements (values
 * through the release function) and its locks. A table in
 * re-initialisation is left alone. 0; 2 for a null table or a lock failure;
 * 1001 for an invalid table. The weight array is never released. */
int gsluhhClntHashTableFree(gsluctx *ctx, gsluhhTable *table);

/* gsluhhClntHashTableFree: 0, or 2 for any failure. */
int gsluhhClntaDestroyStrHash(gsluctx *ctx, gsluhhTable *table);

/* Adds a reference. 0; 2 for a null table or a lock failure. */
int gsluhhClntIncrRefCnt(gsluctx *ctx, gsluhhTable *table);

/* 0 for a live table; 2 for a null one; 1001 when the validity word is
 * wrong or there are no buckets. Takes no lock. */
int gsluhhClntHashTableVerify(gsluctx *ctx, const gsluhhTable *table);

/* The default hash function (see convention 5): the weighted sum AND 15
 * with 16 buckets, else the sum modulo the bucket count. */
uint32_t gsluhhClntHashFunc(gsluhhTable *table, const char *key, uint32_t *position);

/* ---- Insertion ---------------------------------------------------------- */

/* Inserts key with value. copyValue 0 stores the value pointer as given;
 * otherwise the value is the table's copy of the key when
 * GSLUHH_OPT_VALUE_IS_KEY is set, else a copy of the value string (null
 * stays null). *storedKey (when storedKey is not null) is cleared first and,
 * once the element is in the table, receives the table's copy of the key,
 * valid while the element lives.
 * 0; 1002 when the key is already there (the first element and its value
 * stay); 2 for a null table, invalid table, lock or allocation failure or a
 * hash value out of range. */
int gsluhhClntShrdKeyHashInsert(gsluctx *ctx, gsluhhTable *table, const char *key,
                                const char **storedKey, void *value, int32_t copyValue);

/* gsluhhClntShrdKeyHashInsert without the stored key. */
int gsluhhClntHashInsert(gsluctx *ctx, gsluhhTable *table, const char *key, void *value,
                         int32_t copyValue);

/* Inserts key with the value pointer as given; spare is ignored. 0; 1025 for
 * a duplicate key; 2 for anything else. */
int gsluhhClntbInsertStr(gsluhhTable *table, const char *key, void *value, int32_t spare);

/* ---- Lookup and removal ------------------------------------------------- */

/* Looks key up into *value. 0 with the element's value; 1003 when the key's
 * bucket is empty (*value untouched) or holds no match (*value null); 2 for
 * a null table, a lock failure, a hash value out of range or a table in
 * re-initialisation; 1001 for an invalid table. */
int gsluhhClntHashSearch(gsluctx *ctx, gsluhhTable *table, const char *key, void **value);

/* gsluhhClntHashSearch; any arguments after value are ignored. */
int gsluhhClntdSearchStr(gsluhhTable *table, const char *key, void **value, ...);

/* The table's copy of key, or null when it is not there and on every
 * failure (nothing is traced). Always takes the table lock. */
const char *gsluhhClntHashKeySearch(gsluctx *ctx, gsluhhTable *table, const char *key);

/* Removes key (exact comparison), releasing its value through the release
 * function. 0; 1003 when it is not there; 1001 for an invalid table; 2 for
 * a null table, a lock failure or a hash value out of range. */
int gsluhhClntHashDelete(gsluctx *ctx, gsluhhTable *table, const char *key);

/* gsluhhClntHashDelete: 0, or 2 for any failure (not found included). */
int gsluhhClnteRemoveStr(gsluhhTable *table, const char *key);

/* The number of elements. 2 for a null table or a lock failure, which cannot
 * be told from a count of 2. */
uint32_t gsluhhClntGetNumElements(gsluhhTable *table);

/* ---- Re-initialisation -------------------------------------------------- */

/* Empties the table and marks it as re-initialising: searches fail with 2,
 * key searches find nothing and freeing is refused, while insertion and
 * deletion work. Nothing happens to a table already re-initialising or with
 * more than one reference. 0; 2 for a null table or a lock failure; 1001
 * for an invalid table. */
int gsluhhClntiInitHT(gsluctx *ctx, gsluhhTable *table);

/* Ends re-initialisation. 0, or 2 for a null table. */
int gsluhhClntEndInitHT(gsluctx *ctx, gsluhhTable *table);

/* ---- Iteration ---------------------------------------------------------- */

/* A writing iteration: a fresh iterator before the first element, holding
 * the table's write lock until gsluhhClntHashEndIter. Null for a null or
 * invalid table or when the iterator cannot be allocated. */
gsluhhIterator *gsluhhClntHashBeginIter(gsluctx *ctx, gsluhhTable *table);

/* Releases the table lock and frees the iterator. 0, or 2 for a null one. */
int gsluhhClntHashEndIter(gsluctx *ctx, gsluhhIterator *iterator);

/* A read-only iteration in the caller's iterator, holding the table's read
 * lock until gsluhhClntHashRDONLYEndIter. 0; 2 for a null argument, an
 * invalid table or a lock failure (no lock is held then). */
int gsluhhClntHashRDONLYBeginIter(gsluctx *ctx, gsluhhTable *table, gsluhhIterator *iterator);

/* Releases the table lock of a read-only iteration. 0, or 2 for a null one. */
int gsluhhClntHashRDONLYEndIter(gsluctx *ctx, gsluhhIterator *iterator);

/* Steps to the next element (bucket by bucket, each chain in insertion
 * order) and hands out its key and value (either pointer may be null).
 * 0; 1003 at the end, with both outputs null; 2 for a null iterator; the
 * verification status for an invalid table. */
int gsluhhClntHashIterNext(gsluctx *ctx, const char **key, void **value, gsluhhIterator *iterator);

/* gsluhhClntHashIterNext yielding the element's integer key. */
int gsluhhClntintHashIterNext(gsluctx *ctx, uint32_t *intKey, void **value,
                              gsluhhIterator *iterator);

/* ---- Diagnostics -------------------------------------------------------- */

/* Writes the table's layout, bucket by bucket, to the file fileName
 * (created or emptied). Takes no lock; values are printed as strings. 0; 2
 * when the file cannot be opened; the verification status otherwise. */
int gsluhhClntHashTableDump(gsluctx *ctx, gsluhhTable *table, const char *fileName);

/* Writes "key: value\n" (or "key: \n" for a null value) for every element,
 * bucket by bucket, into buffer, which is first set to "". The caller
 * provides enough room. Takes no lock. 0; 2 for a null buffer; the
 * verification status otherwise. */
int gsluhhClntHashTableDumpinBuff(gsluctx *ctx, gsluhhTable *table, char *buffer);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_UTIL_HASH_H */

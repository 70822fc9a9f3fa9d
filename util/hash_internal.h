// util/hash_internal.h - the layout of a hash table and its buckets.
// Internal to the hash table and its tests (C++ only): callers see both as
// opaque types, which also keeps the locks' types out of the public header.
#ifndef QUILLOMAT_UTIL_HASH_INTERNAL_H
#define QUILLOMAT_UTIL_HASH_INTERNAL_H

#include <pthread.h>

#include <cstdint>

#include "util/hash.h"

struct gsluhhBucket {
  pthread_rwlock_t lock; /* initialised only with bucket locks */
  gsluhhElement *head;
  gsluhhElement *tail;
  uint32_t count;
};

/* The table record. */
struct gsluhhTable {
  pthread_rwlock_t lock;
  gsluhhBucket *buckets; /* bucket_count + 1; the last stays empty */
  uint32_t ready;        /* 0 while re-initialising, and once freed */
  uint32_t *weights;     /* GSLUHH_WEIGHT_COUNT weights of the hash */
  gsluhhHashFunction hash;
  uint32_t bucket_count;
  uint32_t element_count;
  uint32_t magic;       /* GSLUHH_MAGIC while the table lives */
  int32_t lang_compare; /* GSLUHH_OPT_LANGCMP */
  int32_t nocase;       /* GSLUHH_OPT_NOCASE */
  int32_t value_is_key; /* GSLUHH_OPT_VALUE_IS_KEY */
  int32_t compare_mode; /* GSLUHH_CMP_* */
  uint32_t ref_count;
  int32_t bucket_locks;          /* fixed at creation */
  int32_t search_lock;           /* GSLUHH_OPT_LOCK_SEARCH */
  gsluhhReleaseFunction release; /* GSLUHH_OPT_FREEFUNC */
};

#endif  // QUILLOMAT_UTIL_HASH_INTERNAL_H

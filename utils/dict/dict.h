// The options dictionary: a string-to-string hash map, in which the host passes its options and in which scripts keep
// their arguments.
//
// Conventions:
//  1. The dictionary owns copies of all its keys and values; what it hands out are pointers into it. A value stays
//     valid until its key is added again or the dictionary is deleted, a key until the dictionary is deleted.
//  2. A null dictionary is accepted everywhere and never logged. Keys must not be null; values may be.
//  3. There is no lock: reads may run together, anything else needs the dictionary for itself.
//
// The host builds dictionaries of its own with the layout below, so no field may move, and the order of enumeration is
// the order in which scripts see their arguments, so no step of the algorithm may change.

#ifndef RUBRUF_UTILS_DICT_DICT_H_
#define RUBRUF_UTILS_DICT_DICT_H_

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "../export.h"

#ifdef __cplusplus
extern "C" {
#endif

// The hash table: open addressing over a power-of-two number of buckets.
typedef struct tev_dict_table_t {
  uint32_t bucket_count;      // 0 before the first add, then at least 4
  uint32_t entry_count;       // live entries
  uint32_t occupied_count;    // buckets that are not empty; equals `entry_count` outside an add
  uint32_t growth_threshold;  // an add rebuilds the table first when `occupied_count` has reached this
  uint32_t* flags;            // 2 bits a bucket, 16 buckets a word: 2 empty, 1 deleted, 0 live
  char** keys;
  char** values;
} tev_dict_table_t;

typedef struct tev_dict_t {
  tev_dict_table_t* table;
} tev_dict_t;

// The name that the host's interface uses for the same record.
typedef struct tev_dict_t tev_custom_options;

// Returns false to stop the enumeration. May neither add to nor delete the dictionary that is being enumerated.
typedef bool (*tev_dict_enum_clb)(const char* key, const char* value, void* user);

// A new, empty dictionary, to be released with tev_dict_delete; null when memory ran out.
TEV_EXPORT tev_dict_t* tev_dict_create(void);

// Stores a copy of `value` (null is kept as null) under a copy of `key`, replacing the value of a key already there.
// False when the dictionary is null or memory ran out; the entries are then as before.
TEV_EXPORT bool tev_dict_add(tev_dict_t* dict, const char* key, const char* value);

// The value stored under `key`, owned by the dictionary. Null both for an absent key and for a null value.
TEV_EXPORT char* tev_dict_get(const tev_dict_t* dict, const char* key);

// Calls `callback` for each entry in bucket order until it returns false. True when every entry was visited.
TEV_EXPORT bool tev_dict_enum(const tev_dict_t* dict, tev_dict_enum_clb callback, void* user);

// Logs every pair at debug level, under a headline with `name`.
TEV_EXPORT void tev_dict_dump(const tev_dict_t* dict, const char* name);

// Frees the dictionary and all that it owns.
TEV_EXPORT void tev_dict_delete(tev_dict_t* dict);

#ifdef __cplusplus
}  // extern "C"

static_assert(offsetof(tev_dict_table_t, flags) == 16);
static_assert(offsetof(tev_dict_table_t, keys) == 24);
static_assert(offsetof(tev_dict_table_t, values) == 32);
static_assert(sizeof(tev_dict_table_t) == 40 && sizeof(tev_dict_t) == sizeof(void*));
#endif

#endif  // RUBRUF_UTILS_DICT_DICT_H_

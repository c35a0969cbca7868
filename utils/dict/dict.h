// The options dictionary: a hash map from text to text. The host passes its options in one, and each script keeps its
// arguments in one.
//
// Conventions:
//  1. The dictionary owns copies of all keys and values. It returns pointers to its copies. A value is valid until its
//     key is added again or the dictionary is deleted. A key is valid until the dictionary is deleted.
//  2. Every function accepts a null dictionary, without a message. Keys must not be null; values may be.
//  3. There is no lock. Reads may run at the same time; an add or a delete needs the dictionary for itself.
//
// Hosts build dictionaries with the layout below, so no field may move. Scripts see their arguments in the order of
// enumeration, so no step of the algorithm may change.

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
  uint32_t* flags;            // 2 bits for each bucket, 16 buckets in a word: 2 empty, 1 deleted, 0 live
  char** keys;
  char** values;
} tev_dict_table_t;

typedef struct tev_dict_t {
  tev_dict_table_t* table;
} tev_dict_t;

// The name that the host's interface uses for the same record.
typedef struct tev_dict_t tev_custom_options;

// Returns true to go on and false to stop. It must not add to the dictionary that is being enumerated, nor delete it.
typedef bool (*tev_dict_enum_clb)(const char* key, const char* value, void* user);

// A new, empty dictionary, which the caller releases with tev_dict_delete. Null if memory ran out.
TEV_EXPORT tev_dict_t* tev_dict_create(void);

// Stores a copy of `value` under a copy of `key`; a null value is kept as null. If the key is there already, its value
// is replaced. False if the dictionary is null or memory ran out; the entries are then unchanged.
TEV_EXPORT bool tev_dict_add(tev_dict_t* dict, const char* key, const char* value);

// The value of `key`, which the dictionary owns. Null for an absent key, and also for a null value.
TEV_EXPORT char* tev_dict_get(const tev_dict_t* dict, const char* key);

// Calls `callback` for each entry, in the order of the buckets, until it returns false. True if all entries were
// visited.
TEV_EXPORT bool tev_dict_enum(const tev_dict_t* dict, tev_dict_enum_clb callback, void* user);

// Logs a headline with `name` and then every pair, at debug level.
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

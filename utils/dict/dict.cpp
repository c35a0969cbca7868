// The options dictionary's hash table.

#include "utils/dict/dict.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "utils/log/log.h"

namespace {

constexpr uint32_t kEmpty = 2;
constexpr uint32_t kDeleted = 1;

uint32_t FlagShift(uint32_t bucket) { return 2 * (bucket % 16); }
uint32_t FlagOf(const uint32_t* flags, uint32_t bucket) { return flags[bucket / 16] >> FlagShift(bucket) & 3; }
bool IsEmpty(const uint32_t* flags, uint32_t bucket) { return (FlagOf(flags, bucket) & kEmpty) != 0; }
bool IsLive(const uint32_t* flags, uint32_t bucket) { return FlagOf(flags, bucket) == 0; }
void MarkLive(uint32_t* flags, uint32_t bucket) { flags[bucket / 16] &= ~(UINT32_C(3) << FlagShift(bucket)); }
void MarkDeleted(uint32_t* flags, uint32_t bucket) { flags[bucket / 16] |= kDeleted << FlagShift(bucket); }

uint32_t Hash(const char* key) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(key);
  uint32_t hash = *bytes;
  if (hash == 0) return 0;
  while (*++bytes != 0) hash = hash * 31 + *bytes;
  return hash;
}

// The buckets to try for a key, in order: its home bucket, then steps of 1, 2, 3, ... With a power-of-two count this
// reaches every bucket.
class Probe {
 public:
  Probe(const char* key, uint32_t bucket_count) : mask_(bucket_count - 1), home_(Hash(key) & mask_), bucket_(home_) {}
  uint32_t bucket() const { return bucket_; }
  // False when the next bucket is the home bucket again.
  bool Next() {
    bucket_ = (bucket_ + ++step_) & mask_;
    return bucket_ != home_;
  }

 private:
  uint32_t mask_;
  uint32_t home_;
  uint32_t bucket_;
  uint32_t step_ = 0;
};

// True if the table holds `key`; `bucket` is then the key's bucket. Otherwise `bucket` is the empty bucket for it. The
// table must have buckets. A table that a host built may have no empty bucket: the search then ends after all buckets.
bool Find(const tev_dict_table_t* table, const char* key, uint32_t* bucket) {
  Probe probe(key, table->bucket_count);
  do {
    *bucket = probe.bucket();
    if (IsEmpty(table->flags, *bucket)) return false;
    if (IsLive(table->flags, *bucket) && strcmp(table->keys[*bucket], key) == 0) return true;
  } while (probe.Next());
  return false;
}

bool Enlarge(char*** array, uint32_t count) {
  void* enlarged = realloc(*array, count * sizeof(char*));
  if (enlarged == nullptr) return false;
  *array = static_cast<char**>(enlarged);
  return true;
}

// Moves every entry to its bucket under `new_flags`, in place. If the bucket still holds an old entry, the two are
// exchanged, and the old entry is moved next.
void MoveEntries(tev_dict_table_t* table, uint32_t* new_flags, uint32_t new_count) {
  for (uint32_t old = 0; old < table->bucket_count; ++old) {
    if (!IsLive(table->flags, old)) continue;
    MarkDeleted(table->flags, old);
    char* key = table->keys[old];
    char* value = table->values[old];
    for (bool carrying = true; carrying;) {
      Probe probe(key, new_count);
      while (!IsEmpty(new_flags, probe.bucket())) probe.Next();
      const uint32_t bucket = probe.bucket();
      MarkLive(new_flags, bucket);
      carrying = bucket < table->bucket_count && IsLive(table->flags, bucket);
      if (carrying) {
        std::swap(key, table->keys[bucket]);
        std::swap(value, table->values[bucket]);
        MarkDeleted(table->flags, bucket);
      } else {
        table->keys[bucket] = key;
        table->values[bucket] = value;
      }
    }
  }
}

// Doubles the number of buckets. False if memory ran out; the entries and their places are then unchanged.
bool Grow(tev_dict_table_t* table) {
  if (table->bucket_count > UINT32_MAX / 2) return false;
  const uint32_t new_count = table->bucket_count == 0 ? 4 : table->bucket_count * 2;
  const size_t flag_bytes = (new_count < 16 ? 1 : new_count / 16) * sizeof(uint32_t);
  auto* new_flags = static_cast<uint32_t*>(malloc(flag_bytes));
  if (new_flags == nullptr) return false;
  memset(new_flags, 0xAA, flag_bytes);
  if (!Enlarge(&table->keys, new_count) || !Enlarge(&table->values, new_count)) {
    free(new_flags);
    return false;
  }
  MoveEntries(table, new_flags, new_count);
  free(table->flags);
  table->flags = new_flags;
  table->bucket_count = new_count;
  table->occupied_count = table->entry_count;
  // NOLINTNEXTLINE(bugprone-incorrect-roundings): hosts compute the threshold by the same formula
  table->growth_threshold = static_cast<uint32_t>(new_count * 0.77 + 0.5);
  return true;
}

bool StoreCopies(tev_dict_table_t* table, char* key, char* value) {
  if (table->occupied_count >= table->growth_threshold && !Grow(table)) return false;
  uint32_t bucket = 0;
  if (Find(table, key, &bucket)) {
    free(key);
    free(table->values[bucket]);
  } else {
    table->keys[bucket] = key;
    MarkLive(table->flags, bucket);
    ++table->entry_count;
    ++table->occupied_count;
  }
  table->values[bucket] = value;
  return true;
}

}  // namespace

tev_dict_t* tev_dict_create(void) {
  auto* dict = static_cast<tev_dict_t*>(malloc(sizeof(tev_dict_t)));
  if (dict == nullptr) return nullptr;
  dict->table = static_cast<tev_dict_table_t*>(calloc(1, sizeof(tev_dict_table_t)));
  if (dict->table == nullptr) {
    free(dict);
    return nullptr;
  }
  return dict;
}

bool tev_dict_add(tev_dict_t* dict, const char* key, const char* value) {
  if (dict == nullptr) return false;
  char* key_copy = strdup(key);
  char* value_copy = value == nullptr ? nullptr : strdup(value);
  const bool copied = key_copy != nullptr && (value == nullptr || value_copy != nullptr);
  if (copied && StoreCopies(dict->table, key_copy, value_copy)) return true;
  free(key_copy);
  free(value_copy);
  return false;
}

char* tev_dict_get(const tev_dict_t* dict, const char* key) {
  if (dict == nullptr || dict->table->bucket_count == 0) return nullptr;
  uint32_t bucket = 0;
  return Find(dict->table, key, &bucket) ? dict->table->values[bucket] : nullptr;
}

bool tev_dict_enum(const tev_dict_t* dict, tev_dict_enum_clb callback, void* user) {
  if (dict == nullptr) return true;
  const tev_dict_table_t* table = dict->table;
  for (uint32_t bucket = 0; bucket < table->bucket_count; ++bucket) {
    if (IsLive(table->flags, bucket) && !callback(table->keys[bucket], table->values[bucket], user)) return false;
  }
  return true;
}

void tev_dict_dump(const tev_dict_t* dict, const char* name) {
  if (dict == nullptr) return;
  TEV_UTIL_LOG(TEV_LOG_DEBUG, "%s map values: ", name);
  tev_dict_enum(
      dict,
      [](const char* key, const char* value, void*) {
        TEV_UTIL_LOG(TEV_LOG_DEBUG, "key=%s  val=%s", key, value == nullptr ? "(null)" : value);
        return true;
      },
      nullptr);
}

void tev_dict_delete(tev_dict_t* dict) {
  if (dict == nullptr) return;
  tev_dict_enum(
      dict,
      [](const char* key, const char* value, void*) {
        free(const_cast<char*>(key));
        free(const_cast<char*>(value));
        return true;
      },
      nullptr);
  free(dict->table->keys);
  free(dict->table->flags);
  free(dict->table->values);
  free(dict->table);
  free(dict);
}

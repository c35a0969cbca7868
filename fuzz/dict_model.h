// The table of an options dictionary, bucket by bucket: as it must be after the same adds, and as it is.

#ifndef RUBRUF_FUZZ_DICT_MODEL_H_
#define RUBRUF_FUZZ_DICT_MODEL_H_

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/expect.h"
#include "utils/dict/dict.h"

namespace fuzz {

using DictValue = std::optional<std::string>;  // nothing: a null value
using DictEntry = std::pair<std::string, DictValue>;
using DictBuckets = std::vector<std::optional<DictEntry>>;

inline DictValue ToDictValue(const char* text) { return text == nullptr ? std::nullopt : DictValue(text); }

struct DictModel {
  DictBuckets buckets;
  size_t entry_count = 0;

  size_t Threshold() const { return (buckets.size() * 77 + 50) / 100; }

  void Add(const std::string& key, const DictValue& value) {
    if (entry_count >= Threshold()) Grow();
    auto& bucket = buckets[Walk(key, [&](const DictEntry& entry) { return entry.first == key; })];
    if (!bucket) ++entry_count;
    bucket = DictEntry(key, value);
  }

  // Old entries move in bucket order; one that stands where another must go is taken out and goes next.
  void Grow() {
    DictBuckets old(buckets.empty() ? 4 : 2 * buckets.size());
    old.swap(buckets);
    for (auto& bucket : old) {
      for (auto carried = std::exchange(bucket, std::nullopt); carried;) {
        const size_t i = Walk(carried->first, [](const DictEntry&) { return false; });
        buckets[i] = std::move(carried);
        carried = i < old.size() ? std::exchange(old[i], std::nullopt) : std::nullopt;
      }
    }
  }

  // The first bucket on the way of `key` that is empty or that `stop` accepts.
  template <typename Stop>
  size_t Walk(const std::string& key, Stop stop) const {
    uint32_t hash = 0;
    for (const char c : key) hash = hash * 31 + static_cast<unsigned char>(c);
    size_t i = hash % buckets.size();
    for (size_t step = 1; buckets[i] && !stop(*buckets[i]); ++step) i = (i + step) % buckets.size();
    return i;
  }

  std::vector<DictEntry> Entries() const {
    std::vector<DictEntry> entries;
    for (const auto& bucket : buckets) {
      if (bucket) entries.push_back(*bucket);
    }
    return entries;
  }
};

inline DictBuckets ReadBuckets(const tev_dict_table_t& table) {
  DictBuckets buckets(table.bucket_count);
  for (size_t i = 0; i < (buckets.size() + 15) / 16 * 16; ++i) {
    const uint32_t flags = table.flags[i / 16] >> 2 * (i % 16) & 3;
    const bool live = flags == 0 && i < buckets.size();
    Expect(live || flags == 2, "a bucket is live or empty");
    if (live) buckets[i] = DictEntry(table.keys[i], ToDictValue(table.values[i]));
  }
  return buckets;
}

}  // namespace fuzz

#endif  // RUBRUF_FUZZ_DICT_MODEL_H_

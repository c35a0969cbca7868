// Tests of the options dictionary: its table, bucket by bucket, against a model, and its operations.

#include "utils/dict/dict.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <random>

#include "tests/library.h"

namespace {

RUBRUF_IMPORT(tev_dict_create);
RUBRUF_IMPORT(tev_dict_add);
RUBRUF_IMPORT(tev_dict_get);
RUBRUF_IMPORT(tev_dict_enum);
RUBRUF_IMPORT(tev_dict_dump);
RUBRUF_IMPORT(tev_dict_delete);

using Value = std::optional<std::string>;
using Entry = std::pair<std::string, Value>;
using Dict = std::unique_ptr<tev_dict_t, void (*)(tev_dict_t*)>;

Value ToValue(const char* text) { return text ? Value(text) : std::nullopt; }

Dict NewDict(const char* one_letter_keys = "") {
  Dict dict(tev_dict_create(), tev_dict_delete);
  for (; *one_letter_keys; ++one_letter_keys) tev_dict_add(dict.get(), std::string(1, *one_letter_keys).c_str(), "%d");
  return dict;
}

std::vector<Entry> Enumerate(const tev_dict_t* dict) {
  std::vector<Entry> entries;
  const auto append = [](const char* key, const char* value, void* user) {
    static_cast<std::vector<Entry>*>(user)->emplace_back(key, ToValue(value));
    return true;
  };
  EXPECT_TRUE(tev_dict_enum(dict, append, &entries));
  return entries;
}

using Buckets = std::vector<std::optional<Entry>>;

Buckets ReadBuckets(const tev_dict_table_t& table) {
  Buckets buckets(table.bucket_count);
  for (size_t i = 0; i < (buckets.size() + 15) / 16 * 16; ++i) {
    const uint32_t flags = table.flags[i / 16] >> 2 * (i % 16) & 3;
    const bool live = flags == 0 && i < buckets.size();
    EXPECT_TRUE(live || flags == 2) << "bucket " << i << " has the flags " << flags;
    if (live) buckets[i] = Entry(table.keys[i], ToValue(table.values[i]));
  }
  return buckets;
}

// The table as it must be after the same adds.
struct Model {
  Buckets buckets;
  size_t entry_count = 0;

  size_t Threshold() const { return (buckets.size() * 77 + 50) / 100; }

  void Add(const std::string& key, const Value& value) {
    if (entry_count >= Threshold()) Grow();
    auto& bucket = buckets[Walk(key, [&](const Entry& entry) { return entry.first == key; })];
    if (!bucket) ++entry_count;
    bucket = Entry(key, value);
  }

  // Old entries move in bucket order; one that stands where another must go is taken out and goes next.
  void Grow() {
    Buckets old(buckets.empty() ? 4 : 2 * buckets.size());
    old.swap(buckets);
    for (auto& bucket : old) {
      for (auto carried = std::exchange(bucket, std::nullopt); carried;) {
        const size_t i = Walk(carried->first, [](const Entry&) { return false; });
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
};

// Short keys of few letters: many come again, and many collide ("Aa" and "BB" even in all 32 bits of the hash).
std::string RandomKey(std::mt19937& random) {
  static constexpr char kLetters[] = {'a', 'e', 'i', 'A', 'B', '\x7f', '\x80', '\xe1', '\xff', '\x01'};
  std::string key(random() % 5, ' ');
  for (char& c : key) c = kLetters[random() % sizeof kLetters];
  return random() % 16 ? key : key + "/the hash of this one overflows/" + std::to_string(random() % 50);
}

TEST(Dict, HasTheTableOfTheModelAfterEveryAdd) {
  for (const unsigned seed : {1U, 2U, 3U}) {
    std::mt19937 random(seed);
    const Dict dict = NewDict();
    const tev_dict_table_t& table = *dict->table;
    Model model;
    for (int add = 0; add < 1500; ++add) {
      const std::string key = RandomKey(random);
      const Value value = random() % 8 ? Value(std::to_string(add)) : std::nullopt;
      ASSERT_TRUE(tev_dict_add(dict.get(), key.c_str(), value ? value->c_str() : nullptr));
      model.Add(key, value);
      ASSERT_EQ(ReadBuckets(table), model.buckets) << "seed " << seed << ", add " << add;
      ASSERT_EQ(table.entry_count, model.entry_count);
      ASSERT_EQ(table.occupied_count, model.entry_count);
      ASSERT_EQ(table.growth_threshold, model.Threshold());
    }
    std::vector<Entry> live;
    for (const auto& entry : model.buckets) {
      if (entry) live.push_back(*entry);
    }
    EXPECT_EQ(Enumerate(dict.get()), live);
    for (const auto& [key, value] : live) EXPECT_EQ(ToValue(tev_dict_get(dict.get(), key.c_str())), value);
    for (int i = 0; i < 2000; ++i) EXPECT_EQ(tev_dict_get(dict.get(), ("none" + std::to_string(i)).c_str()), nullptr);
  }
}

TEST(Dict, EnumeratesInBucketOrder) {
  const struct {
    const char *keys, *order;
    uint32_t bucket_count, threshold;
  } cases[] = {{"", "", 0, 0},     {"ba", "ab", 4, 3},  {"aei", "iae", 4, 3},          {"aeia", "iae", 8, 6},
               {"Aa", "Aa", 4, 3}, {"aaaa", "a", 4, 3}, {"abcdefg", "abcdefg", 16, 12}};
  for (const auto& test : cases) {
    const Dict dict = NewDict(test.keys);
    std::string order;
    for (const auto& entry : Enumerate(dict.get())) order += entry.first;
    EXPECT_EQ(order, test.order);
    EXPECT_EQ(dict->table->bucket_count, test.bucket_count) << test.keys;
    EXPECT_EQ(dict->table->growth_threshold, test.threshold) << test.keys;
  }
}

TEST(Dict, OwnsCopiesAndKeepsTheFirstCopyOfAKey) {
  const Dict dict = NewDict();
  std::string key = "b";
  std::string value = "value";
  tev_dict_add(dict.get(), key.c_str(), value.c_str());
  key[0] = value[0] = '?';
  char* const* const stored_key = &dict->table->keys[2];
  const char* const first = *stored_key;
  tev_dict_add(dict.get(), "b", tev_dict_get(dict.get(), "b"));  // its own value: copied before it is freed
  EXPECT_EQ(*stored_key, first);
  EXPECT_EQ(Enumerate(dict.get()), std::vector<Entry>({{"b", "value"}}));
}

// A host may fill every bucket and mark entries deleted; a search must neither stop short of an entry nor go on for
// ever.
TEST(Dict, ReadsTablesThatAHostBuilt) {
  char text[] = "i\0a\0e\0m";  // all at home in bucket 1, and from there on their way to 2, 0 and 3
  char* entries[] = {text, text + 2, text + 4, text + 6};
  uint32_t flags = 0xAAAAAA00 | 1U << 2;
  tev_dict_table_t table = {4, 3, 4, 3, &flags, entries, entries};
  const tev_dict_t dict = {&table};
  EXPECT_EQ(Enumerate(&dict), std::vector<Entry>({{"i", "i"}, {"e", "e"}, {"m", "m"}}));
  EXPECT_EQ(tev_dict_get(&dict, "m"), entries[3]);
  for (const char* absent : {"a", "q", "b", ""}) EXPECT_EQ(tev_dict_get(&dict, absent), nullptr) << absent;
}

TEST(Dict, StopsEnumeratingWhenToldTo) {
  const auto count_down = [](const char*, const char*, void* user) { return --*static_cast<int*>(user) > 0; };
  for (int visits = 1; visits <= 4; ++visits) {
    int left = visits;
    EXPECT_EQ(tev_dict_enum(NewDict("abc").get(), count_down, &left), visits > 3);
    EXPECT_EQ(left, visits > 3 ? 1 : 0);
  }
}

TEST(Dict, AcceptsNullAndEmptyDictionariesSilently) {
  LogCatcher log(TEV_LOG_DEBUG);
  const auto fail = [](const char*, const char*, void*) { return false; };
  for (const Dict& dict : {Dict(nullptr, tev_dict_delete), NewDict()}) {
    EXPECT_EQ(tev_dict_get(dict.get(), "key"), nullptr);
    EXPECT_TRUE(tev_dict_enum(dict.get(), fail, nullptr));
  }
  EXPECT_FALSE(tev_dict_add(nullptr, "key", "value"));
  tev_dict_dump(nullptr, "name");
  tev_dict_delete(nullptr);
  EXPECT_EQ(log.Take(), LogCatcher::Messages());
}

TEST(Dict, DumpsItsEntriesAtDebugLevel) {
  const LogCatcher::Messages lines = {
      {7, "%s map values: "}, {7, "key=i  val=%d"}, {7, "key=a  val=%d"}, {7, "key=e  val=%d"}};
  for (const int level : {TEV_LOG_INFO, TEV_LOG_DEBUG}) {
    LogCatcher log(level);
    tev_dict_dump(NewDict("aei").get(), "%s");
    EXPECT_EQ(log.Take(), level == TEV_LOG_DEBUG ? lines : LogCatcher::Messages());
  }
}

}  // namespace

// Tests of the options dictionary and its hash table.

#include "utils/dict/dict.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>

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

// The key in each bucket, or "." for an empty bucket, with a blank before each.
std::string Buckets(const tev_dict_table_t& table) {
  std::string buckets;
  for (uint32_t i = 0; i < (table.bucket_count + 15) / 16 * 16; ++i) {
    const uint32_t flags = table.flags[i / 16] >> 2 * (i % 16) & 3;
    EXPECT_TRUE(flags == 2 || (flags == 0 && i < table.bucket_count)) << "a bucket is empty or live: " << i;
    if (i < table.bucket_count) buckets += flags == 0 ? std::string(" ") + table.keys[i] : " .";
  }
  return buckets;
}

// Hosts and scripts rely on the layout and on the order of enumeration.
TEST(Dict, PutsEachKeyIntoItsBucketAndGrows) {
  // Number of entries; then the growth threshold and the buckets.
  std::map<size_t, std::string> stages{
      {2, "3 . i a ."},
      {3, "6 . i a . . e . ."},
      {5, "6  i a . . e m ."},
      {11, "12  a q Aa . e BB . . i \xe9 . BBAa m . AaBB"},
      {12, "25  a . Aa . e BB . . i \xe9 . . m . BBAa . q . . . AaBB . . . y . . . . . ."},
      {24, "25  a \x81 Aa A e BB one . i \xe9 . two m . BBAa four q 1 . Q AaBB u BBBB 5 y . . AaAa . three ."},
      {28,
       "49  \x81 A Aa . . BB . . . BBAa . two seven . AaBB eight Q . . . BBBB . . . . . . AaAa . three . . a six . . e "
       "one four . i \xe9 . . m . . . q 1 five . u 5 . . y . . . . . ."}};
  const Dict dict(tev_dict_create(), tev_dict_delete);
  std::map<std::string, Value> model;
  for (const char* key :
       {"i", "a", "e",    "m",    "",  "q", "\xe9", "Aa",  "BB",    "AaBB", "BBAa", "y",   "\x81",  "1",
        "A", "Q", "AaAa", "BBBB", "u", "5", "one",  "two", "three", "four", "five", "six", "seven", "eight"}) {
    for (const Value& value : {Value("first"), Value(), Value(std::string(key) + "!")}) {
      EXPECT_TRUE(tev_dict_add(dict.get(), key, value ? value->c_str() : nullptr));
      model[key] = value;
      EXPECT_EQ(ToValue(tev_dict_get(dict.get(), key)), value);
    }
    std::vector<Entry> entries = Enumerate(dict.get());
    std::sort(entries.begin(), entries.end());
    EXPECT_EQ(entries, std::vector<Entry>(model.begin(), model.end()));
    for (const auto& [known, value] : model) EXPECT_EQ(ToValue(tev_dict_get(dict.get(), known.c_str())), value);
    EXPECT_EQ(tev_dict_get(dict.get(), "absent"), nullptr);
    const tev_dict_table_t& table = *dict->table;
    EXPECT_TRUE(table.entry_count == model.size() && table.occupied_count == model.size()) << key;
    if (stages.count(model.size()) == 0) continue;
    EXPECT_EQ(std::to_string(table.growth_threshold) + Buckets(table), stages[model.size()]);
    stages.erase(model.size());
  }
  EXPECT_TRUE(stages.empty());
  size_t seen = 0;
  const auto see_three = [](const char*, const char*, void* count) { return ++*static_cast<size_t*>(count) < 3; };
  EXPECT_FALSE(tev_dict_enum(dict.get(), see_three, &seen));
  EXPECT_EQ(seen, 3U);
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

// A host may build a table that is full or has deleted entries. A search must find each entry, and must end.
TEST(Dict, ReadsTablesThatAHostBuilt) {
  char text[] = "i\0a\0e\0m";  // all have home bucket 1, and are tried next in 2, 0 and 3
  char* entries[] = {text, text + 2, text + 4, text + 6};
  uint32_t flags = 0xAAAAAA00 | 1U << 2;
  tev_dict_table_t table = {4, 3, 4, 3, &flags, entries, entries};
  const tev_dict_t dict = {&table};
  EXPECT_EQ(Enumerate(&dict), std::vector<Entry>({{"i", "i"}, {"e", "e"}, {"m", "m"}}));
  EXPECT_EQ(tev_dict_get(&dict, "m"), entries[3]);
  for (const char* absent : {"a", "q", "b", ""}) EXPECT_EQ(tev_dict_get(&dict, absent), nullptr) << absent;
}

TEST(Dict, GrowsOutOfEntriesThatAHostDeleted) {
  const Dict dict = NewDict("ia");
  tev_dict_table_t& table = *dict->table;
  free(table.keys[1]);
  free(table.values[1]);
  table.flags[0] |= 1U << 2;
  --table.entry_count;
  for (const char* key : {"m", "e"}) EXPECT_TRUE(tev_dict_add(dict.get(), key, key));
  EXPECT_EQ(Buckets(table), " . a . . . m e .");
  EXPECT_EQ(std::to_string(table.entry_count) + std::to_string(table.occupied_count), "33");
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

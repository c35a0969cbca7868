// Tests of the options dictionary; the table behind it is compared with a model where it is fuzzed.

#include "utils/dict/dict.h"

#include <gtest/gtest.h>

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

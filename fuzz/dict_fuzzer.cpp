// Fuzz target: operations on the options dictionary, against a std::map.

#include <map>
#include <memory>

#include "fuzz/expect.h"
#include "fuzz/input.h"
#include "utils/dict/dict.h"

namespace {

using fuzz::Expect, fuzz::ExpectEqual;

using Value = std::optional<std::string>;
using Model = std::map<std::string, Value>;
using Dict = std::unique_ptr<tev_dict_t, void (*)(tev_dict_t*)>;

Value ToValue(const char* text) { return text == nullptr ? std::nullopt : Value(text); }

// The entries that an enumeration shows which its callback ends after `limit` of them.
Model Enumerate(const tev_dict_t* dict, size_t limit) {
  struct Seen {
    Model entries;
    size_t left;
  } seen{{}, limit};
  const auto see = [](const char* key, const char* value, void* user) {
    auto* all = static_cast<Seen*>(user);
    Expect(all->left > 0, "an enumeration that was stopped goes no further");
    Expect(all->entries.emplace(key, ToValue(value)).second, "an enumeration shows a key once");
    return --all->left > 0;
  };
  const bool went_through = tev_dict_enum(dict, see, &seen);
  ExpectEqual(went_through, seen.left > 0, "an enumeration tells whether it was stopped");
  return seen.entries;
}

void CheckTable(const tev_dict_table_t& table, size_t entries) {
  const size_t buckets = table.bucket_count;
  ExpectEqual(size_t{table.entry_count}, entries, "the count of entries");
  ExpectEqual(table.occupied_count, table.entry_count, "the count of buckets in use");
  ExpectEqual(size_t{table.growth_threshold}, (buckets * 77 + 50) / 100, "the growth threshold");
  Expect((buckets & (buckets - 1)) == 0 && (buckets == 0 || buckets > entries), "a bucket stays empty");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const Dict dict(tev_dict_create(), tev_dict_delete);
  Model model;
  while (!input.empty()) {
    const uint8_t operation = input.Byte() % 8;
    const std::string key = input.Text(6).c_str();  // as far as C reads it
    if (operation < 5) {
      const Value value = operation == 0 ? std::nullopt : ToValue(input.Text(4).c_str());
      Expect(tev_dict_add(dict.get(), key.c_str(), value ? value->c_str() : nullptr), "adding succeeds");
      model[key] = value;
      CheckTable(*dict->table, model.size());
    } else if (operation < 7) {
      const auto entry = model.find(key);
      ExpectEqual(ToValue(tev_dict_get(dict.get(), key.c_str())), entry == model.end() ? std::nullopt : entry->second,
                  "the value of " + key);
    } else {
      const size_t limit = 1 + input.Byte();
      ExpectEqual(Enumerate(dict.get(), limit).size(), std::min(limit, model.size()), "entries seen");
    }
  }
  Expect(Enumerate(dict.get(), model.size() + 1) == model, "the entries are those that were added");
  for (const auto& [key, value] : model) ExpectEqual(ToValue(tev_dict_get(dict.get(), key.c_str())), value, key);
  return 0;
}

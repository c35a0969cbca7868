// Fuzz target: operations on the options dictionary, against a model of its table.

#include <algorithm>
#include <memory>

#include "fuzz/dict_model.h"
#include "fuzz/expect.h"
#include "fuzz/input.h"
#include "utils/dict/owned_dict.h"

namespace {

using fuzz::Expect, fuzz::ExpectEqual;

using Entries = std::vector<fuzz::DictEntry>;

// The entries that an enumeration shows which its callback ends after `limit` of them.
Entries Enumerate(const tev_dict_t* dict, size_t limit) {
  struct Seen {
    Entries entries;
    size_t left;
  } seen{{}, limit};
  const auto see = [](const char* key, const char* value, void* user) {
    auto* all = static_cast<Seen*>(user);
    Expect(all->left > 0, "an enumeration that was stopped goes no further");
    all->entries.emplace_back(key, fuzz::ToDictValue(value));
    return --all->left > 0;
  };
  const bool went_through = tev_dict_enum(dict, see, &seen);
  ExpectEqual(went_through, seen.left > 0, "an enumeration tells whether it was stopped");
  return seen.entries;
}

void CheckTable(const tev_dict_table_t& table, const fuzz::DictModel& model) {
  ExpectEqual(size_t{table.entry_count}, model.entry_count, "the count of entries");
  ExpectEqual(size_t{table.occupied_count}, model.entry_count, "the count of buckets in use");
  ExpectEqual(size_t{table.growth_threshold}, model.Threshold(), "the growth threshold");
  Expect(fuzz::ReadBuckets(table) == model.buckets, "each entry stands in its bucket");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const OwnedDict dict(tev_dict_create());
  fuzz::DictModel model;
  while (!input.empty()) {
    const uint8_t operation = input.Byte() % 8;
    const std::string text = input.Text(12);
    const std::string key = text.substr(0, text.find('\0'));  // as far as C reads it
    if (operation < 5) {
      const fuzz::DictValue value = operation == 0 ? std::nullopt : fuzz::ToDictValue(input.Text(4).c_str());
      Expect(tev_dict_add(dict.get(), key.c_str(), value ? value->c_str() : nullptr), "adding succeeds");
      model.Add(key, value);
      CheckTable(*dict->table, model);
    } else if (operation < 7) {
      const Entries entries = model.Entries();
      const auto entry = std::find_if(entries.begin(), entries.end(), [&](const auto& e) { return e.first == key; });
      ExpectEqual(fuzz::ToDictValue(tev_dict_get(dict.get(), key.c_str())),
                  entry == entries.end() ? std::nullopt : entry->second, "the value of " + key);
    } else {
      Entries expected = model.Entries();
      expected.resize(std::min<size_t>(1 + input.Byte(), expected.size()));
      if (!expected.empty()) Expect(Enumerate(dict.get(), expected.size()) == expected, "the entries, as far as asked");
    }
  }
  const Entries entries = model.Entries();
  Expect(Enumerate(dict.get(), entries.size() + 1) == entries, "all entries, in bucket order");
  for (const auto& [key, value] : entries) {
    ExpectEqual(fuzz::ToDictValue(tev_dict_get(dict.get(), key.c_str())), value, key);
  }
  return 0;
}

// Fuzz target: a host's options through the plug-in's entry, and the sources and the configuration that come of them,
// against the rules of the options.

#include <cctype>
#include <memory>

#include "fuzz/expect.h"
#include "fuzz/input.h"
#include "fuzz/script_model.h"
#include "host/standin/handles.h"
#include "provider/entry.h"
#include "utils/dict/owned_dict.h"

namespace {

using fuzz::Expect, fuzz::ExpectEqual;

using Text = std::optional<std::string>;
using Pairs = std::vector<std::pair<std::string, Text>>;

constexpr const char* kKeys[] = {"",
                                 "enable-provider",
                                 "python-import-app-id",
                                 "python-import-num-scripts",
                                 "python-import-config-dir",
                                 "python-import-file",
                                 "python-import-1-file",
                                 "python-import-2-file",
                                 "python-import-function",
                                 "python-import-force-sync",
                                 "python-import-tag",
                                 "python-import-2-tag",
                                 "python-import-arg-",
                                 "python-import-arg-1-",
                                 "python-import-arg-2-"};
constexpr const char* kValues[] = {"",  nullptr, "python", "/a.py", "true",
                                   "1", "2",     "256",    "257",   "00112233-4455-6677-8899-aabbccddeeff"};
const std::string kArgument = "python-import-arg-";

Text ToText(const char* text) { return text == nullptr ? std::nullopt : Text(text); }

Text Find(const Pairs& options, const std::string& key) {
  const auto pair = std::find_if(options.begin(), options.end(), [&](const auto& p) { return p.first == key; });
  return pair == options.end() ? std::nullopt : pair->second;
}

// The first run of characters that are not white space.
std::string FirstWord(const std::string& text) {
  const size_t begin = std::min(text.find_first_not_of(fuzz::kBlanks), text.size());
  return text.substr(begin, text.find_first_of(fuzz::kBlanks, begin) - begin);
}

struct Model {
  std::string app_id = std::string(32, '0');
  std::vector<fuzz::ScriptModel> scripts;
};

bool ReadAppId(std::string text, Model* model) {
  text.erase(std::remove(text.begin(), text.end(), '-'), text.end());
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  model->app_id = text;
  return text.size() == 32 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

fuzz::ScriptModel ReadScript(const Pairs& options, size_t number) {
  const auto text = [&](const std::string& name) {
    const Text plain = Find(options, "python-import-" + name);
    return plain ? *plain : Find(options, "python-import-" + std::to_string(number) + "-" + name).value_or("");
  };
  fuzz::ScriptModel script{text("file"), text("function"), text("force-sync"), text("tag")};
  if (script.tag.empty()) script.tag = std::to_string(std::hash<std::string>{}(script.path));
  script.tag.insert(0, "dict_");
  for (const auto& [key, value] : options) {
    if (key.compare(0, kArgument.size(), kArgument) == 0) script.arguments[key.substr(kArgument.size())] = value;
  }
  return script;
}

// Hands "N-NAME" to script N, and what has no number to the only script. False where there is no such script.
bool AddArgument(const std::string& rest, const Text& value, std::vector<fuzz::ScriptModel>* scripts) {
  size_t begin = std::min(rest.find_first_not_of(fuzz::kBlanks), rest.size());
  const bool negative = rest[begin] == '-';
  if (negative || rest[begin] == '+') ++begin;
  const size_t end = std::min(rest.find_first_not_of("0123456789", begin), rest.size());
  const bool numbered = end > begin;
  if (numbered ? rest[end] != '-' : scripts->size() != 1) return true;
  const std::string name = FirstWord(numbered ? rest.substr(end + 1) : rest);
  if (name.empty()) return true;
  begin = std::min(rest.find_first_not_of('0', begin), end);  // a number of any length, by its digits
  if (numbered && (negative || end == begin || end - begin > 3)) return false;
  const size_t number = numbered ? std::stoul(rest.substr(begin, end - begin)) : 1;
  if (number > scripts->size()) return false;
  (*scripts)[number - 1].arguments[name] = value;
  return true;
}

// What comes of options, on a machine without the directories of others; false where they are refused.
bool Read(const Pairs& options, Model* model) {
  if (const Text id = Find(options, "python-import-app-id"); id && !ReadAppId(*id, model)) return false;
  const Text count_text = Find(options, "python-import-num-scripts");
  const auto count = count_text ? static_cast<uint32_t>(strtol(count_text->c_str(), nullptr, 10)) : 1;
  if (count < 1 || count > 256 || Find(options, "python-import-config-dir")) return false;
  if (Find(options, "enable-provider").value_or("").find("python") == std::string::npos) return false;
  for (uint32_t number = 1; number <= count; ++number) {
    model->scripts.push_back(ReadScript(options, number));
    if (model->scripts.back().path.empty()) return false;
  }
  return std::all_of(options.begin(), options.end(), [&](const auto& pair) {
    const auto& [key, value] = pair;
    return key.compare(0, kArgument.size(), kArgument) != 0 ||
           AddArgument(key.substr(kArgument.size()), value, &model->scripts);
  });
}

OwnedDict NewOptions() {
  OwnedDict options(tev_dict_create());
  tev_dict_add(options.get(), "enable-provider", "python");
  tev_dict_add(options.get(), "python-import-file", "/a.py");
  return options;
}

// Sets back what outlives a finalization, so that no input depends on those before it.
tev_event_provider_t* NewProvider() {
  const OwnedDict options = NewOptions();
  tev_dict_add(options.get(), "python-import-app-id", std::string(32, '0').c_str());
  tev_dict_add(options.get(), "python-import-num-scripts", "1");
  tev_event_provider_t* provider = construct_event_provider(options.get());
  Expect(provider != nullptr, "sound options are accepted");
  provider->finalize(provider);
  return provider;
}

void CheckSources(tev_event_provider_t* provider, const Model& model) {
  std::string id = model.app_id;
  for (const size_t at : {20U, 16U, 12U, 8U}) id.insert(at, "-");
  fuzz::Lines log{fuzz::Message("App ID: " + id),
                  fuzz::Message("Number of scripts: " + std::to_string(model.scripts.size()))};
  fuzz::Lines tags;
  fuzz::Lines expected_tags;
  for (size_t i = 0; i < model.scripts.size(); ++i) {
    const fuzz::Lines lines = model.scripts[i].Log(i);
    log.insert(log.end(), lines.begin(), lines.end());
    expected_tags.push_back(model.scripts[i].tag);
  }
  fuzz::TakeLog();
  const standin::SourceArray sources(provider->get_sources(provider));
  Expect(sources != nullptr, "get-sources succeeds");
  for (const auto& source : sources->sources) tags.push_back(source->tag);
  ExpectEqual(tags, expected_tags, "the sources");
  ExpectEqual(fuzz::TakeLog(), log, "the configuration log");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  tev_event_provider_t* const provider = NewProvider();
  const OwnedDict options = NewOptions();
  while (!input.empty()) {
    const std::string key = input.OneOf(kKeys) + input.Text(100);
    const char* const known = input.OneOf(kValues);
    const std::string value = known == nullptr ? "" : known + input.Text(1100);
    tev_dict_add(options.get(), key.c_str(), known == nullptr ? nullptr : value.c_str());
  }
  Pairs pairs;
  const auto append = [](const char* key, const char* value, void* all) {
    static_cast<Pairs*>(all)->emplace_back(key, ToText(value));
    return true;
  };
  tev_dict_enum(options.get(), append, &pairs);

  Model model;
  const bool accepted = Read(pairs, &model);
  ExpectEqual(construct_event_provider(options.get()) != nullptr, accepted, "the options are accepted");
  if (accepted) CheckSources(provider, model);
  provider->finalize(provider);
  fuzz::TakeLog();
  ExpectEqual(tev_source_t::live + tev_source_array_t::live, 0, "the handles left");
  return 0;
}

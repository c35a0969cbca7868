// Fuzz target: option dictionaries through the plug-in's entry, one after another in one life, and the sources and the
// configuration that they lead to, against the rules of the options.

#include <fuzzer/FuzzedDataProvider.h>

#include <cctype>
#include <memory>

#include "fuzz/expect.h"
#include "fuzz/script_model.h"
#include "host/standin/handles.h"
#include "provider/entry.h"
#include "utils/dict/dict.h"

namespace {

using Pair = std::pair<std::string, std::optional<std::string>>;
using Pairs = std::vector<Pair>;
using Dict = std::unique_ptr<tev_dict_t, void (*)(tev_dict_t*)>;

constexpr char kConfigDir[] = "python-import-config-dir";
const std::string kArgument = "python-import-arg-";

// A directory that holds no .cfg file, and none.
constexpr const char* kDirectories[] = {"/proc/self/task", "/proc/self/nowhere"};

constexpr const char* kKeys[] = {"",
                                 "enable-provider",
                                 "disable-provider",
                                 "python-import-app-id",
                                 "python-import-num-scripts",
                                 kConfigDir,
                                 "python-import-file",
                                 "python-import-function",
                                 "python-import-force-sync",
                                 "python-import-tag",
                                 "python-import-",
                                 "python-import-1-",
                                 "python-import-1-file",
                                 "python-import-2-file",
                                 "python-import-2-tag",
                                 "python-import-3-file",
                                 "python-import-arg-",
                                 "python-import-arg-1-",
                                 "python-import-arg-2-"};
constexpr const char* kValues[] = {
    "", nullptr, "python", "true", "/a.py", "1", "2", "3", "256", "257", "00112233-4455-6677-8899-aabbccddeeff"};

std::string Hash(const std::string& text) { return std::to_string(std::hash<std::string>{}(text)); }

// The first run of characters that are not white space.
std::string FirstWord(const std::string& text) {
  const size_t begin = std::min(text.find_first_not_of(kBlanks), text.size());
  return text.substr(begin, text.find_first_of(kBlanks, begin) - begin);
}

// The state of a provider whose host never initializes it, on a machine without virtual providers.
class Model {
 public:
  // The outcome of reading options, which are given in the order of the dictionary.
  bool Read(const Pairs& options) {
    if (const std::string* id = Find(options, "python-import-app-id")) {
      if (!SetAppId(*id)) return false;
    }
    if (const std::string* text = Find(options, "python-import-num-scripts")) {
      const auto count = static_cast<uint32_t>(strtol(text->c_str(), nullptr, 10));
      const bool valid = count >= 1 && count <= 256;
      num_scripts_ = valid ? count : 1;
      if (!valid) return false;
    }
    if (const std::string* directory = Find(options, kConfigDir)) {
      if (*directory != kDirectories[0]) return false;
      num_scripts_ = scripts_.size();
      return num_scripts_ != 0;
    }
    const std::string* enabled = Find(options, "enable-provider");
    if (enabled == nullptr || enabled->find("python") == std::string::npos || !AddScripts(options)) {
      scripts_.clear();
      return false;
    }
    return std::all_of(options.begin(), options.end(), [this](const auto& pair) { return AddArgument(pair); });
  }

  // Settles the tags of the scripts that are served, and returns them.
  std::vector<std::string> Tags() {
    std::vector<std::string> tags;
    for (size_t i = 0; i < std::min({num_scripts_, scripts_.size(), size_t{256}}); ++i) {
      if (scripts_[i].tag.empty()) scripts_[i].tag = "dict_" + Hash(scripts_[i].path);
      tags.push_back(scripts_[i].tag);
    }
    return tags;
  }

  Lines Log() const {
    std::string id = app_id_;
    for (const size_t at : {20U, 16U, 12U, 8U}) id.insert(at, "-");
    Lines lines{Message("App ID: " + id), Message("Number of scripts: " + std::to_string(num_scripts_))};
    for (const ScriptModel& script : scripts_) {
      const Lines more = script.Log();
      lines.insert(lines.end(), more.begin(), more.end());
    }
    return lines;
  }

 private:
  static const std::string* Find(const Pairs& options, const std::string& key) {
    const auto pair = std::find_if(options.begin(), options.end(), [&](const auto& p) { return p.first == key; });
    return pair == options.end() || !pair->second ? nullptr : &*pair->second;
  }

  bool SetAppId(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), '-'), text.end());
    const bool valid = text.size() == 32 && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    std::transform(text.begin(), text.end(), text.begin(), [](char c) { return char(std::tolower(c)); });
    app_id_ = valid ? text : std::string(32, '0');
    return valid;
  }

  bool AddScripts(const Pairs& options) {
    num_scripts_ = std::max(num_scripts_, size_t{1});
    for (size_t index = 0; index < num_scripts_; ++index) {
      const auto text = [&](const std::string& name) -> std::string {
        const std::string* plain = Find(options, "python-import-" + name);
        if (plain == nullptr) plain = Find(options, "python-import-" + std::to_string(index + 1) + "-" + name);
        return plain == nullptr ? "" : *plain;
      };
      if (text("file").empty()) return false;
      const std::string tag = text("tag");
      ScriptModel script{index, text("file"), text("function"), text("force-sync"), tag.empty() ? "" : "dict_" + tag};
      for (const auto& [key, value] : options) {
        if (key.compare(0, kArgument.size(), kArgument) == 0) script.Set(key.substr(kArgument.size()), value);
      }
      scripts_.push_back(script);
    }
    return true;
  }

  // Hands "python-import-arg-N-NAME" to script N, and what has no number to the only script.
  bool AddArgument(const Pair& pair) {
    if (pair.first.compare(0, kArgument.size(), kArgument) != 0) return true;
    const std::string rest = pair.first.substr(kArgument.size());
    size_t begin = std::min(rest.find_first_not_of(kBlanks), rest.size());
    const bool negative = rest[begin] == '-';
    if (negative || rest[begin] == '+') ++begin;
    const size_t end = std::min(rest.find_first_not_of("0123456789", begin), rest.size());
    if (end == begin) {
      const std::string name = FirstWord(rest);
      return num_scripts_ != 1 || name.empty() || Store(0, name, pair.second);
    }
    const std::string name = rest[end] == '-' ? FirstWord(rest.substr(end + 1)) : "";
    if (name.empty()) return true;
    const size_t significant = std::min(rest.find_first_not_of('0', begin), end);
    if (negative || end - significant > 3 || significant == end) return false;
    return Store(std::stoul(rest.substr(begin, end - begin)) - 1, name, pair.second);
  }

  bool Store(size_t index, const std::string& name, const std::optional<std::string>& value) {
    if (index >= std::min(scripts_.size(), size_t{256})) return false;
    scripts_[index].Set(name, value);
    return true;
  }

  std::string app_id_ = std::string(32, '0');
  size_t num_scripts_ = 1;
  std::vector<ScriptModel> scripts_;
};

Dict NewOptions() {
  Dict options(tev_dict_create(), tev_dict_delete);
  tev_dict_add(options.get(), "enable-provider", "python");
  tev_dict_add(options.get(), "python-import-file", "/a.py");
  return options;
}

// The state of a new provider, whatever inputs came before: what outlives a finalization is set back.
tev_event_provider_t* NewProvider() {
  const Dict options = NewOptions();
  tev_dict_add(options.get(), "python-import-app-id", std::string(32, '0').c_str());
  tev_dict_add(options.get(), "python-import-num-scripts", "1");
  tev_event_provider_t* provider = construct_event_provider(options.get());
  Expect(provider != nullptr, "sound options are accepted");
  provider->finalize(provider);
  return provider;
}

Dict DrawOptions(FuzzedDataProvider* bytes) {
  Dict options = NewOptions();
  for (int left = bytes->ConsumeIntegral<uint8_t>() % 16; left > 0; --left) {
    const std::string key = bytes->PickValueInArray(kKeys) + bytes->ConsumeRandomLengthString(100);
    const char* known = bytes->PickValueInArray(kValues);
    std::string value = known == nullptr ? "" : known + bytes->ConsumeRandomLengthString(1100);
    if (key.c_str() == std::string(kConfigDir)) value = kDirectories[value.size() % 2];
    tev_dict_add(options.get(), key.c_str(), known == nullptr ? nullptr : value.c_str());
  }
  return options;
}

Pairs Enumerate(const tev_dict_t* options) {
  Pairs pairs;
  const auto append = [](const char* key, const char* value, void* user) {
    static_cast<Pairs*>(user)->emplace_back(key, value == nullptr ? std::nullopt : std::optional<std::string>(value));
    return true;
  };
  tev_dict_enum(options, append, &pairs);
  return pairs;
}

void CheckSources(tev_event_provider_t* provider, Model* model) {
  TakeLog();
  const standin::SourceArray sources(provider->get_sources(provider));
  Expect(sources != nullptr, "get-sources succeeds");
  std::vector<std::string> tags;
  for (const auto& source : sources->sources) tags.push_back(source->tag);
  ExpectEqual(tags, model->Tags(), "the sources");
  ExpectEqual(Sorted(TakeLog()), Sorted(model->Log()), "the configuration log");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider bytes(data, size);
  tev_event_provider_t* const provider = NewProvider();
  Model model;
  for (int constructions = 0; constructions < 3 && bytes.remaining_bytes() > 0; ++constructions) {
    const Dict options = DrawOptions(&bytes);
    const Pairs pairs = Enumerate(options.get());
    ExpectEqual(construct_event_provider(options.get()) != nullptr, model.Read(pairs), "success with ", pairs);
    CheckSources(provider, &model);
  }
  provider->finalize(provider);
  ExpectEqual(tev_source_t::live + tev_source_array_t::live, 0, "the handles left");
  return 0;
}

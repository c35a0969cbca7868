// Scripts configured from the host's option keys: one record per script, and the numbered arguments.

#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>

#include "provider/catch_bad_alloc.h"
#include "provider/option_keys.h"
#include "provider/provider.h"
#include "provider/script_config.h"
#include "utils/log/log.h"

namespace {

// The first word of `text`: what "%s" of sscanf reads, but at any length.
std::string FirstWord(const char* text) {
  const auto is_space = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
  while (is_space(*text)) ++text;
  const char* end = text;
  while (*end != '\0' && !is_space(*end)) ++end;
  return {text, end};
}

}  // namespace

bool PythonEventProvider::SetScriptConfigsFromOpts(const tev_custom_options* options) {
  // An earlier call with an empty directory failed and left 0.
  if (num_scripts == 0) num_scripts = 1;
  if (!CatchBadAlloc(false, [=] { return AddScriptConfigs(options); })) {
    DestroyScriptConfigs(script_configs);
    return false;
  }
  return tev_dict_enum(options, AddScriptConfigDictPairClb, this);
}

bool PythonEventProvider::AddScriptConfigs(const tev_custom_options* options) {
  for (size_t index = 0; index < num_scripts; ++index) {
    auto script = std::make_unique<ScriptConfig>(options, static_cast<unsigned char>(index));
    if (!script->IsSet()) return false;
    script_configs.push_back(nullptr);
    script_configs.back() = script.release();
    if (index == kMaxScripts - 1) {
      TEV_LOG(TEV_LOG_WARNING, "[python provider] Maximal scripts limit reached. using only 256");
      break;
    }
  }
  return true;
}

// Hands "python-import-arg-N-NAME" to script N. If there is only one script, it also gets "python-import-arg-NAME". In
// addition every record has copied all argument keys, with their numbers, while it was read.
bool PythonEventProvider::AddScriptConfigDictPairClb(const char* key, const char* value, void* provider) {
  auto* self = static_cast<PythonEventProvider*>(provider);
  long number = 0;
  int name_at = 0;
  // Keys are matched by the rules of sscanf, which accepts blanks and a sign before the number. The number is a long,
  // because an int would overflow on a large one and could name some script by accident.
  // NOLINTNEXTLINE(cert-err34-c)
  const int numbers_read = sscanf(key, "python-import-arg-%ld-%n", &number, &name_at);
  if (numbers_read == 1) {
    if (name_at == 0) return true;
    const std::string name = FirstWord(key + name_at);
    if (name.empty()) return true;
    if (number < 1 || number > static_cast<long>(kMaxScripts)) {
      TEV_LOG(TEV_LOG_ERROR, "[python provider] invalid option index %ld", number);
      return false;
    }
    return self->AddToScriptConfigDict(static_cast<unsigned char>(number - 1), name.c_str(), value);
  }
  if (self->num_scripts != 1 || strncmp(key, kArgumentPrefix, LengthOf(kArgumentPrefix)) != 0) return true;
  const std::string name = FirstWord(key + LengthOf(kArgumentPrefix));
  return name.empty() || self->AddToScriptConfigDict(0, name.c_str(), value);
}

bool PythonEventProvider::AddToScriptConfigDict(unsigned char index, const char* key, const char* value) {
  if (index >= script_configs.size() || script_configs[index] == nullptr) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] invalid index %d", index + 1);
    return false;
  }
  ScriptConfig* script = script_configs[index];
  if (!script->AddDictPair(key, value)) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] could not set '%s=%s' to '%s' configuration", key,
            value == nullptr ? "(null)" : value, script->script_path.c_str());
    return false;
  }
  return true;
}

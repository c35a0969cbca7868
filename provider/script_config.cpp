// The record of a script: reading its options, storing its arguments, logging it, and releasing it.

#include "provider/script_config.h"

#include <cstring>
#include <utility>

#include "provider/option_keys.h"
#include "utils/log/log.h"
#include "utils/python_env/own_module.h"
#include "utils/python_env/python_runs.h"
#include "utils/strings/conversions.h"

namespace {

bool IsArgumentKey(const char* key) { return strncmp(key, kArgumentPrefix, LengthOf(kArgumentPrefix)) == 0; }

}  // namespace

PythonEventProvider::ScriptConfig::ScriptConfig(const tev_custom_options* options, unsigned char index_in_list)
    : index(index_in_list) {
  is_set = ReadConfiguration(options);
}

PythonEventProvider::ScriptConfig::~ScriptConfig() {
  tev_dict_delete(script_dict);
  if (!PythonRuns()) return;
  Py_CLEAR(function);
  Py_CLEAR(module_dict);
  Py_CLEAR(module);
  Py_CLEAR(args_dict);
  if (own_name != nullptr) DropOwnModule(own_name);
  Py_CLEAR(own_name);
}

bool PythonEventProvider::ScriptConfig::ReadConfiguration(const tev_custom_options* options) {
  script_path = GetOptionFromDict(options, kFileOption);
  if (script_path.empty()) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] Invalid argument for '%s' - Please specify an existing python file path",
            kFileOption);
    return false;
  }
  function_name = GetOptionFromDict(options, kFunctionOption);
  if (function_name.empty()) {
    function_name = kDefaultFunction;
    TEV_LOG(TEV_LOG_DEBUG, "[python provider] no argument specified for '%s'. taking default ('%s')", kFunctionOption,
            kDefaultFunction);
  }
  const std::string force_sync_text = GetOptionFromDict(options, kForceSyncOption);
  if (!force_sync_text.empty() && string_to_boolean(force_sync_text.c_str())) {
    force_sync = TEV_PROGRESS_DONE_FORCE_SYNC;
  }
  own_module = string_to_boolean(GetOptionFromDict(options, kOwnModuleOption).c_str());
  tolerant = string_to_boolean(GetOptionFromDict(options, kTolerantOption).c_str());
  const std::string tag_text = GetOptionFromDict(options, kTagOption);
  if (!tag_text.empty()) tag = "dict_" + tag_text;
  script_dict = tev_dict_create();
  if (script_dict == nullptr) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] could not create tev_dict_t");
    return false;
  }
  return tev_dict_enum(options, AddDictPairClb, this);
}

// The plain key applies to every script. It hides the numbered key even if its value is empty.
std::string PythonEventProvider::ScriptConfig::GetOptionFromDict(const tev_custom_options* options,
                                                                 const char* key) const {
  if (const char* value = tev_dict_get(options, key); value != nullptr) return value;
  const size_t prefix_length = IsArgumentKey(key) ? LengthOf(kArgumentPrefix) : LengthOf(kOptionPrefix);
  const std::string numbered_key =
      std::string(key, prefix_length) + std::to_string(index + 1) + "-" + (key + prefix_length);
  const char* value = tev_dict_get(options, numbered_key.c_str());
  return value == nullptr ? "" : value;
}

bool PythonEventProvider::ScriptConfig::AddDictPair(const char* key, const char* value) {
  return tev_dict_add(script_dict, key, value);
}

bool PythonEventProvider::ScriptConfig::AddDictPairClb(const char* key, const char* value, void* record) {
  if (!IsArgumentKey(key)) return true;
  return static_cast<ScriptConfig*>(record)->AddDictPair(key + LengthOf(kArgumentPrefix), value);
}

// Values begin in one column: host/standin/configuration_log.cpp reads these lines back.
void PythonEventProvider::ScriptConfig::LogInstance() const {
  TEV_LOG(TEV_LOG_INFO, "[python provider] \tscript #%u:", unsigned{index});
  TEV_LOG(TEV_LOG_INFO, "[python provider] \t\tscript path:       %s", script_path.c_str());
  TEV_LOG(TEV_LOG_INFO, "[python provider] \t\tfunction name:     %s", function_name.c_str());
  TEV_LOG(TEV_LOG_INFO, "[python provider] \t\tforce_sync:        %s",
          boolean_to_string(force_sync == TEV_PROGRESS_DONE_FORCE_SYNC));
  TEV_LOG(TEV_LOG_INFO, "[python provider] \t\ttag:               %s", tag.c_str());
  if (own_module) TEV_LOG(TEV_LOG_INFO, "[python provider] \t\town_module:        %s", boolean_to_string(own_module));
  if (tolerant) TEV_LOG(TEV_LOG_INFO, "[python provider] \t\ttolerant:          %s", boolean_to_string(tolerant));
  bool header_printed = false;
  tev_dict_enum(script_dict, LogDictClb, &header_printed);
}

bool PythonEventProvider::ScriptConfig::LogDictClb(const char* key, const char* value, void* header_printed) {
  if (auto* printed = static_cast<bool*>(header_printed); !*printed) {
    TEV_LOG(TEV_LOG_INFO, "[python provider] \t\tscript dictionary:");
    *printed = true;
  }
  TEV_LOG(TEV_LOG_INFO, "[python provider] \t\t                   %s=%s", key, value == nullptr ? "(null)" : value);
  return true;
}

void DestroyScriptConfigs(std::vector<PythonEventProvider::ScriptConfig*>& list) {
  // Releasing a script's objects may run Python code, which may call rubruf.stats(): so the list is emptied first.
  for (const PythonEventProvider::ScriptConfig* script : std::exchange(list, {})) delete script;
}

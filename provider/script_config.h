// ScriptConfig: one configured script, and the Python objects that a collection of it uses.
//
// A record is made on the heap by the configuration, owned by the provider's list, bound to Python at most once, and
// never copied. Like all of the provider it serves one thread.

#ifndef RUBRUF_PROVIDER_SCRIPT_CONFIG_H_
#define RUBRUF_PROVIDER_SCRIPT_CONFIG_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "provider/provider.h"
#include "utils/dict/dict.h"

class PythonEventProvider::ScriptConfig {
 public:
  // Reads the record from options, which are not kept. Check IsSet() afterwards: a failed reading shows only there, and
  // its reason has been logged.
  ScriptConfig(const tev_custom_options* options, unsigned char index);
  // Gives the Python references back if their interpreter still runs.
  ~ScriptConfig();
  ScriptConfig(const ScriptConfig&) = delete;
  ScriptConfig& operator=(const ScriptConfig&) = delete;

  bool IsSet() const { return is_set; }

  // Stores one argument, replacing an earlier value; `value` may be null. False when memory ran out.
  bool AddDictPair(const char* key, const char* value);

  void LogInstance() const;

  // Imports the module and gets its function and the argument dictionary. False after a message; references obtained
  // before the failure stay in the record. The interpreter must run.
  bool SetPythonAttributes();

  // The text that the module's function `name` returns when called without arguments; empty when the record is not
  // bound, there is no such function, it raises, or it returns something else. Leaves the pending Python error as it
  // was.
  std::string GetStringFromScript(const char* name);

  // The tag that names the script's source, settled on the first call: by option, else by the script's "get_tag", else
  // by a hash of its path. Empty only without a path. A tag that is not settled yet needs the interpreter if the record
  // is bound.
  const std::string& GetTagName();

 private:
  friend class PythonEventProvider;

  bool ReadConfiguration(const tev_custom_options* options);
  std::string GetOptionFromDict(const tev_custom_options* options, const char* key) const;
  bool SetArgsPyDict();

  // Callbacks of tev_dict_enum; the user pointer of the first and the last is the record.
  static bool AddDictPairClb(const char* key, const char* value, void* record);
  static bool LogDictClb(const char* key, const char* value, void* header_printed);
  static bool PyDictAddPairClb(const char* key, const char* value, void* record);

  PyObject* module = nullptr;       // owned
  PyObject* module_dict = nullptr;  // owned
  PyObject* function = nullptr;     // owned
  PyObject* args_dict = nullptr;    // owned
  tev_dict_t* script_dict = nullptr;
  std::string script_path;
  std::string function_name;
  std::string tag;  // empty, or "dict_" and the tag text
  uint8_t index;
  bool is_set = false;
  uint32_t force_sync = 0;  // the status that ends a collection: 0, or 2 to ask for a synchronisation
};

// Destroys all records of a list and empties it.
void DestroyScriptConfigs(std::vector<PythonEventProvider::ScriptConfig*>& list);

#endif  // RUBRUF_PROVIDER_SCRIPT_CONFIG_H_

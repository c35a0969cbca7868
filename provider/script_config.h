// ScriptConfig: the record of one configured script, with the Python objects that its collections use.
//
// The configuration makes each record on the heap, and the provider's list owns it. A record is bound to Python at most
// once and never copied. It is used on the thread that drives the provider.

#ifndef RUBRUF_PROVIDER_SCRIPT_CONFIG_H_
#define RUBRUF_PROVIDER_SCRIPT_CONFIG_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "provider/provider.h"
#include "provider/script_stats.h"
#include "utils/dict/dict.h"

class PythonEventProvider::ScriptConfig {
 public:
  // Reads the record from `options`, which are borrowed for the call. A failed reading shows only in IsSet(), so check
  // that afterwards; the reason has been logged.
  ScriptConfig(const tev_custom_options* options, unsigned char index);
  // Decrements the Python references if the interpreter runs.
  ~ScriptConfig();
  ScriptConfig(const ScriptConfig&) = delete;
  ScriptConfig& operator=(const ScriptConfig&) = delete;

  bool IsSet() const { return is_set; }

  // Stores one argument, and replaces an earlier value. `value` may be null. False if memory ran out.
  bool AddDictPair(const char* key, const char* value);

  // Logs the record at info level.
  void LogInstance() const;

  // Imports the module, finds its function and builds the argument dictionary. False after an error message; the record
  // then keeps the references that it got before the failure. The interpreter must run.
  bool SetPythonAttributes();

  // Does the same as SetPythonAttributes at the start of a life. A tolerant script that cannot be bound is left out of
  // service after an error message: the result is then true, and its collections fail.
  bool Bind();

  // Calls the module's function `name` without arguments and returns its text. Empty if the record is not bound, there
  // is no such function, it raises, or it returns something else. A Python error that was pending stays pending.
  std::string GetStringFromScript(const char* name);

  // The tag, which names the script's source. The first call settles it: by the option, else by the script's "get_tag",
  // else by a hash of the path. Empty only if there is no path. The interpreter must run if the record is bound and its
  // tag is not settled.
  const std::string& GetTagName();

 private:
  friend class PythonEventProvider;

  bool ReadConfiguration(const tev_custom_options* options);
  std::string GetOptionFromDict(const tev_custom_options* options, const char* key) const;
  bool SetArgsPyDict();

  // Callbacks of tev_dict_enum. The user pointer of LogDictClb is its flag; of the other two it is the record.
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
  uint32_t force_sync = 0;       // the status of a complete collection: 0, or 2 to ask for a synchronisation
  bool tolerant = false;         // its faults do not concern other scripts; see provider/tolerance.h
  bool own_module = false;       // loaded from its path, even if another module has its name
  PyObject* own_name = nullptr;  // owned; the name of a module of its own in sys.modules
  std::shared_ptr<ScriptStats> stats = std::make_shared<ScriptStats>();
};

// Destroys all records of a list and empties it.
void DestroyScriptConfigs(std::vector<PythonEventProvider::ScriptConfig*>& list);

#endif  // RUBRUF_PROVIDER_SCRIPT_CONFIG_H_

// The binding of a script to Python: its module, function and argument dictionary, and the texts that it returns.

#include <functional>

#include "provider/script_config.h"
#include "utils/log/log.h"
#include "utils/python_env/own_module.h"
#include "utils/python_env/owned_ref.h"
#include "utils/python_env/pending_error.h"
#include "utils/python_env/python_env.h"

namespace {

bool FailBinding(const char* message) {
  TEV_LOG(TEV_LOG_ERROR, "%s", message);
  tev_python_environment_print_error();
  return false;
}

}  // namespace

bool PythonEventProvider::ScriptConfig::SetPythonAttributes() {
  module = own_module ? LoadOwnModule(script_path.c_str(), index + 1U, &own_name)
                      : tev_python_environment_get_module(script_path.c_str());
  if (module == nullptr) return FailBinding("[python provider] could not load module");
  module_dict = PyModule_GetDict(module);
  if (module_dict == nullptr) return FailBinding("[python provider] could not load python module dictionary");
  Py_INCREF(module_dict);
  function = PyDict_GetItemString(module_dict, function_name.c_str());
  if (function == nullptr) return FailBinding("[python provider] could not load python collection function");
  Py_INCREF(function);
  return SetArgsPyDict();
}

bool PythonEventProvider::ScriptConfig::Bind() {
  if (SetPythonAttributes()) return true;
  if (!tolerant) return false;
  TEV_LOG(TEV_LOG_ERROR, "[python provider] script %s is out of service", script_path.c_str());
  Py_CLEAR(function);
  return true;
}

bool PythonEventProvider::ScriptConfig::SetArgsPyDict() {
  if (script_dict == nullptr) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] no arguments dict set");
    return false;
  }
  args_dict = PyDict_New();
  if (args_dict == nullptr) {
    tev_python_environment_print_error();
    return false;
  }
  if (!tev_dict_enum(script_dict, PyDictAddPairClb, this)) {
    Py_CLEAR(args_dict);
    return false;
  }
  return true;
}

bool PythonEventProvider::ScriptConfig::PyDictAddPairClb(const char* key, const char* value, void* record) {
  if (key == nullptr || record == nullptr) return true;
  OwnedRef argument;
  if (value == nullptr) {
    Py_INCREF(Py_None);
    argument.reset(Py_None);
  } else {
    argument.reset(PyUnicode_FromString(value));
  }
  if (!argument || PyDict_SetItemString(static_cast<ScriptConfig*>(record)->args_dict, key, argument.get()) != 0) {
    tev_python_environment_print_error();
    return false;
  }
  return true;
}

std::string PythonEventProvider::ScriptConfig::GetStringFromScript(const char* name) {
  if (module_dict == nullptr) return {};
  const PendingError walk_error;
  PyObject* asked = PyDict_GetItemString(module_dict, name);  // borrowed
  if (asked == nullptr) return {};
  const OwnedRef answer(PyObject_CallFunctionObjArgs(NewRef(asked).get(), nullptr));
  if (!answer) {
    // A pending error would be taken for an error of the next call into Python.
    PyErr_Clear();
    return {};
  }
  if (!PyUnicode_CheckExact(answer.get())) {
    TEV_LOG(TEV_LOG_WARNING, "invalid type returned from %s(). expected 'str', got '%s'", name,
            Py_TYPE(answer.get())->tp_name);
    return {};
  }
  Py_ssize_t length = 0;
  const char* text = PyUnicode_AsUTF8AndSize(answer.get(), &length);
  if (text == nullptr) {
    PyErr_Clear();
    return {};
  }
  return {text, static_cast<size_t>(length)};
}

const std::string& PythonEventProvider::ScriptConfig::GetTagName() {
  if (!tag.empty()) return tag;
  if (script_path.empty()) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] cannot set tag name - no python file");
    return tag;
  }
  std::string text = GetStringFromScript("get_tag");
  // libstdc++ hashes texts with a constant seed, so the same path has the same tag in every process.
  if (text.empty()) text = std::to_string(std::hash<std::string>{}(script_path));
  tag = "dict_" + text;
  return tag;
}

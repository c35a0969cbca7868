// The finder that makes the module, the module's functions, and its Python half.

#include "provider/rubruf_module.h"

#include <algorithm>
#include <new>
#include <string>

#include "provider/host_log.h"
#include "provider/keep_loaded.h"
#include "provider/provider.h"
#include "provider/script_config.h"
#include "provider/script_stats.h"
#include "utils/log/log.h"
#include "utils/python_env/owned_ref.h"
#include "utils/python_env/python.h"
#include "utils/python_env/python_runs.h"

namespace {

constexpr char kName[] = "rubruf";

const PythonEventProvider* current = nullptr;  // between Install and Remove

// The levels of the host's logger are those of log.h.
constexpr char kPythonHalf[] = R"PYTHON(
import logging

ERROR, WARNING, INFO, DEBUG = 3, 4, 6, 7


class LogHandler(logging.Handler):
    """Hands the records of the logging module to the host's logger."""

    def emit(self, record):
        try:
            log(_host_level(record.levelno), self.format(record))
        except Exception:
            self.handleError(record)


def _host_level(level):
    if level >= logging.ERROR:
        return ERROR
    if level >= logging.WARNING:
        return WARNING
    return INFO if level >= logging.INFO else DEBUG
)PYTHON";

constexpr int kLevels[] = {TEV_LOG_ERROR, TEV_LOG_WARNING, TEV_LOG_INFO, TEV_LOG_DEBUG};

// rubruf.log(level, text)
PyObject* Log(PyObject* /*module*/, PyObject* arguments) {
  int level = 0;
  PyObject* text = nullptr;  // borrowed
  if (!PyArg_ParseTuple(arguments, "iU:log", &level, &text)) return nullptr;
  if (std::find(std::begin(kLevels), std::end(kLevels), level) == std::end(kLevels)) {
    PyErr_SetString(PyExc_ValueError, "level must be rubruf.ERROR, WARNING, INFO or DEBUG");
    return nullptr;
  }
  const OwnedRef bytes(PyUnicode_AsEncodedString(text, "utf-8", "backslashreplace"));
  if (!bytes) return nullptr;
  try {
    const auto size = static_cast<size_t>(PyBytes_GET_SIZE(bytes.get()));
    host_log::Write(level, std::string(PyBytes_AS_STRING(bytes.get()), size));
  } catch (const std::bad_alloc&) {
    return PyErr_NoMemory();
  }
  Py_RETURN_NONE;
}

// rubruf.stats()
PyObject* Stats(PyObject* /*module*/, PyObject* /*none*/) {
  return current == nullptr ? PyList_New(0) : current->Stats();
}

PyMethodDef functions[] = {
    {"log", Log, METH_VARARGS, "log(level, text): sends each line of a text to the host's logger."},
    {"stats", Stats, METH_NOARGS, "stats(): a dictionary of figures for each script."},
    {nullptr, nullptr, 0, nullptr}};

// The finder is its own loader. The names of these three functions are those that the import system calls.
PyObject* FindSpec(PyObject* finder, PyObject* arguments) {
  PyObject* name = nullptr;    // borrowed, as the others
  PyObject* path = nullptr;    // of a package; not used
  PyObject* target = nullptr;  // of a reload; not used
  if (!PyArg_ParseTuple(arguments, "U|OO:find_spec", &name, &path, &target)) return nullptr;
  if (current == nullptr || PyUnicode_CompareWithASCIIString(name, kName) != 0) Py_RETURN_NONE;
  const OwnedRef machinery(PyImport_ImportModule("_frozen_importlib"));
  return machinery ? PyObject_CallMethod(machinery.get(), "ModuleSpec", "OO", name, finder) : nullptr;
}

PyObject* CreateModule(PyObject* /*finder*/, PyObject* /*spec*/) { Py_RETURN_NONE; }

PyObject* ExecModule(PyObject* /*finder*/, PyObject* module) {
  PyObject* names = PyModule_GetDict(module);  // borrowed
  if (names == nullptr || PyModule_AddFunctions(module, functions) != 0) return nullptr;
  KeepLibraryLoaded();  // scripts may hold the functions above beyond the life of the provider
  const OwnedRef code(Py_CompileString(kPythonHalf, kName, Py_file_input));
  if (!code || PyDict_SetItemString(names, "__builtins__", PyEval_GetBuiltins()) != 0) return nullptr;
  return PyEval_EvalCode(code.get(), names, names);
}

PyMethodDef finder_functions[] = {{"find_spec", FindSpec, METH_VARARGS, nullptr},
                                  {"create_module", CreateModule, METH_O, nullptr},
                                  {"exec_module", ExecModule, METH_O, nullptr},
                                  {nullptr, nullptr, 0, nullptr}};

PyModuleDef finder_definition = {
    PyModuleDef_HEAD_INIT, "rubruf_finder", nullptr, 0, finder_functions, nullptr, nullptr, nullptr, nullptr};

PyObject* installed = nullptr;  // the finder; owned from Install to Remove

// Puts a new entry into `figures`, for `value`, which may be null after a failure: a new reference, taken over.
bool Add(PyObject* figures, const char* key, PyObject* value) {
  const OwnedRef owned(value);
  return owned && PyDict_SetItemString(figures, key, value) == 0;
}
bool Add(PyObject* figures, const char* key, const std::string& text) {
  return Add(figures, key, PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"));
}
bool Add(PyObject* figures, const char* key, uint64_t number) {
  return Add(figures, key, PyLong_FromUnsignedLongLong(number));
}
bool Add(PyObject* figures, const char* key, ScriptStats::Clock::duration time) {
  return Add(figures, key, PyFloat_FromDouble(std::chrono::duration<double>(time).count()));
}

// A new reference, or null with a Python error.
OwnedRef Figures(const std::string& tag, const std::string& path, const ScriptStats& stats) {
  OwnedRef figures(PyDict_New());
  PyObject* const dict = figures.get();
  const bool filled =
      dict != nullptr && Add(dict, "tag", tag) && Add(dict, "path", path) &&
      Add(dict, "collections_begun", stats.begun) && Add(dict, "collections_completed", stats.completed) &&
      Add(dict, "collections_failed", stats.failed) && Add(dict, "values_left_out", stats.values_left_out) &&
      Add(dict, "tokens_written", stats.tokens_written) && Add(dict, "tokens_refused", stats.tokens_refused) &&
      Add(dict, "seconds_last", stats.last_call) && Add(dict, "seconds_longest", stats.longest_call) &&
      Add(dict, "seconds_all", stats.all_calls);
  if (!filled) figures.reset();
  return figures;
}

}  // namespace

PyObject* PythonEventProvider::Stats() const {
  OwnedRef list(PyList_New(0));
  for (size_t index = 0; list && index < script_configs.size(); ++index) {
    const ScriptConfig* script = script_configs[index];
    if (script == nullptr) continue;
    const OwnedRef figures = Figures(script->tag, script->script_path, *script->stats);
    if (!figures || PyList_Append(list.get(), figures.get()) != 0) list.reset();
  }
  return list.release();
}

void rubruf_module::Install(const PythonEventProvider* provider) {
  current = provider;
  installed = PyModule_Create(&finder_definition);
  PyObject* finders = PySys_GetObject("meta_path");  // borrowed
  const bool ready =
      installed != nullptr && finders != nullptr && PyList_Check(finders) && PyList_Append(finders, installed) == 0;
  PyErr_Clear();
  if (!ready) TEV_LOG(TEV_LOG_WARNING, "[python provider] scripts cannot import the module %s", kName);
}

void rubruf_module::Remove() {
  current = nullptr;
  if (!PythonRuns()) installed = nullptr;  // it has ended with its interpreter
  if (installed == nullptr) return;
  // A script may have removed it before, or replaced the list.
  PyObject* finders = PySys_GetObject("meta_path");  // borrowed
  const bool is_list = finders != nullptr && PyList_Check(finders);
  for (Py_ssize_t i = is_list ? PyList_GET_SIZE(finders) : 0; i-- > 0;) {
    if (PyList_GET_ITEM(finders, i) == installed) PySequence_DelItem(finders, i);
  }
  const OwnedRef name(PyUnicode_FromString(kName));
  const OwnedRef module(name ? PyImport_GetModule(name.get()) : nullptr);
  const OwnedRef loader(module ? PyObject_GetAttrString(module.get(), "__loader__") : nullptr);
  if (loader.get() == installed) PyDict_DelItem(PyImport_GetModuleDict(), name.get());
  PyErr_Clear();
  Py_CLEAR(installed);
}

// Loads life.py, and calls its functions by name.

#include "utils/python_env/life.h"

#include <climits>

#include "utils/python_env/extension_modules.h"
#include "utils/python_env/life_source.h"

namespace {

// The name under which `sys` keeps the namespace of life.py. There it survives when a host unloads this library and the
// interpreter stays.
constexpr char kLife[] = "_rubruf_life";

}  // namespace

void LoadLife() {
  const OwnedRef scope(PyDict_New());
  if (scope && PyDict_SetItemString(scope.get(), "__builtins__", PyEval_GetBuiltins()) == 0) {
    const OwnedRef done(PyRun_String(kLifeSource, Py_file_input, scope.get(), scope.get()));
    if (done) PySys_SetObject(kLife, scope.get());
  }
  if (PyErr_Occurred() != nullptr) PyErr_WriteUnraisable(scope.get());
}

void NoteImport(const char* script) {
  CallLife("imported", script);
  char module[PATH_MAX];
  if (FindOnceOnlyModule(module)) CallLife("loaded", module);
}

OwnedRef CallLife(const char* function, const char* argument) {
  PyObject* const scope = PySys_GetObject(kLife);  // borrowed
  if (scope == nullptr || !PyDict_Check(scope)) return nullptr;
  PyObject* const found = PyDict_GetItemString(scope, function);  // borrowed
  const OwnedRef callable(found != nullptr ? NewRef(found) : nullptr);
  const OwnedRef text(argument != nullptr ? PyUnicode_DecodeFSDefault(argument) : nullptr);
  OwnedRef result(callable ? PyObject_CallFunctionObjArgs(callable.get(), text.get(), nullptr) : nullptr);
  if (PyErr_Occurred() != nullptr) PyErr_WriteUnraisable(callable.get());
  return result;
}

// Loading scripts as modules of their own, with Python's import machinery.

#include "utils/python_env/own_module.h"

#include "utils/python_env/import_path.h"
#include "utils/python_env/life.h"
#include "utils/python_env/owned_ref.h"
#include "utils/python_env/pending_error.h"

namespace {

// Above the numbers of all scripts, so that a name that is taken leads to none of theirs.
constexpr unsigned kNextNumber = 256;

// A name that sys.modules does not have. It has no dots, because the import system would take a part before a dot for a
// package. Null with a Python error.
OwnedRef UnusedName(const char* file, unsigned number) {
  const OwnedRef text(PyUnicode_DecodeFSDefault(file));
  const OwnedRef without_dots(text ? PyObject_CallMethod(text.get(), "replace", "ss", ".", "_") : nullptr);
  if (!without_dots) return nullptr;
  while (true) {
    OwnedRef name(PyUnicode_FromFormat("rubruf_script_%u_%U", number, without_dots.get()));
    if (!name || !OwnedRef(PyImport_GetModule(name.get()))) return name;
    number += kNextNumber;
  }
}

// Null with a Python error; sys.modules then lacks the name again.
OwnedRef Load(const char* python_file, PyObject* name) {
  const OwnedRef path(PyUnicode_DecodeFSDefault(python_file));
  const OwnedRef importlib(path ? PyImport_ImportModule("importlib.util") : nullptr);
  if (!importlib) return nullptr;
  const OwnedRef spec(PyObject_CallMethod(importlib.get(), "spec_from_file_location", "OO", name, path.get()));
  OwnedRef module(spec ? PyObject_CallMethod(importlib.get(), "module_from_spec", "O", spec.get()) : nullptr);
  const OwnedRef loader(module ? PyObject_GetAttrString(spec.get(), "loader") : nullptr);
  // Before the script runs: dataclasses and pickle look for the modules of their classes.
  if (!loader || PyObject_SetItem(PyImport_GetModuleDict(), name, module.get()) != 0) return nullptr;
  const OwnedRef done(PyObject_CallMethod(loader.get(), "exec_module", "O", module.get()));
  if (!done) {
    const PendingError of_the_script;
    DropOwnModule(name);
    return nullptr;
  }
  // As with every import, what the script has put in its place counts.
  OwnedRef in_place(PyImport_GetModule(name));
  if (in_place) return in_place;
  PyErr_Clear();
  return module;
}

}  // namespace

PyObject* LoadOwnModule(const char* python_file, unsigned number, PyObject** name) {
  const MallocText file = EnterDirectory(python_file);
  if (!file) return nullptr;
  *name = UnusedName(file.get(), number).release();
  OwnedRef module(*name != nullptr ? Load(python_file, *name) : nullptr);
  if (!module) ReportFailedImport(file.get());
  NoteImport(python_file);
  return module.release();
}

void DropOwnModule(PyObject* name) {
  if (PyObject_DelItem(PyImport_GetModuleDict(), name) != 0) PyErr_Clear();
}

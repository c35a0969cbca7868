// OwnedRef: a strong reference to a Python object, given back when it goes out of scope.
//
// Made from a new reference, and null where the call that made it failed; NewRef makes one of a borrowed reference.
// Only while the interpreter runs, on its thread.

#ifndef RUBRUF_UTILS_PYTHON_ENV_OWNED_REF_H_
#define RUBRUF_UTILS_PYTHON_ENV_OWNED_REF_H_

#include <memory>

#include "utils/python_env/python.h"

struct DecRef {
  void operator()(PyObject* object) const { Py_DECREF(object); }
};
using OwnedRef = std::unique_ptr<PyObject, DecRef>;

// A strong reference to a borrowed object, which may not be null.
inline OwnedRef NewRef(PyObject* borrowed) {
  Py_INCREF(borrowed);
  return OwnedRef(borrowed);
}

#endif  // RUBRUF_UTILS_PYTHON_ENV_OWNED_REF_H_

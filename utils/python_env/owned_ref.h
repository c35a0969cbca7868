// OwnedRef: a strong reference to a Python object, released when it goes out of scope.
//
// Constructed from a new reference; null if the call that returned it failed. NewRef makes one from a borrowed
// reference. Use it only while the interpreter runs, on the thread that holds the lock.

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

// Utf8: the UTF-8 form of a Python text.

#ifndef RUBRUF_PROVIDER_UTF8_H_
#define RUBRUF_PROVIDER_UTF8_H_

#define PY_SSIZE_T_CLEAN
#include <Python.h>

// The UTF-8 bytes of `object` (borrowed), which live as long as it does, and their number. Null, with a Python error
// pending, when it is not a str or holds characters that UTF-8 cannot carry.
inline const char* Utf8(PyObject* object, Py_ssize_t* size) {
  // An ASCII text is its own encoding: nothing to call.
  if (PyUnicode_Check(object) && PyUnicode_IS_COMPACT_ASCII(object)) {
    *size = PyUnicode_GET_LENGTH(object);
    return static_cast<const char*>(PyUnicode_DATA(object));
  }
  // A failure beside an error that is still pending would chain the two: a walk stuck at one text, tried again with
  // every call, would grow that chain for ever.
  PyErr_Clear();
  return PyUnicode_AsUTF8AndSize(object, size);
}

#endif  // RUBRUF_PROVIDER_UTF8_H_

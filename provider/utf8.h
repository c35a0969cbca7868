// Utf8: the UTF-8 bytes of a Python text.

#ifndef RUBRUF_PROVIDER_UTF8_H_
#define RUBRUF_PROVIDER_UTF8_H_

#include <new>

#include "utils/python_env/cpython_layout.h"
#include "utils/python_env/pending_error.h"

// The UTF-8 bytes of `object` (borrowed) and, in `size`, their number. The bytes live as long as the object. Null, with
// a Python error pending, if the object is not a str or holds characters that UTF-8 cannot carry; if an error was
// pending before the call, that error is the one that stays. Throws std::bad_alloc.
inline const char* Utf8(PyObject* object, Py_ssize_t* size) {
  if (const char* ascii = CompactAscii(object, size); ascii != nullptr) return ascii;
  const PendingError before;
  const char* text = PyUnicode_AsUTF8AndSize(object, size);
  if (text == nullptr && PyErr_ExceptionMatches(PyExc_MemoryError) != 0) {
    PyErr_Clear();
    throw std::bad_alloc();
  }
  return text;
}

#endif  // RUBRUF_PROVIDER_UTF8_H_

// What we know of CPython beyond its documented interface: the layout of its objects, and who holds references to them.
//
// A new version of Python can change each of these. CONTRIBUTING, "A new Python version", tells how to check them.

#ifndef RUBRUF_UTILS_PYTHON_ENV_CPYTHON_LAYOUT_H_
#define RUBRUF_UTILS_PYTHON_ENV_CPYTHON_LAYOUT_H_

#include "utils/python_env/python.h"
#if PY_VERSION_HEX < 0x030B0000
#include <longintrepr.h>
#endif

// The walk reads lists, dictionaries and counts of references under the lock alone.
#ifdef Py_GIL_DISABLED
#error "Python without the global interpreter lock is not supported"
#endif

// The value of _config_init by which Py_InitializeEx asks for its rules of locale, UTF-8 mode and global configuration
// variables: _PyConfig_INIT_COMPAT. CPython declares it in an internal header.
constexpr int kConfigInitCompat = 1;

// PyLong_AsLong(number) of an int (borrowed), instances of subclasses included. Most ints have one digit, which is read
// in place because the call takes as long as writing the token. Since 3.12 the C-API has functions for that, marked
// unstable: a later version may rename them.
inline long LongValue(PyObject* number) {
  const auto* digits = reinterpret_cast<PyLongObject*>(number);
#if PY_VERSION_HEX >= 0x030C0000
  if (PyUnstable_Long_IsCompact(digits)) return PyUnstable_Long_CompactValue(digits);
#else
  // The sign of the size is the number's sign. A zero has no digit.
  const Py_ssize_t size = Py_SIZE(number);
  if (size == 1) return static_cast<long>(digits->ob_digit[0]);
  if (size == -1) return -static_cast<long>(digits->ob_digit[0]);
#endif
  return PyLong_AsLong(number);
}

// The characters of a str (borrowed) that stand in the object as ASCII bytes, which are their UTF-8 form too, and, in
// `size`, their number. Null for every other object.
inline const char* CompactAscii(PyObject* object, Py_ssize_t* size) {
  if (!PyUnicode_Check(object) || !PyUnicode_IS_COMPACT_ASCII(object)) return nullptr;
  *size = PyUnicode_GET_LENGTH(object);
  return static_cast<const char*>(PyUnicode_DATA(object));
}

// The hash that a str (borrowed) has kept since it became the key of a dictionary. -1 for an instance of a subclass,
// whose hash may differ from its text's.
inline Py_hash_t CachedHash(PyObject* key) {
  return PyUnicode_CheckExact(key) ? reinterpret_cast<PyASCIIObject*>(key)->hash : -1;
}

// False only if at most three references to `object` (borrowed) exist. Each list, dictionary and C variable that holds
// an object counts as one; objects that never end count many.
inline bool HasFourReferences(PyObject* object) { return Py_REFCNT(object) >= 4; }

#endif  // RUBRUF_UTILS_PYTHON_ENV_CPYTHON_LAYOUT_H_

// LongValue: the value of a Python int.

#ifndef RUBRUF_PROVIDER_LONG_VALUE_H_
#define RUBRUF_PROVIDER_LONG_VALUE_H_

#include "utils/python_env/python.h"

#if PY_VERSION_HEX < 0x030B0000
#include <longintrepr.h>
#endif

// PyLong_AsLong(number) of an int (borrowed), instances of subclasses included. Most are so small that they are one
// digit, which is read where it stands: the call takes as long as writing the token. Since 3.12 the C-API has words
// for that.
inline long LongValue(PyObject* number) {
  const auto* digits = reinterpret_cast<PyLongObject*>(number);
#if PY_VERSION_HEX >= 0x030C0000
  if (PyUnstable_Long_IsCompact(digits)) return PyUnstable_Long_CompactValue(digits);
#else
  // The sign of the size is that of the number. A zero has no digit.
  const Py_ssize_t size = Py_SIZE(number);
  if (size == 1) return static_cast<long>(digits->ob_digit[0]);
  if (size == -1) return -static_cast<long>(digits->ob_digit[0]);
#endif
  return PyLong_AsLong(number);
}

#endif  // RUBRUF_PROVIDER_LONG_VALUE_H_

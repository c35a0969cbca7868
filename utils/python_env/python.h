// CPython's interface, with the macro that its documentation asks for ahead of it: sizes of texts are Py_ssize_t.

#ifndef RUBRUF_UTILS_PYTHON_ENV_PYTHON_H_
#define RUBRUF_UTILS_PYTHON_ENV_PYTHON_H_

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#endif  // RUBRUF_UTILS_PYTHON_ENV_PYTHON_H_

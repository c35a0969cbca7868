// PendingError: keeps a pending Python error out of the way of calls into Python.
//
// A walk may leave an error pending (an integer beyond 64 bits), and it stays pending until a list or the walk ends. A
// call that is made beside it could be taken for a failed one, or chain its own error to it: a stuck walk that tries
// the same text again with every call would then grow without end.
//
// Only while the interpreter runs, on its thread.

#ifndef RUBRUF_UTILS_PYTHON_ENV_PENDING_ERROR_H_
#define RUBRUF_UTILS_PYTHON_ENV_PENDING_ERROR_H_

#include "utils/python_env/python.h"

class PendingError {
 public:
  // Takes the pending error aside, if there is one.
  PendingError() { PyErr_Fetch(&type_, &value_, &traceback_); }
  // Puts it back, in the place of an error that was raised since. Where nothing was pending, such an error stays.
  ~PendingError() {
    if (type_ != nullptr) PyErr_Restore(type_, value_, traceback_);
  }
  PendingError(const PendingError&) = delete;
  PendingError& operator=(const PendingError&) = delete;

 private:
  PyObject* type_ = nullptr;       // owned, as the other two; null when nothing was pending
  PyObject* value_ = nullptr;      // may be null beside a type
  PyObject* traceback_ = nullptr;  // may be null beside a type
};

#endif  // RUBRUF_UTILS_PYTHON_ENV_PENDING_ERROR_H_

// Where a walk stands: the open lists and dictionaries, and the item being written.
//
// Every PyObject* here is borrowed from the result of the current collection, which the provider holds until the walk
// ends. Whoever runs Python code in between holds them too (PythonEventProvider::HoldWalk).

#ifndef RUBRUF_PROVIDER_WALK_STATE_H_
#define RUBRUF_PROVIDER_WALK_STATE_H_

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <cstdint>

#include "provider/tokens.h"

// An open list or dictionary.
struct iterable_position_t {
  iterable_position_t(PyObject* opened, uint32_t opened_key_id) : iterable(opened), key_id(opened_key_id) {}

  PyObject* iterable;
  // List: the index of the item to visit next. Dictionary: the PyDict_Next position of the entry to visit next.
  Py_ssize_t position = 0;
  uint32_t key_id;  // of its start marker, and so of its end marker
};

// The current item and how far it is written.
//
// A dictionary entry: its key name, then its value or start marker. A list item has no key name: `key_written` is
// always set. At the top level `value_written` stands for the time stamp, and then `key_written` for the start marker.
struct CurrentPythonData {
  PyObject* key = nullptr;
  PyObject* value = nullptr;
  uint32_t key_id = kNoKeyId;
  uint8_t key_written = 0;
  uint8_t value_written = 0;

  void init() { *this = CurrentPythonData(); }

  // Makes an entry current. Coming back to the same one after a refused token keeps what is known to be written.
  void set(PyObject* new_key, PyObject* new_value, uint32_t new_key_id) {
    if (key != new_key || value != new_value || key_id != new_key_id) {
      key_written = 0;
      value_written = 0;
    }
    key = new_key;
    value = new_value;
    key_id = new_key_id;
  }

  // Makes a list item current, under the key ID of its list.
  void set_list_item(PyObject* item) {
    key_written = 1;
    value_written = 0;
    value = item;
  }

  // Makes the next entry a new one, whatever it is, and leaves nothing to write of this one: the same key, value and
  // key ID may come round again behind a nested list or dictionary that held them.
  void forget() {
    key = nullptr;
    value = nullptr;
    value_written = 1;
  }
};

#endif  // RUBRUF_PROVIDER_WALK_STATE_H_

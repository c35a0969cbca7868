// Where a walk stands: the open lists and dictionaries, and the item being written.
//
// A walk holds what it is in. The result keeps all of it alive only as long as nobody changes the result, and Python
// code may run in between: a script's "get_tag", a thread of a script, a handler of encoding errors, the garbage
// collector.

#ifndef RUBRUF_PROVIDER_WALK_STATE_H_
#define RUBRUF_PROVIDER_WALK_STATE_H_

#include <cstdint>
#include <utility>

#include "provider/tokens.h"
#include "utils/python_env/owned_ref.h"
#include "utils/python_env/python.h"

// An open list or dictionary.
struct iterable_position_t {
  // `opened` is borrowed.
  iterable_position_t(PyObject* opened, uint32_t opened_key_id) : iterable(NewRef(opened)), key_id(opened_key_id) {}

  OwnedRef iterable;
  // List: the index of the item to visit next. Dictionary: the PyDict_Next position of the entry to visit next.
  Py_ssize_t position = 0;
  uint32_t key_id;  // of its start marker, and so of its end marker
};

// The current item and how far it is written.
//
// A dictionary entry: its key name, then its value or start marker. A list item has no key name: `key_written` is
// always set. At the top level `value_written` stands for the time stamp, and then `key_written` for the start marker.
struct CurrentPythonData {
  OwnedRef key;
  OwnedRef value;
  uint32_t key_id = PYTHON_EVENT_NO_KEY;
  uint8_t key_written = 0;
  uint8_t value_written = 0;
  // The current item is a dictionary entry that is neither passed nor opened: a refused token of it is to be written
  // again, if the dictionary still holds the same key and value there.
  uint8_t entry_pending = 0;

  void init() { *this = CurrentPythonData(); }

  // Makes an entry current. Coming back to the same one after a refused token keeps what is known to be written.
  void set(OwnedRef new_key, OwnedRef new_value, uint32_t new_key_id) {
    if (key == new_key && value == new_value && key_id == new_key_id) return;
    set_new(std::move(new_key), std::move(new_value), new_key_id);
  }

  // Makes an entry current of which nothing is written.
  void set_new(OwnedRef new_key, OwnedRef new_value, uint32_t new_key_id) {
    key.swap(new_key);
    value.swap(new_value);
    key_id = new_key_id;
    key_written = 0;
    value_written = 0;
    entry_pending = 0;
  }

  // Makes a list item current, under the key ID of its list.
  void set_list_item(OwnedRef item) {
    key_written = 1;
    value_written = 0;
    value = std::move(item);
  }
};

#endif  // RUBRUF_PROVIDER_WALK_STATE_H_

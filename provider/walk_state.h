// The state of a walk: the open lists and dictionaries, and the item that is being written.
//
// The state owns a reference to each of these objects. The result alone would not keep them alive, because Python code
// may change it between two tokens: a script's "get_tag", a thread of a script, a handler of encoding errors, or the
// garbage collector.

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
  uint32_t key_id;  // its start marker and its end marker carry this key ID
};

// The current item, and which of its tokens are written. The two flags mean:
//
//   item              | `key_written`                      | `value_written`
//   dictionary entry  | the key name is written            | the value or start marker is written
//   list item         | always set: it has no key name     | the value or start marker is written
//   top level         | the start marker is written        | the time stamp is written, which comes first
struct CurrentPythonData {
  OwnedRef key;
  OwnedRef value;
  uint32_t key_id = PYTHON_EVENT_NO_KEY;
  uint8_t key_written = 0;
  uint8_t value_written = 0;
  // The item is a dictionary entry of which a token may still be refused. The next call then fetches the entry again,
  // and goes on with it if the dictionary still holds the same key and value there.
  uint8_t entry_pending = 0;

  void init() { *this = CurrentPythonData(); }

  // Makes an item current. The flags stay if it is the same item again, after a refused token.
  void set(OwnedRef new_key, OwnedRef new_value, uint32_t new_key_id) {
    if (key == new_key && value == new_value && key_id == new_key_id) return;
    set_new(std::move(new_key), std::move(new_value), new_key_id);
  }

  // Makes an item current of which nothing is written.
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

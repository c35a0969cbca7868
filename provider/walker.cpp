// The walk of a script's result: from nested lists and dictionaries to tokens, resumable at every one of them.
//
// A refused token returns to the host with the position kept in the provider; the next progress call forms the same
// token again. Once the script's function has returned, a progress call runs no Python code, save what the interpreter
// itself may run while it raises the error of a text without UTF-8 form, and the end of what a script has let go.

#include <algorithm>

#include "provider/provider.h"
#include "provider/script_config.h"
#include "utils/log/log.h"
#include "utils/python_env/owned_ref.h"
#include "utils/python_env/python_env.h"
#include "utils/python_env/python_runs.h"

namespace {

bool IsIterable(PyObject* object) { return PyList_Check(object) || PyDict_Check(object); }

}  // namespace

tev_progress_status_t PythonEventProvider::Progress(tev_data_serializer_t* serializer, unsigned char index) {
  tev_progress_status_t status = TEV_PROGRESS_DONE;
  if (!collection_in_progress) {
    if (collection_result == nullptr) {
      if (!DoCollection(index)) return TEV_PROGRESS_ERROR;
      if (IsEmpty(collection_result)) {
        Py_CLEAR(collection_result);
        return TEV_PROGRESS_DONE;
      }
    }
    if (!SetIterable(&status, serializer)) return status;
  }
  while (true) {
    if (current_item.key_written && !current_item.value_written && !IsIterable(current_item.value.get())) {
      status = WriteValue(serializer);
      if (status != TEV_PROGRESS_DONE) return status;
      current_item.value_written = 1;
    }
    if (!SetCurrent(&status, serializer)) {
      PyErr_Clear();
      ResetWalk();
      return index < script_configs.size() ? script_configs[index]->force_sync : TEV_PROGRESS_DONE;
    }
    if (status != TEV_PROGRESS_DONE) return status;
  }
}

// Lets go of what the walk holds without giving it back, which only a running interpreter can take.
void PythonEventProvider::AbandonWalk() {
  for (iterable_position_t& open : iterable_stack) static_cast<void>(open.iterable.release());
  static_cast<void>(current_item.key.release());
  static_cast<void>(current_item.value.release());
  collection_result = nullptr;
}

// Forgets the walk. What it holds is given back, if its interpreter still runs.
void PythonEventProvider::ResetWalk() {
  if (!PythonRuns()) AbandonWalk();
  iterable_stack.clear();
  current_iterable = nullptr;
  collection_in_progress = 0;
  current_item.init();
  Py_CLEAR(collection_result);
}

// Calls the script's function and keeps its result. False after a message; no result is then held.
bool PythonEventProvider::DoCollection(unsigned char index) {
  if (index >= script_configs.size() || script_configs[index] == nullptr) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] internal error - invalid index/script configuration object not exist");
    return false;
  }
  const ScriptConfig* script = script_configs[index];
  if (script->function == nullptr) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] no python function is set for script %s", script->script_path.c_str());
    return false;
  }
  if (script->args_dict == nullptr) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] internal error - could not set config dictionary of %s",
            script->script_path.c_str());
    return false;
  }
  collection_path = script->script_path;
  collection_result = PyObject_CallFunctionObjArgs(script->function, script->args_dict, nullptr);
  if (PyErr_Occurred() != nullptr) {
    tev_python_environment_print_error();
    Py_CLEAR(collection_result);
    return false;
  }
  return true;
}

bool PythonEventProvider::IsEmpty(PyObject* object) const {
  if (PyList_Check(object)) return PyList_GET_SIZE(object) == 0;
  return PyDict_Check(object) && PyDict_Size(object) == 0;
}

// Writes the time stamp and the top-level start marker. False when either was refused or the result cannot be walked;
// `status` tells. The result then stays held, and the next call goes on here without calling the script.
bool PythonEventProvider::SetIterable(tev_progress_status_t* status, tev_data_serializer_t* serializer) {
  current_item.set(nullptr, NewRef(collection_result), PYTHON_EVENT_NO_KEY);
  if (!current_item.value_written) {
    *status = OnNewCollection(serializer);
    if (*status != TEV_PROGRESS_DONE) return false;
    current_item.value_written = 1;
  }
  if (!current_item.key_written) {
    if (!OnNewIterable(collection_result, PYTHON_EVENT_NO_KEY, status, serializer)) return false;
    current_item.key_written = 1;
  }
  current_iterable = collection_result;
  collection_in_progress = 1;
  return true;
}

// Writes the value of the current item, which is neither a list nor a dictionary. A bool is an int to Python, so it is
// asked for first; no object is both an int and a float, and to ask for a float costs a call.
tev_progress_status_t PythonEventProvider::WriteValue(tev_data_serializer_t* serializer) {
  PyObject* value = current_item.value.get();
  if (PyUnicode_Check(value)) return OnString(serializer);
  if (PyBool_Check(value)) return OnBool(serializer);
  if (PyLong_Check(value)) return OnLong(serializer);
  if (PyFloat_Check(value)) return OnDouble(serializer);
  TEV_LOG(TEV_LOG_ERROR, "[python provider] Got an unsupported type (%s)", "Progress");
  return TEV_PROGRESS_ERROR;
}

// Goes to the next scalar, opening and closing lists and dictionaries on the way. True when it is current and its value
// is to be written, or when a token was not taken (`status` tells); false when nothing is left to walk.
bool PythonEventProvider::SetCurrent(tev_progress_status_t* status, tev_data_serializer_t* serializer) {
  while (!iterable_stack.empty()) {
    const bool in_dict = PyDict_Check(current_iterable);
    switch (in_dict ? NextEntry(status, serializer) : NextItem(status, serializer)) {
      case Step::kReturn:
        return true;
      case Step::kOpened:
        break;
      case Step::kExhausted:
        if (!OnEndIterable(status, serializer, in_dict ? PYTHON_EVENT_DICT_END : PYTHON_EVENT_LIST_END)) return true;
        break;
      case Step::kAbandoned:
        return false;
    }
  }
  return false;
}

// The next entry of the open dictionary. Its position stays before an entry until that is passed: when its scalar is to
// be written, or its nested list or dictionary is closed. So a refused token fetches the entry anew, and what a script
// has put in its place meanwhile is written instead, key name first.
PythonEventProvider::Step PythonEventProvider::NextEntry(tev_progress_status_t* status,
                                                         tev_data_serializer_t* serializer) {
  Py_ssize_t end = iterable_stack.back().position;
  PyObject* key = nullptr;    // borrowed
  PyObject* value = nullptr;  // borrowed
  if (!PyDict_Next(current_iterable, &end, &key, &value)) {
    current_item.entry_pending = 0;
    return Step::kExhausted;
  }
  if (!current_item.entry_pending || key != current_item.key.get() || value != current_item.value.get()) {
    // Both are held before the key is read, which may run Python code.
    current_item.set_new(NewRef(key), NewRef(value), PYTHON_EVENT_NO_KEY);
    current_item.key_id = GetKeyID(key);
    // A key without a number is looked at, and reported, anew each time.
    current_item.entry_pending = current_item.key_id != PYTHON_EVENT_NO_KEY;
  }
  if (!current_item.key_written) {
    *status = OnKeyID(serializer);
    if (*status != TEV_PROGRESS_DONE) return Step::kReturn;
    current_item.key_written = 1;
  }
  value = current_item.value.get();
  if (!IsIterable(value)) {
    iterable_stack.back().position = end;
    current_item.entry_pending = 0;
    *status = TEV_PROGRESS_DONE;
    return Step::kReturn;
  }
  if (!OnNewIterable(value, current_item.key_id, status, serializer)) return Step::kReturn;
  current_iterable = value;
  current_item.value_written = 1;
  current_item.entry_pending = 0;
  return Step::kOpened;
}

// The next item of the open list; the position as in NextEntry.
PythonEventProvider::Step PythonEventProvider::NextItem(tev_progress_status_t* status,
                                                        tev_data_serializer_t* serializer) {
  const Py_ssize_t position = iterable_stack.back().position;
  if (position >= PyList_GET_SIZE(current_iterable)) return Step::kExhausted;
  PyObject* item = PyList_GET_ITEM(current_iterable, position);
  if (PyList_Check(item)) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] invalid input - found a list in a list");
    return Step::kAbandoned;
  }
  current_item.set_list_item(NewRef(item));
  if (!PyDict_Check(item)) {
    iterable_stack.back().position = position + 1;
    *status = TEV_PROGRESS_DONE;
    return Step::kReturn;
  }
  if (!OnNewIterable(item, current_item.key_id, status, serializer)) return Step::kReturn;
  current_iterable = item;
  current_item.value_written = 1;
  return Step::kOpened;
}

// Writes the start marker of a list or dictionary and opens it. When the marker is not taken, nothing is opened.
bool PythonEventProvider::OnNewIterable(PyObject* object, uint32_t key_id, tev_progress_status_t* status,
                                        tev_data_serializer_t* serializer) {
  if (!IsIterable(object)) {
    TEV_LOG(TEV_LOG_ERROR, "called %s with a not supported iterable", "OnNewIterable");
    *status = TEV_PROGRESS_ERROR;
    return false;
  }
  if (IsOpen(object)) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] circular reference in the result of %s", collection_path.c_str());
    *status = TEV_PROGRESS_ERROR;
    return false;
  }
  // The entry comes before the token: were memory to run out behind the token, the next call would write it twice.
  iterable_stack.emplace_back(object, key_id);
  *status = OnDataMarker(PyDict_Check(object) ? PYTHON_EVENT_DICT_START : PYTHON_EVENT_LIST_START, key_id, serializer);
  if (*status != TEV_PROGRESS_DONE) iterable_stack.pop_back();
  return *status == TEV_PROGRESS_DONE;
}

// Whether a list or dictionary, the current item's, is one of those that the walk is in. One that is has four
// references: from where it was met first, from where it was met again, from the current item and from the stack. The
// search is left to those.
bool PythonEventProvider::IsOpen(PyObject* iterable) const {
  if (Py_REFCNT(iterable) < 4) return false;
  return std::any_of(iterable_stack.begin(), iterable_stack.end(),
                     [=](const iterable_position_t& open) { return open.iterable.get() == iterable; });
}

// Writes the end marker of the open list or dictionary, closes it and steps its parent past it; a list that is thereby
// exhausted is closed too, as is a dictionary that has lost its entry. False when a token was not taken (`status`
// tells): what it would have closed is still open, and found exhausted again by the next call.
bool PythonEventProvider::OnEndIterable(tev_progress_status_t* status, tev_data_serializer_t* serializer,
                                        python_event_type_t type) {
  while (true) {
    current_item.key_id = iterable_stack.back().key_id;
    if (type == PYTHON_EVENT_LIST_END) PyErr_Clear();
    *status = OnDataMarker(type, current_item.key_id, serializer);
    if (*status != TEV_PROGRESS_DONE) return false;
    iterable_stack.pop_back();
    if (iterable_stack.empty()) return true;

    iterable_position_t& parent = iterable_stack.back();
    current_iterable = parent.iterable.get();
    current_item.key_id = parent.key_id;
    if (PyDict_Check(current_iterable)) {
      if (PyDict_Next(current_iterable, &parent.position, nullptr, nullptr)) return true;
      type = PYTHON_EVENT_DICT_END;
    } else if (PyList_Check(current_iterable)) {
      if (++parent.position < PyList_GET_SIZE(current_iterable)) return true;
      type = PYTHON_EVENT_LIST_END;
    } else {
      TEV_LOG(TEV_LOG_ERROR, "%s - unsupported iterable", "OnEndIterable");
      *status = TEV_PROGRESS_ERROR;
      return false;
    }
  }
}

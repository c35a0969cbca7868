// The walk of a script's result: it writes nested lists and dictionaries as tokens, and can resume at every token.
//
// If the writer refuses a token, the progress call returns and the provider keeps the position; the next progress call
// forms the same token again. Once the script's function has returned, a progress call runs no Python code, with two
// exceptions: a script's handler for encoding errors, and destructors of objects that scripts have dropped.

#include <algorithm>
#include <utility>

#include "provider/provider.h"
#include "provider/script_config.h"
#include "utils/log/log.h"
#include "utils/python_env/cpython_layout.h"
#include "utils/python_env/owned_ref.h"
#include "utils/python_env/python_env.h"
#include "utils/python_env/python_runs.h"

namespace {

bool IsIterable(PyObject* object) { return PyList_Check(object) || PyDict_Check(object); }

}  // namespace

tev_progress_status_t PythonEventProvider::Progress(tev_data_serializer_t* serializer, unsigned char index) {
  const tev_progress_status_t status = Walk(serializer, index);
  if (!collection_stats) return status;
  collection_stats->AddCall(status, std::exchange(tokens_written, 0));
  if ((status == TEV_PROGRESS_DONE || status == TEV_PROGRESS_DONE_FORCE_SYNC) && tolerance.left_out > 0) {
    TEV_LOG(TEV_LOG_WARNING, "[python provider] values left out of the result of %s: %zu, the first: %s",
            collection_path.c_str(), tolerance.left_out, tolerance.first.c_str());
  }
  return status;
}

// Begins a collection or goes on with the one under way.
tev_progress_status_t PythonEventProvider::Walk(tev_data_serializer_t* serializer, unsigned char index) {
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

// Drops the walk's references without decrementing them, because no interpreter is running.
void PythonEventProvider::AbandonWalk() {
  for (iterable_position_t& open : iterable_stack) static_cast<void>(open.iterable.release());
  static_cast<void>(current_item.key.release());
  static_cast<void>(current_item.value.release());
  collection_result = nullptr;
}

// Ends the walk. Its references are decremented if the interpreter runs.
void PythonEventProvider::ResetWalk() {
  if (!PythonRuns()) AbandonWalk();
  iterable_stack.clear();
  current_iterable = nullptr;
  collection_in_progress = 0;
  current_item.init();
  Py_CLEAR(collection_result);
}

// Calls the script's function and keeps its result. False after an error message; no result is then kept.
bool PythonEventProvider::DoCollection(unsigned char index) {
  collection_stats = nullptr;
  if (index >= script_configs.size() || script_configs[index] == nullptr) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] internal error - invalid index/script configuration object not exist");
    return false;
  }
  const ScriptConfig* script = script_configs[index];
  collection_path = script->script_path;
  collection_stats = script->stats;
  collection_stats->Begin();
  if (script->function == nullptr) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] no python function is set for script %s", script->script_path.c_str());
    return false;
  }
  if (script->args_dict == nullptr) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] internal error - could not set config dictionary of %s",
            script->script_path.c_str());
    return false;
  }
  tolerance = Tolerance();
  tolerance.on = script->tolerant;
  const ScriptStats::Clock::time_point begin = ScriptStats::Clock::now();
  collection_result = PyObject_CallFunctionObjArgs(script->function, script->args_dict, nullptr);
  collection_stats->AddTime(ScriptStats::Clock::now() - begin);
  if (PyErr_Occurred() != nullptr) {
    tev_python_environment_print_error();
    Py_CLEAR(collection_result);
    return false;
  }
  if (tolerance.on && !IsIterable(collection_result)) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] the result of %s is no list or dictionary: %s", collection_path.c_str(),
            Py_TYPE(collection_result)->tp_name);
    Py_CLEAR(collection_result);
    return false;
  }
  return true;
}

bool PythonEventProvider::IsEmpty(PyObject* object) const {
  if (PyList_Check(object)) return PyList_GET_SIZE(object) == 0;
  return PyDict_Check(object) && PyDict_Size(object) == 0;
}

// Writes the time stamp and the top-level start marker. False if a token was refused or the result cannot be walked:
// `status` tells which. The result is then kept, and the next progress call continues here without calling the script.
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

// Writes the value of the current item, which is neither a list nor a dictionary. The test for bool comes before the
// test for int, because every bool is an int to Python. The test for float comes last, because it costs a call; no
// object is both an int and a float.
tev_progress_status_t PythonEventProvider::WriteValue(tev_data_serializer_t* serializer) {
  PyObject* value = current_item.value.get();
  if (PyUnicode_Check(value)) return OnString(serializer);
  if (PyBool_Check(value)) return OnBool(serializer);
  if (PyLong_Check(value)) return OnLong(serializer);
  if (PyFloat_Check(value)) return OnDouble(serializer);
  TEV_LOG(TEV_LOG_ERROR, "[python provider] Got an unsupported type (%s)", "Progress");
  return TEV_PROGRESS_ERROR;
}

// Goes on to the next scalar. Writes the key names, start markers and end markers on the way.
bool PythonEventProvider::SetCurrent(tev_progress_status_t* status, tev_data_serializer_t* serializer) {
  while (!iterable_stack.empty()) {
    const bool in_dict = PyDict_Check(current_iterable);
    switch (in_dict ? NextEntry(status, serializer) : NextItem(status, serializer)) {
      case Step::kReturn:
        return true;
      case Step::kOpened:
      case Step::kLeftOut:
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

// Makes the next entry of the open dictionary current (kReturn), and sets `end` to the position behind it. The stored
// position moves past an entry only when the entry is left out, its scalar becomes current, or its nested list or
// dictionary is closed. Until then each call fetches the entry anew: if a script has replaced it since a refused token,
// the new entry is written instead, key name first. The walk of a tolerant script's result keeps the entry once its key
// name is written, because the new one might have to be left out, and the key name would have no value.
PythonEventProvider::Step PythonEventProvider::FetchEntry(Py_ssize_t* end) {
  PyObject* key = nullptr;    // borrowed
  PyObject* value = nullptr;  // borrowed
  *end = iterable_stack.back().position;
  const bool found = PyDict_Next(current_iterable, end, &key, &value) != 0;
  if (current_item.entry_pending) {
    const bool same = found && key == current_item.key.get() && value == current_item.value.get();
    if (same || (tolerance.on && current_item.key_written)) return Step::kReturn;
  }
  if (!found) {
    current_item.entry_pending = 0;
    return Step::kExhausted;
  }
  // The references are taken before the key is read, because reading it may run Python code.
  current_item.set_new(NewRef(key), NewRef(value), PYTHON_EVENT_NO_KEY);
  if (tolerance.on && LeavesOut(key, value)) {
    iterable_stack.back().position = *end;
    return Step::kLeftOut;
  }
  current_item.key_id = GetKeyID(key);
  // If the key has no number, the next call reads it, and reports it, again.
  current_item.entry_pending = current_item.key_id != PYTHON_EVENT_NO_KEY;
  return Step::kReturn;
}

// Goes to the next entry of the open dictionary, writes its key name, and opens its list or dictionary if it is one.
PythonEventProvider::Step PythonEventProvider::NextEntry(tev_progress_status_t* status,
                                                         tev_data_serializer_t* serializer) {
  Py_ssize_t end = 0;
  if (const Step fetched = FetchEntry(&end); fetched != Step::kReturn) return fetched;
  if (!current_item.key_written) {
    *status = OnKeyID(serializer);
    if (*status != TEV_PROGRESS_DONE) return Step::kReturn;
    current_item.key_written = 1;
  }
  PyObject* value = current_item.value.get();
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

// Goes to the next item of the open list. The stored position moves as in FetchEntry.
PythonEventProvider::Step PythonEventProvider::NextItem(tev_progress_status_t* status,
                                                        tev_data_serializer_t* serializer) {
  const Py_ssize_t position = iterable_stack.back().position;
  if (position >= PyList_GET_SIZE(current_iterable)) return Step::kExhausted;
  PyObject* item = PyList_GET_ITEM(current_iterable, position);
  // The item is held before it is read, which may run Python code.
  current_item.set_list_item(NewRef(item));
  if (tolerance.on) {
    // Nothing of the item is to be written until that is decided: memory may run out here.
    current_item.value_written = 1;
    if (LeavesOut(nullptr, item)) {
      iterable_stack.back().position = position + 1;
      return Step::kLeftOut;
    }
    current_item.value_written = 0;
  }
  if (PyList_Check(item)) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] invalid input - found a list in a list");
    return Step::kAbandoned;
  }
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

// Writes the start marker of a list or dictionary and opens it. False if the marker was not written, as `status` tells;
// nothing is opened then.
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
  // The stack entry is made before the token is written: if memory ran out after the token, the next call would write
  // the token twice.
  iterable_stack.emplace_back(object, key_id);
  *status = OnDataMarker(PyDict_Check(object) ? PYTHON_EVENT_DICT_START : PYTHON_EVENT_LIST_START, key_id, serializer);
  if (*status != TEV_PROGRESS_DONE) iterable_stack.pop_back();
  return *status == TEV_PROGRESS_DONE;
}

// True if `iterable`, the current item's value, is already open: a circular reference. An open one has at least four
// references (from its two places in the result, from the current item and from the stack), so one with fewer needs no
// search.
bool PythonEventProvider::IsOpen(PyObject* iterable) const {
  if (!HasFourReferences(iterable)) return false;
  return std::any_of(iterable_stack.begin(), iterable_stack.end(),
                     [=](const iterable_position_t& open) { return open.iterable.get() == iterable; });
}

// Writes the end marker of the open list or dictionary, closes it, and moves the parent's position past it. Closes the
// parent as well if it is a list without further items, or a dictionary that has lost the entry. False if a marker was
// not written, as `status` tells: its list or dictionary stays open, and the next call finds it exhausted again.
//
// The end of a list clears a pending Python error, because running past a list's last item raises an IndexError in
// Python's own interface. Running past a dictionary's last entry raises nothing, so a dictionary's end clears nothing.
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

// Finding what the event stream cannot carry, and naming its place.

#include "provider/tolerance.h"

#include <algorithm>

#include "provider/provider.h"
#include "provider/script_stats.h"
#include "provider/utf8.h"

namespace {

// The bytes of a place or of a type's name in a message.
constexpr size_t kLongestName = 200;

Obstacle TextObstacle(PyObject* text) {
  Py_ssize_t size = 0;
  if (Utf8(text, &size) == nullptr) {
    PyErr_Clear();
    return Obstacle::kEncoding;
  }
  return size > Py_ssize_t{UINT32_MAX} ? Obstacle::kLength : Obstacle::kNone;
}

bool FitsInLong(PyObject* number) {
  int overflow = 0;
  PyLong_AsLongAndOverflow(number, &overflow);
  return overflow == 0;
}

// A name that scripts have chosen, fit for one line of the log: without control characters, and cut at its beginning.
std::string Shown(std::string name) {
  if (name.size() > kLongestName) {
    const auto is_inside_character = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; };
    const auto cut = name.end() - static_cast<std::ptrdiff_t>(kLongestName);
    name = "..." + std::string(std::find_if_not(cut, name.end(), is_inside_character), name.end());
  }
  const auto is_control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
  std::replace_if(name.begin(), name.end(), is_control, '?');
  return name;
}

std::string Reason(Obstacle obstacle, bool in_key, PyObject* culprit) {
  const std::string what = in_key ? "a key " : "a text ";
  switch (obstacle) {
    case Obstacle::kNone:
      break;
    case Obstacle::kType:
      return (in_key ? "a key of type " : "") + Shown(Py_TYPE(culprit)->tp_name);
    case Obstacle::kEncoding:
      return what + "without UTF-8 form";
    case Obstacle::kLength:
      return what + "too long for a token";
    case Obstacle::kInteger:
      return "an integer beyond 64 bits";
    case Obstacle::kListInList:
      return "a list in a list";
    case Obstacle::kCircle:
      return "circular reference";
  }
  return {};
}

}  // namespace

Obstacle KeyObstacle(PyObject* key) { return PyUnicode_Check(key) ? TextObstacle(key) : Obstacle::kType; }

Obstacle ScalarObstacle(PyObject* value) {
  if (PyUnicode_Check(value)) return TextObstacle(value);
  if (PyLong_Check(value)) return FitsInLong(value) ? Obstacle::kNone : Obstacle::kInteger;
  return PyFloat_Check(value) ? Obstacle::kNone : Obstacle::kType;
}

// The obstacle in a value that was just fetched, from a list or a dictionary.
Obstacle PythonEventProvider::ValueObstacle(PyObject* value, bool in_list) const {
  const bool is_list = PyList_Check(value);
  if (!is_list && !PyDict_Check(value)) return ScalarObstacle(value);
  if (is_list && in_list) return Obstacle::kListInList;
  return IsOpen(value) ? Obstacle::kCircle : Obstacle::kNone;
}

// Whether the entry or item that was just fetched cannot be carried; it is then counted. The caller holds `key` (null
// in a list) and `value`, and steps past what is left out, so that it is counted once.
bool PythonEventProvider::LeavesOut(PyObject* key, PyObject* value) {
  Obstacle obstacle = key == nullptr ? Obstacle::kNone : KeyObstacle(key);
  const bool in_key = obstacle != Obstacle::kNone;
  if (!in_key) obstacle = ValueObstacle(value, key == nullptr);
  if (obstacle == Obstacle::kNone) return false;
  if (tolerance.left_out == 0) {
    tolerance.first = Shown(PlaceOf(in_key ? nullptr : key)) + ": " + Reason(obstacle, in_key, in_key ? key : value);
  }
  ++tolerance.left_out;
  ++collection_stats->values_left_out;
  return true;
}

// The place of the current item: "a.b" or "a[3]". `key` (borrowed, null if it has no text) is that of an entry.
std::string PythonEventProvider::PlaceOf(PyObject* key) const {
  std::string place;
  const auto append_key = [&place](const char* text) { place += (place.empty() ? "" : ".") + std::string(text); };
  for (auto open = iterable_stack.begin(); open != iterable_stack.end(); ++open) {
    if (PyList_Check(open->iterable.get())) {
      place += "[" + std::to_string(open->position) + "]";
    } else if (const auto inner = open + 1; inner != iterable_stack.end()) {
      // What is open in a dictionary was opened under the number of its key.
      const auto is_its_key = [inner](const auto& entry) { return entry.second == inner->key_id; };
      const auto name = std::find_if(key_ids.begin(), key_ids.end(), is_its_key);
      append_key(name == key_ids.end() ? "?" : name->first);
    } else if (Py_ssize_t size = 0; key != nullptr) {
      append_key(Utf8(key, &size));
    }
  }
  return place.empty() ? "the result" : place;
}

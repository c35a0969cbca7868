// The floor: visits a result by recursion and writes its tokens.

#include "bench/floor.h"

#include <ctime>

#include "provider/tokens.h"

namespace {

class Visitor {
 public:
  explicit Visitor(tev_data_serializer_t* serializer) : serializer_(serializer) {}

  void Token(python_event_type_t type, uint32_t key_id, const void* data = nullptr, Py_ssize_t size = 0) {
    tev_opaque_events_write(nullptr, serializer_, 1, app_id_, python_event_pack(type, key_id), 0, data,
                            static_cast<uint32_t>(size));
  }

  void Visit(PyObject* value, uint32_t key_id) {
    if (PyUnicode_Check(value)) {
      Py_ssize_t size = 0;
      const char* text = PyUnicode_AsUTF8AndSize(value, &size);
      Token(PYTHON_EVENT_STRING, key_id, text, size);
    } else if (PyBool_Check(value)) {
      Token(value == Py_True ? PYTHON_EVENT_TRUE : PYTHON_EVENT_FALSE, key_id);
    } else if (PyFloat_Check(value)) {
      const double number = PyFloat_AS_DOUBLE(value);
      Token(PYTHON_EVENT_DOUBLE, key_id, &number, sizeof number);
    } else if (PyLong_Check(value)) {
      const int64_t number = PyLong_AsLong(value);
      Token(PYTHON_EVENT_LONG, key_id, &number, sizeof number);
    } else if (PyDict_Check(value)) {
      Token(PYTHON_EVENT_DICT_START, key_id);
      Py_ssize_t position = 0;
      for (PyObject *key, *entry; PyDict_Next(value, &position, &key, &entry) != 0;) {
        Py_ssize_t size = 0;
        const char* text = PyUnicode_AsUTF8AndSize(key, &size);
        Token(PYTHON_EVENT_KEY_NAME, 0, text, size);
        Visit(entry, 0);
      }
      Token(PYTHON_EVENT_DICT_END, key_id);
    } else {
      Token(PYTHON_EVENT_LIST_START, key_id);
      for (Py_ssize_t i = 0; i < PyList_GET_SIZE(value); ++i) Visit(PyList_GET_ITEM(value, i), key_id);
      Token(PYTHON_EVENT_LIST_END, key_id);
    }
  }

 private:
  tev_data_serializer_t* serializer_;
  uint8_t app_id_[16] = {};
};

}  // namespace

void WriteByRecursion(PyObject* result, tev_data_serializer_t* serializer) {
  Visitor visitor(serializer);
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const uint64_t timestamp = static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
  visitor.Token(PYTHON_EVENT_NEW_COLLECTION, PYTHON_EVENT_NO_KEY, &timestamp, sizeof timestamp);
  visitor.Visit(result, PYTHON_EVENT_NO_KEY);
}

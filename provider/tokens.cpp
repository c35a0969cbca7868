// The writers of single tokens: each forms one token from the current item and hands it to the host's writer.

#include "provider/tokens.h"

#include <ctime>

#include "provider/provider.h"
#include "provider/utf8.h"
#include "utils/log/log.h"
#include "utils/python_env/cpython_layout.h"

tev_progress_status_t PythonEventProvider::WriteEvent(tev_data_serializer_t* serializer, uint32_t key_id,
                                                      python_event_type_t type, uint32_t size, const void* data) {
  const uint64_t type_and_key = python_event_pack(type, key_id);
  if (!tev_opaque_events_write(opaque_events, serializer, schema_id, app_id, type_and_key, 0, data, size)) {
    return TEV_PROGRESS_REFUSED;
  }
  ++tokens_written;
  return TEV_PROGRESS_DONE;
}

tev_progress_status_t PythonEventProvider::OnKeyID(tev_data_serializer_t* serializer) {
  Py_ssize_t size = 0;
  const char* text = Utf8(current_item.key.get(), &size);
  // A key without a number gets no token, even if a handler for encoding errors has made the key readable since.
  if (text == nullptr || current_item.key_id == PYTHON_EVENT_NO_KEY) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] key name encoding of key ID %u is not UTF-8", current_item.key_id);
    return TEV_PROGRESS_ERROR;
  }
  return WriteText(serializer, PYTHON_EVENT_KEY_NAME, text, size);
}

tev_progress_status_t PythonEventProvider::OnString(tev_data_serializer_t* serializer) {
  Py_ssize_t size = 0;
  const char* text = Utf8(current_item.value.get(), &size);
  if (text == nullptr) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] string encoding of key_id %u is not UTF-8", current_item.key_id);
    return TEV_PROGRESS_ERROR;
  }
  return WriteText(serializer, PYTHON_EVENT_STRING, text, size);
}

// A token's size has 32 bits. A longer text is an error, because a shortened one would not be what the script returned.
tev_progress_status_t PythonEventProvider::WriteText(tev_data_serializer_t* serializer, python_event_type_t type,
                                                     const char* text, Py_ssize_t size) {
  if (size > Py_ssize_t{UINT32_MAX}) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] text of key_id %u is too long for a token", current_item.key_id);
    return TEV_PROGRESS_ERROR;
  }
  return WriteEvent(serializer, current_item.key_id, type, static_cast<uint32_t>(size), text);
}

// An integer outside the signed 64-bit range is written as -1, which PyLong_AsLong returns for it, and its
// OverflowError stays pending.
tev_progress_status_t PythonEventProvider::OnLong(tev_data_serializer_t* serializer) {
  const int64_t value = LongValue(current_item.value.get());
  return WriteEvent(serializer, current_item.key_id, PYTHON_EVENT_LONG, sizeof value, &value);
}

tev_progress_status_t PythonEventProvider::OnDouble(tev_data_serializer_t* serializer) {
  const double value = PyFloat_AS_DOUBLE(current_item.value.get());
  return WriteEvent(serializer, current_item.key_id, PYTHON_EVENT_DOUBLE, sizeof value, &value);
}

tev_progress_status_t PythonEventProvider::OnBool(tev_data_serializer_t* serializer) {
  const bool value = PyObject_IsTrue(current_item.value.get()) != 0;
  return OnDataMarker(value ? PYTHON_EVENT_TRUE : PYTHON_EVENT_FALSE, current_item.key_id, serializer);
}

tev_progress_status_t PythonEventProvider::OnDataMarker(python_event_type_t type, uint32_t key_id,
                                                        tev_data_serializer_t* serializer) {
  return WriteEvent(serializer, key_id, type, 0, nullptr);
}

tev_progress_status_t PythonEventProvider::OnNewCollection(tev_data_serializer_t* serializer) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  auto seconds = static_cast<uint64_t>(now.tv_sec);
  auto microseconds = static_cast<uint64_t>(now.tv_nsec / 1000);
  if (now.tv_nsec > 999999999) {
    seconds += 1;
    microseconds -= 1000000;
  }
  const uint64_t timestamp = seconds * 1000000 + microseconds;
  return WriteEvent(serializer, PYTHON_EVENT_NO_KEY, PYTHON_EVENT_NEW_COLLECTION, sizeof timestamp, &timestamp);
}

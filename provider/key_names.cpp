// The key-name registry: numbers the dictionary keys that scripts return.
//
// The same text has the same number across scripts and collections, until a finalization; a new text gets the next one.
// Numbers are dense from 0 until the first finalization, and are never handed out twice.

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "provider/provider.h"
#include "provider/utf8.h"
#include "utils/log/log.h"

namespace {

struct Free {
  void operator()(char* text) const { free(text); }
};

// The hash that a dictionary key carries; -1 for what may have another one than its text, an instance of a subclass.
Py_hash_t CachedHash(PyObject* key) {
  return PyUnicode_CheckExact(key) ? reinterpret_cast<PyASCIIObject*>(key)->hash : -1;
}

}  // namespace

// Enters the text of `key` (borrowed) if it is new. Texts are compared up to their first zero character. A key that is
// not a str, or holds characters that UTF-8 cannot carry, is reported and has no number: PYTHON_EVENT_NO_KEY; the
// Python error stays pending. Throws std::bad_alloc, with no number handed out.
uint32_t PythonEventProvider::GetKeyID(PyObject* key) {
  Py_ssize_t length = 0;
  const char* text = Utf8(key, &length);
  if (text == nullptr) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] key encoding is not UTF-8. setting key to %d", -1);
    return PYTHON_EVENT_NO_KEY;
  }
  const auto size = static_cast<size_t>(length);
  const Py_hash_t hash = CachedHash(key);
  if (const uint32_t id = key_index.Find(hash, text, size); id != KeyIndex::kNone) return id;

  // The map's key type is that of the copies it owns; a search only reads.
  auto entry = key_ids.lower_bound(const_cast<char*>(text));
  if (entry == key_ids.end() || strcmp(entry->first, text) != 0) {
    std::unique_ptr<char, Free> copy(strdup(text));
    if (!copy) throw std::bad_alloc();
    entry = key_ids.emplace_hint(entry, copy.get(), next_key_id);
    static_cast<void>(copy.release());  // the map's from now on
    ++next_key_id;
  }
  // A text with a zero character inside is more than the map's copy of it, and is left to the map.
  if (hash != -1 && strlen(entry->first) == size) key_index.Add(hash, entry->first, size, entry->second);
  return entry->second;
}

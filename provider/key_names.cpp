// The key-name registry: it numbers the dictionary keys that scripts return.
//
// The same text has the same number in all scripts and collections of a life. A new text gets the next number. The
// first life counts from 0, a later life goes on counting, and no number is given twice.

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "provider/provider.h"
#include "provider/utf8.h"
#include "utils/log/log.h"
#include "utils/python_env/cpython_layout.h"

namespace {

struct Free {
  void operator()(char* text) const { free(text); }
};

}  // namespace

// Returns the number of `key` (borrowed), and enters its text first if it is new. Texts are compared up to their first
// zero character. Returns PYTHON_EVENT_NO_KEY after an error message, with the Python error pending, if the key is not
// a str or holds characters that UTF-8 cannot carry. Throws std::bad_alloc; no number is then given.
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

  // The map's key type is not const because the map owns its copies. The search only reads.
  auto entry = key_ids.lower_bound(const_cast<char*>(text));
  if (entry == key_ids.end() || strcmp(entry->first, text) != 0) {
    std::unique_ptr<char, Free> copy(strdup(text));
    if (!copy) throw std::bad_alloc();
    entry = key_ids.emplace_hint(entry, copy.get(), next_key_id);
    static_cast<void>(copy.release());  // the map owns it now
    ++next_key_id;
  }
  // A text with a zero character inside is longer than the map's copy of it. Only the map can find it.
  if (hash != -1 && strlen(entry->first) == size) key_index.Add(hash, entry->first, size, entry->second);
  return entry->second;
}

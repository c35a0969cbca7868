// The key-name registry: numbers the dictionary keys that scripts return.
//
// The same text has the same number across scripts and collections, until a finalization; a new text gets the next one.
// Numbers are dense from 0 until the first finalization, and are never handed out twice.

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "provider/provider.h"
#include "utils/log/log.h"

namespace {

struct Free {
  void operator()(char* text) const { free(text); }
};

}  // namespace

// Enters the text of `key` (borrowed) if it is new. Texts are compared up to their first zero character. A key that is
// not a str, or holds characters that UTF-8 cannot carry, is reported and has no number: kNoKeyId; the Python error
// stays pending. Throws std::bad_alloc, with nothing changed.
uint32_t PythonEventProvider::GetKeyID(PyObject* key) {
  const char* text = PyUnicode_AsUTF8(key);
  if (text == nullptr) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] key encoding is not UTF-8. setting key to %d", -1);
    return kNoKeyId;
  }
  // The map's key type is that of the copies it owns; a search only reads.
  if (const auto known = key_ids.find(const_cast<char*>(text)); known != key_ids.end()) return known->second;
  std::unique_ptr<char, Free> copy(strdup(text));
  if (!copy) throw std::bad_alloc();
  key_ids.emplace(copy.get(), next_key_id);
  static_cast<void>(copy.release());  // the map's from now on
  return next_key_id++;
}

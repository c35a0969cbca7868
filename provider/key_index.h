// KeyIndex: a hash table in front of the key-name registry's ordered map.
//
// It finds the number of a key text by the hash that Python has cached in the key. It borrows the texts, which the map
// owns, and is emptied before the map. Find compares the full text, so a hit is always right; a text that is missing
// here may still be in the map. The index takes 40 to 48 bytes for each text and holds no Python object.

#ifndef RUBRUF_PROVIDER_KEY_INDEX_H_
#define RUBRUF_PROVIDER_KEY_INDEX_H_

#include <cstdint>
#include <cstring>
#include <vector>

#include "utils/python_env/python.h"

// True if the first kWord bytes of both texts are the same, and the last kWord bytes too; the two ranges may overlap. A
// memcmp of a constant size needs no call.
template <size_t kWord>
bool SameEnds(const char* a, const char* b, size_t size) {
  return memcmp(a, b, kWord) == 0 && memcmp(a + size - kWord, b + size - kWord, kWord) == 0;
}

// memcmp(a, b, size) == 0. Most keys are so short that a call of memcmp would take longer than the comparison itself.
inline bool SameBytes(const char* a, const char* b, size_t size) {
  if (size > 16 || size < 2) return memcmp(a, b, size) == 0;
  if (size >= 8) return SameEnds<8>(a, b, size);
  if (size >= 4) return SameEnds<4>(a, b, size);
  return SameEnds<2>(a, b, size);
}

class KeyIndex {
 public:
  static constexpr uint32_t kNone = 0xFFFFFFFF;

  // The number of the text, or kNone if it is not here. `hash` is the hash of the text.
  uint32_t Find(Py_hash_t hash, const char* text, size_t size) {
    if (entries_.empty()) return kNone;
    // Scripts return the same keys in the same order again and again. So the key that followed the last one before is
    // likely to be next.
    uint32_t at = entries_[last_].next;
    if (!entries_[at].Is(hash, text, size)) {
      size_t slot = Home(hash);
      while ((at = slots_[slot]) != kNone && !entries_[at].Is(hash, text, size)) slot = (slot + 1) & Mask();
      if (at == kNone) return kNone;
      entries_[last_].next = at;
    }
    last_ = at;
    return entries_[at].id;
  }

  // Enters a text that is not here. The text is borrowed until Clear. Throws std::bad_alloc, with nothing changed.
  void Add(Py_hash_t hash, const char* text, size_t size, uint32_t id) {
    if (2 * (entries_.size() + 1) > slots_.size()) Grow();
    entries_.push_back({hash, text, static_cast<uint32_t>(size), id, 0});
    Place(static_cast<uint32_t>(entries_.size() - 1));
  }

  void Clear() { *this = KeyIndex(); }

 private:
  struct Entry {
    bool Is(Py_hash_t other_hash, const char* other_text, size_t other_size) const {
      return hash == other_hash && size == other_size && SameBytes(text, other_text, size);
    }

    Py_hash_t hash;
    const char* text;
    uint32_t size;
    uint32_t id;
    uint32_t next;  // the entry that was found after this one last time
  };

  size_t Mask() const { return slots_.size() - 1; }
  size_t Home(Py_hash_t hash) const { return static_cast<size_t>(hash) & Mask(); }

  void Place(uint32_t at) {
    size_t slot = Home(entries_[at].hash);
    while (slots_[slot] != kNone) slot = (slot + 1) & Mask();
    slots_[slot] = at;
  }

  void Grow() {
    slots_ = std::vector<uint32_t>(slots_.empty() ? 64 : 2 * slots_.size(), kNone);
    for (uint32_t at = 0; at < entries_.size(); ++at) Place(at);
  }

  std::vector<Entry> entries_;
  std::vector<uint32_t> slots_;  // positions in `entries_`; open addressing, a power of two, at most half full
  uint32_t last_ = 0;            // the entry that was found last
};

#endif  // RUBRUF_PROVIDER_KEY_INDEX_H_

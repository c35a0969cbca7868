// Input: draws what a fuzz target needs from the bytes of an input.

#ifndef RUBRUF_FUZZ_INPUT_H_
#define RUBRUF_FUZZ_INPUT_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzz {

// Texts come from the front and numbers from the back, so that a change of one leaves the others what they are. An
// input that is used up gives empty texts and zeros.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : front_(data), back_(data + size) {}

  bool empty() const { return front_ == back_; }

  uint8_t Byte() { return empty() ? uint8_t{0} : *--back_; }

  // A backslash ends the text, but for two, which are one in it.
  std::string Text(size_t longest) {
    std::string text;
    while (text.size() < longest && !empty()) {
      char next = Next();
      if (next == '\\' && !empty() && (next = Next()) != '\\') break;
      text += next;
    }
    return text;
  }

  template <typename T, size_t kSize>
  T OneOf(const T (&values)[kSize]) {
    static_assert(kSize <= 256);
    return values[Byte() % kSize];
  }

 private:
  char Next() { return static_cast<char>(*front_++); }

  const uint8_t* front_;
  const uint8_t* back_;
};

}  // namespace fuzz

#endif  // RUBRUF_FUZZ_INPUT_H_

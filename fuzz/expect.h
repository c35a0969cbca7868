// Expect and ExpectEqual: the assertions of the fuzz targets. A failure prints a message and aborts, so that the fuzzer
// keeps the input.

#ifndef RUBRUF_FUZZ_EXPECT_H_
#define RUBRUF_FUZZ_EXPECT_H_

#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

namespace fuzz {

template <typename T>
void Print(const T& value) {
  std::cerr << value;
}
template <typename T>
void Print(const std::vector<T>& values) {
  for (const T& value : values) std::cerr << "\n  " << value;
}

// `what` names the thing that is compared.
template <typename T>
void ExpectEqual(const T& actual, const T& expected, const std::string& what) {
  if (actual == expected) return;
  std::cerr << what << ": expected ";
  Print(expected);
  std::cerr << "; found ";
  Print(actual);
  std::cerr << std::endl;
  std::abort();
}

inline void Expect(bool holds, const std::string& what) { ExpectEqual(holds, true, what); }

}  // namespace fuzz

#endif  // RUBRUF_FUZZ_EXPECT_H_

// Expect and ExpectEqual: what a fuzz target says of an input. A fault is told, and ends the process as a finding.

#ifndef RUBRUF_FUZZ_EXPECT_H_
#define RUBRUF_FUZZ_EXPECT_H_

#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

template <typename T>
void Print(const T& value) {
  std::cerr << value;
}
inline void Print(bool value) { std::cerr << (value ? "true" : "false"); }
inline void Print(uint8_t value) { std::cerr << unsigned{value}; }
template <typename T>
void Print(const std::optional<T>& value) {
  value ? Print(*value) : Print("nothing");
}
template <typename First, typename Second>
void Print(const std::pair<First, Second>& pair) {
  Print(pair.first);
  Print(" = ");
  Print(pair.second);
}
template <typename T>
void Print(const std::vector<T>& values) {
  for (const T& value : values) {
    Print("\n  ");
    Print(value);
  }
}

// `what` names the thing that is compared; `about` is printed behind it.
template <typename T, typename About = const char*>
void ExpectEqual(const T& actual, const T& expected, const char* what, const About& about = "") {
  if (actual == expected) return;
  Print(what);
  Print(about);
  Print(": expected ");
  Print(expected);
  Print(", found ");
  Print(actual);
  std::cerr << std::endl;
  std::abort();
}

inline void Expect(bool holds, const char* what) { ExpectEqual(holds, true, what); }

#endif  // RUBRUF_FUZZ_EXPECT_H_

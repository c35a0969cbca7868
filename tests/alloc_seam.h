// The allocation seam: counts the memory that the library under test allocates, and makes allocations fail.
//
// alloc_seam.cpp replaces malloc, free, operator new and so on. They look at the caller. Allocations of the library
// count, also those that it makes through the C and C++ runtimes and Boost. Allocations of Python, the host's functions
// and the test do not count. Use it on one thread.

#ifndef RUBRUF_TESTS_ALLOC_SEAM_H_
#define RUBRUF_TESTS_ALLOC_SEAM_H_

namespace alloc_seam {

// Begins to count. The library must be loaded and stay loaded.
void Watch();

// The number of blocks that the library has allocated since Watch and that are not freed.
int Live();

// While this object exists, the library's allocation number `first` fails (counted from 1), and with `all` each later
// one too. Only one such object may exist.
class Failure {
 public:
  Failure(int first, bool all);
  ~Failure();
  Failure(const Failure&) = delete;
  Failure& operator=(const Failure&) = delete;

  // True if an allocation has failed.
  bool struck() const;
};

}  // namespace alloc_seam

#endif  // RUBRUF_TESTS_ALLOC_SEAM_H_

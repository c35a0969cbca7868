// The allocation seam: counts the memory that the library under test takes, and makes it run out.
//
// A test that links alloc_seam.cpp has its own malloc, free, operator new and so on. They look at who asks: what the
// library takes counts, itself or through the C and C++ runtimes and Boost, and not what the host's functions, Python
// and the test take. For one thread.

#ifndef RUBRUF_TESTS_ALLOC_SEAM_H_
#define RUBRUF_TESTS_ALLOC_SEAM_H_

namespace alloc_seam {

// Begins to count. The library must be loaded, and stay so.
void Watch();

// The library's blocks, taken since Watch, that nobody has freed.
int Live();

// While it lives, the library's allocation `first` fails, counted from 1, and with `all` each behind it. One at a time.
class Failure {
 public:
  Failure(int first, bool all);
  ~Failure();
  Failure(const Failure&) = delete;
  Failure& operator=(const Failure&) = delete;

  // Whether an allocation has failed.
  bool struck() const;
};

}  // namespace alloc_seam

#endif  // RUBRUF_TESTS_ALLOC_SEAM_H_

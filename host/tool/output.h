// Output: standard output, reserved for the results of rubruf-host.

#ifndef RUBRUF_HOST_TOOL_OUTPUT_H_
#define RUBRUF_HOST_TOOL_OUTPUT_H_

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>

namespace standin {

// Takes over the standard output of the process. Everything else that is written to it, as by print() in a script, goes
// to standard error. Construction and Write throw std::system_error on failure.
class Output {
 public:
  Output();
  void Write(const std::string& text);

  // The width of the window if this is a terminal, else 0.
  size_t Columns() const;

 private:
  std::unique_ptr<FILE, int (*)(FILE*)> stream_;
};

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_OUTPUT_H_

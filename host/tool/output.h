// Standard output, kept for the host alone.

#ifndef RUBRUF_HOST_TOOL_OUTPUT_H_
#define RUBRUF_HOST_TOOL_OUTPUT_H_

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>

namespace standin {

// Takes the process's standard output over; whatever else is written to it from then on, as by a script's print(), goes
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

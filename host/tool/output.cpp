// Output: moves the real standard output to a new descriptor, which programs started by scripts do not inherit.

#include "host/tool/output.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace standin {
namespace {

void Require(bool success) {
  if (!success) throw std::system_error(errno, std::generic_category(), "cannot write to standard output");
}

}  // namespace

Output::Output() : stream_(nullptr, std::fclose) {
  const int own = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  Require(own >= 0);
  stream_.reset(fdopen(own, "w"));
  Require(stream_ != nullptr && dup2(STDERR_FILENO, STDOUT_FILENO) >= 0);
}

void Output::Write(const std::string& text) {
  Require(std::fwrite(text.data(), 1, text.size(), stream_.get()) == text.size() && std::fflush(stream_.get()) == 0);
}

size_t Output::Columns() const {
  winsize window{};
  return ioctl(fileno(stream_.get()), TIOCGWINSZ, &window) == 0 ? window.ws_col : 0;
}

}  // namespace standin

// FileWatch: implemented with inotify(7).

#include "host/tool/file_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace standin {
namespace {

constexpr uint32_t kChanges = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;

// Hidden files are ignored, because editors keep their own files under such names.
bool IsOfInterest(const std::string& name) {
  const size_t dot = name.rfind('.');
  return name[0] != '.' && dot != std::string::npos && (name.substr(dot) == ".py" || name.substr(dot) == ".cfg");
}

}  // namespace

FileWatch::FileWatch() : inotify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  if (inotify_ < 0) throw std::system_error(errno, std::generic_category(), "cannot watch files");
}

FileWatch::~FileWatch() { close(inotify_); }

bool FileWatch::Add(const std::string& directory) {
  const int watch = inotify_add_watch(inotify_, directory.c_str(), kChanges | IN_ONLYDIR);
  if (watch < 0) return false;
  directories_.emplace(watch, directory);
  return true;
}

std::set<std::string> FileWatch::Directories() const {
  std::set<std::string> names;
  for (const auto& [watch, name] : directories_) names.insert(name);
  return names;
}

std::set<std::string> FileWatch::Changed() {
  std::set<std::string> changed;
  alignas(inotify_event) std::array<char, 4096> buffer{};
  for (ssize_t size = 0; (size = read(inotify_, buffer.data(), buffer.size())) > 0;) {
    for (ssize_t at = 0; at < size;) {
      inotify_event event{};
      memcpy(&event, buffer.data() + at, sizeof event);
      const char* const name = buffer.data() + at + sizeof event;
      at += static_cast<ssize_t>(sizeof event + event.len);
      if ((event.mask & IN_IGNORED) != 0) directories_.erase(event.wd);
      if (event.len == 0 || !IsOfInterest(name)) continue;
      const std::string& directory = directories_[event.wd];
      changed.insert(directory == "." ? name : directory + "/" + name);
    }
  }
  return changed;
}

}  // namespace standin

// FileWatch: notices changes of scripts and .cfg files in directories.

#ifndef RUBRUF_HOST_TOOL_FILE_WATCH_H_
#define RUBRUF_HOST_TOOL_FILE_WATCH_H_

#include <map>
#include <set>
#include <string>

namespace standin {

// Directories are watched, not files, because editors replace a file by renaming a new one.
class FileWatch {
 public:
  // Throws std::system_error if the system has no watch left.
  FileWatch();
  ~FileWatch();
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

  // Starts to watch a directory. A second call for it has no effect. Returns false and sets errno on failure.
  bool Add(const std::string& directory);

  // The watched directories. A directory with several names appears under one of them.
  std::set<std::string> Directories() const;

  // Readable when something has changed in a watched directory.
  int descriptor() const { return inotify_; }

  // The paths of the scripts and .cfg files that were written, renamed or removed since the last call.
  std::set<std::string> Changed();

 private:
  int inotify_;
  std::map<int, std::string> directories_;  // by the number of the watch
};

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_FILE_WATCH_H_

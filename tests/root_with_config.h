// EnterRootWithConfig: a private root directory, in which tests can fill the fixed directory of virtual providers.

#ifndef RUBRUF_TESTS_ROOT_WITH_CONFIG_H_
#define RUBRUF_TESTS_ROOT_WITH_CONFIG_H_

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

// Moves this process to a new mount namespace, whose root has the directories of the real root and an empty "/config".
// Other processes do not see it, and it disappears with the process. False, with errno set, if the kernel forbids it.
inline bool EnterRootWithConfig() {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (unshare(CLONE_NEWNS) != 0) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
    std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
  }
  const std::filesystem::path root = "/sys";  // a directory that exists and that no test uses
  if (mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  if (mount("tmpfs", root.c_str(), "tmpfs", 0, nullptr) != 0) return false;
  for (const auto& entry : std::filesystem::directory_iterator("/")) {
    const std::filesystem::path inside = root / entry.path().filename();
    if (entry.path() == root || entry.path() == "/config") continue;
    if (entry.is_symlink()) {
      std::filesystem::copy_symlink(entry.path(), inside);
    } else if (entry.is_directory()) {
      std::filesystem::create_directory(inside);
      if (mount(entry.path().c_str(), inside.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) return false;
    }
  }
  for (const char* name : {"config", "sys"}) std::filesystem::create_directory(root / name);
  return chroot(root.c_str()) == 0 && chdir("/") == 0;
}

#endif  // RUBRUF_TESTS_ROOT_WITH_CONFIG_H_

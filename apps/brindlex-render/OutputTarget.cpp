#include "OutputTarget.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "platform/Gdi.h"

namespace fs = std::filesystem;

namespace {

// Following links by hand: a link to a name that does not exist yet is a
// new file at the link's target.
bool FollowLinks(std::string& path, std::string& error) {
  for (int hops = 0; hops < 40; ++hops) {
    struct stat info;
    if (lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) return true;
    std::error_code failed;
    const fs::path target = fs::read_symlink(path, failed);
    if (failed) break;
    path =
        (target.is_absolute() ? target : fs::path(path).parent_path() / target).lexically_normal().string();
  }
  error = path + ": the symbolic links lead nowhere";
  return false;
}

const char* KindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
  if (S_ISFIFO(mode)) return "a named pipe";
  if (S_ISSOCK(mode)) return "a socket";
  return "not a regular file";
}

}  // namespace

bool PrepareOutput(std::string& path, std::string& error) {
  if (!FollowLinks(path, error)) return false;
  struct stat info;
  if (stat(path.c_str(), &info) == 0) {
    if (!S_ISREG(info.st_mode)) {
      error = path + ": is " + KindOf(info.st_mode) + "; only a regular file is replaced by a picture";
      return false;
    }
    // The picture replaces the file by renaming, which the folder allows
    // even where the file itself is read-only: the file's mode decides.
    if (access(path.c_str(), W_OK) != 0 || !(info.st_mode & S_IWUSR)) {
      error = path + ": is read-only; it is kept as it is";
      return false;
    }
  } else if (errno != ENOENT) {
    error = path + ": " + std::strerror(errno);
    return false;
  }
  // The folder must take the temporary file the picture is written to.
  const fs::path folder = fs::path(path).parent_path();
  std::string probe = ((folder.empty() ? fs::path(".") : folder) / ".brindlex-probe-XXXXXX").string();
  const int fd = mkstemp(probe.data());
  if (fd < 0) {
    error = path + ": cannot write in folder '" + (folder.empty() ? "." : folder.string()) +
            "': " + std::strerror(errno);
    return false;
  }
  close(fd);
  unlink(probe.c_str());
  platform::RemoveAbandonedTemporaries(path.c_str());
  return true;
}

#include "platform/FileTime.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// 100-nanosecond steps between 1601-01-01 and 1970-01-01.
constexpr int64_t FileTimeOfUnixEpoch = 116444736000000000;

FILETIME ToFileTime(const timespec& time) {
  const uint64_t steps =
      static_cast<uint64_t>(FileTimeOfUnixEpoch + int64_t{time.tv_sec} * 10000000 + time.tv_nsec / 100);
  return {static_cast<uint32_t>(steps), static_cast<uint32_t>(steps >> 32)};
}

}  // namespace

unsigned long GetTempPathA(unsigned long bufferLength, char* buffer) {
  const char* folder = std::getenv("TMPDIR");
  if (!folder || !*folder) folder = "/tmp";
  const size_t length = std::strlen(folder);
  const bool needsSeparator = folder[length - 1] != '/';
  const size_t total = length + (needsSeparator ? 1 : 0);
  if (!buffer || bufferLength < total + 1) return static_cast<unsigned long>(total + 1);
  std::memcpy(buffer, folder, length);
  if (needsSeparator) buffer[length] = '/';
  buffer[total] = '\0';
  return static_cast<unsigned long>(total);
}

bool GetFileLastWriteTime(const char* path, FILETIME* lastWrite) {
  if (!path || !lastWrite) return false;
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat info {};
  const bool ok = fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
  close(fd);
  if (ok) *lastWrite = ToFileTime(info.st_mtim);
  return ok;
}

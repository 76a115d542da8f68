#include "host/brindlexutil.h"

#include <cctype>
#include <cstring>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

DebugLogStream debugOS;

unsigned long GetProcessorCount() {
  // The affinity mask is what a container or `taskset` really grants.
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof(set), &set) == 0) {
    int count = CPU_COUNT(&set);
    if (count > 0) return static_cast<unsigned long>(count);
  }
  long online = sysconf(_SC_NPROCESSORS_ONLN);
  return online > 0 ? static_cast<unsigned long>(online) : 1;
}

bool FileExists(const char* path) {
  struct stat info {};
  return path && stat(path, &info) == 0 && S_ISREG(info.st_mode);
}

void AppendBackSlash(char* folder) {
  if (!folder) return;
  size_t length = std::strlen(folder);
  if (length > 0 && folder[length - 1] != '/') {
    folder[length] = '/';
    folder[length + 1] = '\0';
  }
}

namespace {
bool EndsWithNoCase(const char* name, const char* ending) {
  if (!name) return false;
  size_t n = std::strlen(name), e = std::strlen(ending);
  if (n < e) return false;
  for (size_t i = 0; i < e; ++i)
    if (std::tolower(static_cast<unsigned char>(name[n - e + i])) != ending[i]) return false;
  return true;
}
}  // namespace

int IsBMPFile(const char* name) {
  return EndsWithNoCase(name, ".bmp") ? 1 : 0;
}
int IsPNGFile(const char* name) {
  return EndsWithNoCase(name, ".png") ? 1 : 0;
}
int IsTIFFile(const char* name) {
  return EndsWithNoCase(name, ".tif") || EndsWithNoCase(name, ".tiff") ? 1 : 0;
}

DebugLogStream::~DebugLogStream() {
  close();
}

DebugLogStream& DebugLogStream::operator<<(std::ostream& (*manipulator)(std::ostream&)) {
  manipulator(Pending());
  EmitCompleteLines();
  return *this;
}

bool DebugLogStream::open(const char* path) {
  std::lock_guard<std::mutex> lock(mutex);
  if (file.is_open()) file.close();
  file.clear();
  file.open(path, std::ios::out | std::ios::app);
  target = file.is_open() ? &file : nullptr;
  return file.is_open();
}

void DebugLogStream::close() {
  std::lock_guard<std::mutex> lock(mutex);
  if (file.is_open()) file.close();
  if (target == &file) target = nullptr;
}

bool DebugLogStream::is_open() const {
  return file.is_open();
}

void DebugLogStream::attach(std::ostream* newTarget) {
  std::lock_guard<std::mutex> lock(mutex);
  if (file.is_open()) file.close();
  target = newTarget;
}

std::ostringstream& DebugLogStream::Pending() {
  // Each thread keeps its unfinished line for each stream apart.
  thread_local std::map<const DebugLogStream*, std::ostringstream> pending;
  return pending[this];
}

void DebugLogStream::EmitCompleteLines() {
  std::ostringstream& own = Pending();
  std::string text = own.str();
  size_t end = text.rfind('\n');
  if (end == std::string::npos) return;
  {
    std::lock_guard<std::mutex> lock(mutex);
    if (target) {
      target->write(text.data(), static_cast<std::streamsize>(end + 1));
      target->flush();
    }
  }
  own.str(text.substr(end + 1));
  own.seekp(0, std::ios::end);
}

void OutputCatchToLog(bool caught, const char* const file, const int& line, const char* function,
                      bool flush) {
  if (!caught) return;
  debugOS << "Exception caught in " << (function ? function : "?") << " at " << (file ? file : "?") << " ("
          << line << ")" << std::endl;
  (void)flush;  // every line reaches the target flushed already
}

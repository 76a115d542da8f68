// Small utilities of the host: processor count, file-name helpers and the
// log stream.
#pragma once

#include <fstream>
#include <map>
#include <mutex>
#include <ostream>
#include <sstream>
#include <string>

// Number of processors this process may run on.
unsigned long GetProcessorCount();

// True if `path` names an existing file (not a folder).
bool FileExists(const char* path);

// Leaves a folder name ending in the path separator. On this platform the
// separator is '/', not the back slash of the function's name. An empty
// name stays empty, meaning the current folder.
void AppendBackSlash(char* folder);

// 1 if the file name ends in the format's extension, in any case, else 0.
int IsBMPFile(const char* name);  // .bmp
int IsPNGFile(const char* name);  // .png
int IsTIFFile(const char* name);  // .tif, .tiff

// The log stream. Many threads may write to it at once: each thread gathers
// its own text, and only whole lines, up to and including their '\n', reach
// the target, one line at a time. Until the host opens a file or attaches a
// stream, lines are dropped.
class DebugLogStream {
 public:
  DebugLogStream() = default;
  DebugLogStream(const DebugLogStream&) = delete;
  DebugLogStream& operator=(const DebugLogStream&) = delete;
  ~DebugLogStream();

  template <typename T>
  DebugLogStream& operator<<(const T& value) {
    Pending() << value;
    EmitCompleteLines();
    return *this;
  }
  // Manipulators such as std::endl.
  DebugLogStream& operator<<(std::ostream& (*manipulator)(std::ostream&));

  // Appends lines to a file; false if it cannot be opened.
  bool open(const char* path);
  void close();
  bool is_open() const;
  // Sends lines to `target` (not owned) instead of a file; null drops them.
  void attach(std::ostream* target);

 private:
  std::ostringstream& Pending();
  void EmitCompleteLines();

  std::mutex mutex;
  std::ofstream file;
  std::ostream* target = nullptr;
};

extern DebugLogStream debugOS;

// Writes one line about a caught exception: where it was caught. With
// `caught` false nothing is written. Every line of debugOS reaches its
// target flushed, so `flush` asks for nothing more.
void OutputCatchToLog(bool caught, const char* const file, const int& line, const char* function, bool flush);

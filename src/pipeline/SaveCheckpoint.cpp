// The checkpoint copies of a path-traced picture file.
#include <cstdio>
#include <cstring>
#include <string>

#include "platform/Gdi.h"
#include "pipeline/PictureSave.h"
#include "host/brindlexutil.h"

void SaveCheckpoint(const char* name, uint64_t pass) {
  if (!FileExists(name)) return;
  const char* separator = std::strrchr(name, '/');
  if (!separator) return;
  const std::string leaf(separator + 1);
  std::string folder(name, separator + 1);
  folder += "CheckPoint";
  CreateDirectoryA(folder.c_str(), nullptr);  // fails harmlessly when it exists
  // Room for the separator AppendBackSlash may add, and its zero.
  folder.append(2, '\0');
  AppendBackSlash(folder.data());
  folder.resize(std::strlen(folder.c_str()));
  // The extension is cut only from the leaf: a dot in a folder's name
  // (/renders/v1.2/view) is not an extension, and the leaf keeps its whole
  // name before "_<pass>".
  const size_t dot = leaf.rfind('.');
  std::string path = folder + leaf.substr(0, dot) + '_';
  // Passes are at most the host's int count, so they fit the 10 digits
  // that "%i" gives.
  char digits[11] = {};
  std::snprintf(digits, sizeof digits, "%i", static_cast<int>(pass));
  path += digits;
  if (dot != std::string::npos) path += leaf.substr(dot);
  CopyFileA(name, path.c_str(), false);
}

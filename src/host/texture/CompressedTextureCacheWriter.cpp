// Putting a texture's pyramid into the cache folder, under the name by which
// the render engine looks it up.
#include <cerrno>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "host/BrindlexTexture.h"
#include "platform/FileTime.h"
#include "platform/Gdi.h"

namespace {

// "<temporary folder>/BrindlexCT/<file name without its last extension>"
// plus ".ct1" or ".ct2"; empty when the picture path has no folder.
std::string CacheFileFor(const std::string& picturePath, bool transparent, std::string& folder) {
  const size_t slash = picturePath.find_last_of('/');
  if (slash == std::string::npos) return {};
  char temporary[261];
  const unsigned long length = GetTempPathA(sizeof temporary, temporary);
  if (length == 0 || length >= sizeof temporary) return {};
  folder = std::string(temporary) + CompressedTextureCacheFolder;
  std::string file = folder + "/" + picturePath.substr(slash + 1);
  const size_t dot = file.find_last_of('.');
  if (dot != std::string::npos && dot > folder.size()) file.erase(dot);
  return file + (transparent ? ".ct2" : ".ct1");
}

// Drops what CompressTextureLevel made, whatever happens to the file.
struct CompressedLevels {
  std::vector<SW_BC_TEXTURE> levels;
  ~CompressedLevels() {
    for (const SW_BC_TEXTURE& level : levels) {
      delete[] level.bc1Blocks;
      delete[] level.bc2Blocks;
    }
  }
};

}  // namespace

bool WriteCompressedTextureCache(const char* picturePath, bool transparent, const Brindlex_CImage* levels,
                                 unsigned int levelCount) {
  if (!picturePath || !levels || levelCount == 0) return false;
  FILETIME sourceTime;
  std::string folder;
  const std::string file = CacheFileFor(picturePath, transparent, folder);
  if (file.empty() || !GetFileLastWriteTime(picturePath, &sourceTime)) return false;
  if (!CreateDirectoryA(folder.c_str(), nullptr) && errno != EEXIST) return false;

  CompressedLevels compressed;
  compressed.levels.reserve(levelCount);
  for (unsigned int i = 0; i < levelCount; ++i) {
    SW_BC_TEXTURE level;
    if (!CompressTextureLevel(levels[i].Surface(), transparent, level)) return false;
    compressed.levels.push_back(level);
  }
  return WriteCompressedTextureArrayFile(file.c_str(), &sourceTime, compressed.levels.data(), levelCount);
}

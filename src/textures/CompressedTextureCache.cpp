// Looking a picture up in the compressed texture cache. The engine only
// reads the cache; a miss of any kind means loading the picture itself.
#include <cstring>
#include <string>
#include <vector>

#include "host/BrindlexTexture.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "platform/FileTime.h"
#include "textures/SWTexture.h"
#include "host/brindlexutil.h"

namespace {

// A temporary folder longer than this (the host's MAX_PATH) is not used.
constexpr unsigned long TempPathLimit = 260;

void AppendSeparator(std::string& folder) {
  // AppendBackSlash may add one character to the text.
  folder.append(2, '\0');
  AppendBackSlash(folder.data());
  folder.resize(std::strlen(folder.c_str()));
}

// "<temporary folder>/BrindlexCT"; empty when there is no temporary folder.
std::string CacheFolder() {
  char temporary[TempPathLimit + 1];
  const unsigned long length = GetTempPathA(sizeof temporary, temporary);
  if (length == 0 || length > TempPathLimit) return {};
  std::string folder = temporary;
  AppendSeparator(folder);
  return folder + CompressedTextureCacheFolder;
}

}  // namespace

bool RT_RENDER_ENGINE::ReadCompressedTextureCache(SWTexture& record, const char* path, bool transparent) {
  if (!path) return false;
  const std::string folder = CacheFolder();
  if (folder.empty()) return false;

  // Room for ConvertStringToMatchTextureFileType to lengthen the extension.
  std::vector<char> source(std::strlen(path) + 8, '\0');
  std::memcpy(source.data(), path, std::strlen(path));
  // 8 is the file type of "any picture": the file found on disk decides.
  int fileType = TextureFileTypeAny;
  if (IsValidTextureFileName(source.data(), nullptr, &fileType) &&
      GetTextureFileType(source.data()) != fileType)
    ConvertStringToMatchTextureFileType(source.data(), fileType);

  // A path with no folder is never cached. Folders end at '/', the
  // separator that AppendBackSlash writes on this platform.
  const char* slash = std::strrchr(source.data(), '/');
  if (!slash) return false;
  std::string cacheFile = folder;
  AppendSeparator(cacheFile);
  cacheFile += slash + 1;
  const size_t dot = cacheFile.find_last_of('.');
  if (dot != std::string::npos) cacheFile.erase(dot);
  cacheFile += transparent ? ".ct2" : ".ct1";
  if (!FileExists(cacheFile.c_str())) return false;

  FILETIME lastWrite;
  if (!GetFileLastWriteTime(source.data(), &lastWrite)) return false;
  if (!ReadCompressedTextureArrayFile(cacheFile.c_str(), &lastWrite, &record.compressedLevels,
                                      &record.levelCount))
    return false;
  record.name = path;
  return true;
}

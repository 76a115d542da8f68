// Texture file names: the type of a name by its extension, and the picture
// file that a name stands for when the picture was saved under another
// picture extension than the one the material recorded.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>

#include "host/texture/PictureCodecs.h"
#include "host/brindlexutil.h"

namespace {

struct Extension {
  const char* text;
  int type;
};

// Per type, the short spelling comes first: it is what a conversion writes
// when no spelling exists on disk.
constexpr Extension Extensions[] = {
    {".bmp", TextureFileTypeBmp}, {".jpg", TextureFileTypeJpeg}, {".jpeg", TextureFileTypeJpeg},
    {".png", TextureFileTypePng}, {".tif", TextureFileTypeTiff}, {".tiff", TextureFileTypeTiff},
};

// Where the extension of `name` starts: its last dot after the last folder
// separator, or npos.
size_t ExtensionStart(const std::string& name) {
  const size_t dot = name.find_last_of('.');
  const size_t slash = name.find_last_of("/\\");
  return dot == std::string::npos || (slash != std::string::npos && dot < slash) ? std::string::npos : dot;
}

bool SameNoCase(const char* a, const char* b) {
  for (; *a && *b; ++a, ++b)
    if (std::tolower(static_cast<unsigned char>(*a)) != std::tolower(static_cast<unsigned char>(*b)))
      return false;
  return *a == *b;
}

int TypeOf(const std::string& name) {
  const size_t start = ExtensionStart(name);
  if (start == std::string::npos) return TextureFileTypeAny;
  for (const Extension& extension : Extensions)
    if (SameNoCase(name.c_str() + start, extension.text)) return extension.type;
  return TextureFileTypeAny;
}

bool Wanted(int type, int wanted) {
  return wanted == TextureFileTypeAny || type == wanted;
}

// Pictures saved on case-sensitive file systems keep whatever case their
// maker used; the two common ones are tried.
std::string Spelled(const char* extension, bool upper) {
  std::string text = extension;
  if (upper)
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

bool IsUpper(const std::string& text) {
  bool anyLetter = false;
  for (char c : text) {
    if (std::islower(static_cast<unsigned char>(c))) return false;
    anyLetter = anyLetter || std::isupper(static_cast<unsigned char>(c));
  }
  return anyLetter;
}

std::string Joined(const char* name, const char* folder) {
  if (!folder || name[0] == '/') return name;
  std::string path = folder;
  if (!path.empty() && path.back() != '/') path += '/';
  return path + name;
}

// The first existing file of `stem` with an extension of a wanted type, in
// the order of Extensions; empty if there is none.
std::string ExistingSpelling(const std::string& stem, int wanted) {
  for (const Extension& extension : Extensions) {
    if (!Wanted(extension.type, wanted)) continue;
    for (bool upper : {false, true}) {
      std::string candidate = stem + Spelled(extension.text, upper);
      if (FileExists(candidate.c_str())) return candidate;
    }
  }
  return {};
}

}  // namespace

namespace picture {

std::string FindTextureFile(const std::string& path, int type) {
  const int ownType = TypeOf(path);
  if (ownType == TextureFileTypeAny) return {};
  if (Wanted(ownType, type) && FileExists(path.c_str())) return path;
  return ExistingSpelling(path.substr(0, ExtensionStart(path)), type);
}

}  // namespace picture

int GetTextureFileType(const char* name) {
  return name ? TypeOf(name) : TextureFileTypeAny;
}

bool IsValidTextureFileName(const char* name, const char* folder, int* type) {
  if (!name || !*name) return false;
  const int wanted = type ? *type : TextureFileTypeAny;
  const std::string found = picture::FindTextureFile(Joined(name, folder), wanted);
  if (found.empty()) return false;
  if (type) *type = TypeOf(found);
  return true;
}

void ConvertStringToMatchTextureFileType(char* name, int type) {
  if (!name) return;
  const std::string path = name;
  const size_t start = ExtensionStart(path);
  const std::string stem = path.substr(0, start);
  std::string converted = type == TextureFileTypeAny ? std::string() : ExistingSpelling(stem, type);
  if (converted.empty()) {
    const auto shortest = std::find_if(std::begin(Extensions), std::end(Extensions),
                                       [type](const Extension& e) { return e.type == type; });
    if (shortest == std::end(Extensions)) return;
    const bool upper = start != std::string::npos && IsUpper(path.substr(start));
    converted = stem + Spelled(shortest->text, upper);
  }
  std::memcpy(name, converted.c_str(), converted.size() + 1);
}

// Pictures for textures: decoding and encoding of picture files, the image
// class of the texture pyramids, texture file names and sizes.
#pragma once

#include <cstdint>

#include "CImage.h"
#include "DeviceContext.h"
#include "WindowsTypes.h"

// The picture file formats read and written here. The values double as
// texture file types and as encoder indices.
enum class PictureFileFormat : int { Bmp = 0, Jpeg = 1, Png = 2, Tiff = 3 };

// Texture file types: one per picture format, numbered as
// PictureFileFormat, plus "any", which stands for a name of no accepted
// format and which callers use as the starting value of a search. 8 leaves
// room for more formats below it.
constexpr int kTextureFileTypeBmp = 0;
constexpr int kTextureFileTypeJpeg = 1;
constexpr int kTextureFileTypePng = 2;
constexpr int kTextureFileTypeTiff = 3;
constexpr int kTextureFileTypeAny = 8;

// One level of a texture pyramid: an image that a fresh Create replaces.
class Brindlex_CImage : public ATL::CImage {
 public:
  Brindlex_CImage();
  ~Brindlex_CImage();
  Brindlex_CImage(Brindlex_CImage&&) noexcept = default;
  Brindlex_CImage& operator=(Brindlex_CImage&&) noexcept = default;

  // Like ATL::CImage::Create, but an image that already holds a bitmap
  // drops it first, so a level can be remade in place.
  int Create(int width, int height, int bitsPerPixel);

  using ATL::CImage::GetBits;
  using ATL::CImage::GetBPP;
  using ATL::CImage::GetDC;
  using ATL::CImage::GetHeight;
  using ATL::CImage::GetPitch;
  using ATL::CImage::GetWidth;
  using ATL::CImage::ReleaseDC;
};

// Decodes a BMP, JPEG, PNG or TIFF file, told apart by content, never by
// the name's extension. Grey pictures come out at 8 bits per pixel, colour
// at 24, and anything with alpha at 32 (grey with alpha spread to blue,
// green and red). A missing file is looked for under the other picture
// extensions, as IsValidTextureFileName does. False, with `image` left as it
// was, for anything that cannot be decoded.
bool LoadCImageTextureFromFile(const char* path, ATL::CImage& image);

// Writes 8, 24 or 32-bit pixels as a picture file. 8 bits are written grey
// and 32 bits with alpha, except that JPEG drops alpha (quality 90). On
// failure no file is left at `path`.
bool SavePictureFile(const char* path, const platform::PixelSurface& pixels, PictureFileFormat format);

// For "image/bmp", "image/jpeg", "image/png" and "image/tiff" (in any case)
// fills `clsid` with the encoder's class id, which Gdiplus::Bitmap::Save
// then knows, and returns its index, the PictureFileFormat value. -1 and
// `clsid` untouched for any other type.
int GetEncoderClsid(const wchar_t* mime, GUID* clsid);

// The type of a file name by its extension (any case): .bmp, .jpg or .jpeg,
// .png, .tif or .tiff; kTextureFileTypeAny for anything else.
int GetTextureFileType(const char* name);

// True when `name` (relative to `folder` unless null or `name` is absolute)
// has a picture extension and a picture file of it exists: either `name`
// itself or the same name with another picture extension. `type`, if given,
// holds kTextureFileTypeAny or a type to insist on; on success it receives
// the type of the file found.
bool IsValidTextureFileName(const char* name, const char* folder, int* type);

// Gives `name` the extension of `type`, replacing its own: the spelling of
// that type that exists on disk, else the short spelling in the case of the
// old extension. The buffer needs room for 5 more characters. An unknown
// type leaves the name alone.
void ConvertStringToMatchTextureFileType(char* name, int type);

// Power-of-two sizes for a texture of width x height, no larger than
// `limit` on a side and never 0.
void TexMapScalePow2(int width, int height, int limit, int& outWidth, int& outHeight);

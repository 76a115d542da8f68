// Pictures for textures: decoding and encoding of picture files, the image
// class of the texture pyramids, texture file names and sizes.
#pragma once

#include <cstdint>

#include "platform/CImage.h"
#include "platform/DeviceContext.h"
#include "platform/WindowsTypes.h"

// The picture file formats read and written here. The values double as
// texture file types and as encoder indices.
enum class PictureFileFormat : int { Bmp = 0, Jpeg = 1, Png = 2, Tiff = 3 };

// Texture file types: one per picture format, numbered as
// PictureFileFormat, plus "any", which stands for a name of no accepted
// format and which callers use as the starting value of a search. 8 leaves
// room for more formats below it.
constexpr int TextureFileTypeBmp = 0;
constexpr int TextureFileTypeJpeg = 1;
constexpr int TextureFileTypePng = 2;
constexpr int TextureFileTypeTiff = 3;
constexpr int TextureFileTypeAny = 8;

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

// True when the name ends in ".exr", in any case: a high-dynamic-range
// picture.
bool IsEXRFile(const char* name);

// Writes `width` x `height` pixels of linear colour, four floats each (red,
// green, blue, alpha; top row first), as an OpenEXR file of half floats with
// the channels R, G, B and A. Values above 1 stay as they are. On failure
// no file is left at `path`.
bool SaveHDRPictureFile(const char* path, const float* rgba, int width, int height);

// For "image/bmp", "image/jpeg", "image/png" and "image/tiff" (in any case)
// fills `clsid` with the encoder's class id, which Gdiplus::Bitmap::Save
// then knows, and returns its index, the PictureFileFormat value. -1 and
// `clsid` untouched for any other type.
int GetEncoderClsid(const wchar_t* mime, GUID* clsid);

// The type of a file name by its extension (any case): .bmp, .jpg or .jpeg,
// .png, .tif or .tiff; TextureFileTypeAny for anything else.
int GetTextureFileType(const char* name);

// True when `name` (relative to `folder` unless null or `name` is absolute)
// has a picture extension and a picture file of it exists: either `name`
// itself or the same name with another picture extension. `type`, if given,
// holds TextureFileTypeAny or a type to insist on; on success it receives
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

// ---------------------------------------------------------------------------
// Compressed texture cache.
//
// Ready block-compressed pyramids lie in the folder "BrindlexCT" under the
// system's temporary folder (GetTempPathA), one file per picture and
// transparency mode: the picture's file name without its last extension,
// then ".ct1" for an opaque texture (BC1 blocks) or ".ct2" for a
// transparent one (BC2 blocks). Each file records the last-write time of
// the picture it was made from; the reader refuses a file whose time is not
// that of the picture as it is now. The file layout is told in
// CompressedTextureCacheFile.cpp.
// ---------------------------------------------------------------------------

#pragma pack(push, 1)
// One level of a pyramid in block-compressed form: blocks of 4 x 4 texels,
// row after row of blocks, in the row order of the uncompressed levels
// (bottom row of the picture first). One of the two block pointers is set.
// A BC1 block is two little-endian RGB 5:6:5 colours and four bytes of
// 2-bit indices; a BC2 block is four little-endian 16-bit rows of 4-bit
// alphas, the first texel of a row in the top four bits, then a BC1 block.
struct SW_BC_TEXTURE {
  uint8_t (*bc1Blocks)[8];   // 8-byte blocks, or null
  uint8_t (*bc2Blocks)[16];  // 16-byte blocks, or null
  uint32_t width;            // in texels
  uint32_t height;           // in texels
  uint32_t blocksPerRow;
};
#pragma pack(pop)

constexpr const char* CompressedTextureCacheFolder = "BrindlexCT";

// Reads a cache file written by WriteCompressedTextureArrayFile. Only when
// the file is whole and undamaged and its stored time equals `sourceTime`
// does it allocate the levels (new[], blocks and level array alike; see
// DeleteCompressedTextureArray) and give them and their number. Otherwise
// false, with the outputs untouched.
bool ReadCompressedTextureArrayFile(const char* file, const FILETIME* sourceTime, SW_BC_TEXTURE** levels,
                                    unsigned int* levelCount);

// Writes `levelCount` levels, level 0 the largest, with `sourceTime` as the
// time of their picture. All levels must use the same kind of block. The
// file appears whole or not at all.
bool WriteCompressedTextureArrayFile(const char* file, const FILETIME* sourceTime,
                                     const SW_BC_TEXTURE* levels, unsigned int levelCount);

// Deletes what the reader allocated: the block arrays, then the level array.
void DeleteCompressedTextureArray(SW_BC_TEXTURE* levels, unsigned int levelCount);

// Compresses one level of 8, 24 or 32 bits per pixel, row 0 first as the
// surface gives its rows: into BC2 blocks when `withAlpha`, else into BC1
// blocks with no transparent texel. False for an invalid surface or when
// memory is short.
bool CompressTextureLevel(const platform::PixelSurface& level, bool withAlpha, SW_BC_TEXTURE& compressed);

// Puts a pyramid of `picturePath` into the cache: the levels of an opaque
// texture as ".ct1", of a transparent one as ".ct2", stamped with the
// picture's present last-write time. Makes the cache folder if needed.
bool WriteCompressedTextureCache(const char* picturePath, bool transparent, const Brindlex_CImage* levels,
                                 unsigned int levelCount);

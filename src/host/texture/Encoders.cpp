// The picture encoders as GDI+ knows them: a class id for each MIME type,
// and the registration that lets Gdiplus::Image::Save find the encoder.
#include <cwctype>
#include <iterator>
#include <mutex>

#include "host/BrindlexTexture.h"
#include "platform/GdiPlus.h"

namespace {

template <PictureFileFormat format>
bool SaveAs(const char* utf8FileName, const platform::PixelSurface& pixels) {
  return SavePictureFile(utf8FileName, pixels, format);
}

struct EncoderInfo {
  const wchar_t* mime;
  GUID clsid;
  Gdiplus::ImageEncoderFunction save;
};

// Indexed by PictureFileFormat. The class ids are this library's own; they
// differ only in the last byte, which is the index.
constexpr EncoderInfo Encoders[] = {
    {L"image/bmp",
     {0xB71DE0C0, 0x7E47, 0x4C1A, {0x9A, 0x5E, 'B', 'r', 'i', 'n', 'd', 0}},
     SaveAs<PictureFileFormat::Bmp>},
    {L"image/jpeg",
     {0xB71DE0C0, 0x7E47, 0x4C1A, {0x9A, 0x5E, 'B', 'r', 'i', 'n', 'd', 1}},
     SaveAs<PictureFileFormat::Jpeg>},
    {L"image/png",
     {0xB71DE0C0, 0x7E47, 0x4C1A, {0x9A, 0x5E, 'B', 'r', 'i', 'n', 'd', 2}},
     SaveAs<PictureFileFormat::Png>},
    {L"image/tiff",
     {0xB71DE0C0, 0x7E47, 0x4C1A, {0x9A, 0x5E, 'B', 'r', 'i', 'n', 'd', 3}},
     SaveAs<PictureFileFormat::Tiff>},
};

// MIME types compare without regard to case.
bool SameMime(const wchar_t* a, const wchar_t* b) {
  for (; *a && *b; ++a, ++b)
    if (std::towlower(static_cast<wint_t>(*a)) != std::towlower(static_cast<wint_t>(*b))) return false;
  return *a == *b;
}

void RegisterAll() {
  for (const EncoderInfo& encoder : Encoders) Gdiplus::RegisterImageEncoder(encoder.clsid, encoder.save);
}

}  // namespace

int GetEncoderClsid(const wchar_t* mime, GUID* clsid) {
  if (!mime || !clsid) return -1;
  for (int index = 0; index < static_cast<int>(std::size(Encoders)); ++index) {
    if (!SameMime(mime, Encoders[index].mime)) continue;
    // Registered on first use, so that a host that never asks for an
    // encoder costs nothing; once, whichever thread asks first.
    static std::once_flag registered;
    std::call_once(registered, RegisterAll);
    *clsid = Encoders[index].clsid;
    return index;
  }
  return -1;
}

// The picture file of a render to file.
#include <memory>
#include <new>

#include "host/BrindlexTexture.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "platform/GdiPlus.h"
#include "pipeline/PictureSave.h"
#include "platform/TextConversion.h"
#include "host/brindlexutil.h"

namespace {
// The encoder for the name's extension; anything not BMP, PNG or TIFF is
// written as JPEG. False when no encoder answers.
bool EncoderForName(const char* name, Gdiplus::CLSID& encoder) {
  if (IsBMPFile(name)) return GetEncoderClsid(L"image/bmp", &encoder) != -1;
  if (IsPNGFile(name)) return GetEncoderClsid(L"image/png", &encoder) != -1;
  if (IsTIFFile(name))
    return GetEncoderClsid(L"image/tiff", &encoder) != -1 || GetEncoderClsid(L"image/tif", &encoder) != -1;
  return GetEncoderClsid(L"image/jpeg", &encoder) != -1;
}
}  // namespace

int SavePicture(const char* name, Gdiplus::Bitmap& bitmap) {
  if (!name) return 1;
  const int length = MultiByteToWideChar(CP_ACP, 0, name, -1, nullptr, 0);
  if (length == 0) return 1;
  std::unique_ptr<wchar_t[]> wideName(new (std::nothrow) wchar_t[size_t(length)]);
  if (!wideName) return 2;
  Gdiplus::CLSID encoder{};
  if (MultiByteToWideChar(CP_ACP, 0, name, -1, wideName.get(), length) == 0 ||
      !EncoderForName(name, encoder) || bitmap.Save(wideName.get(), &encoder, nullptr) != Gdiplus::Ok)
    return 1;
  return 0;
}

int RT_RENDER_ENGINE::SaveToFile(const char* name, Gdiplus::Bitmap& bitmap) {
  // A successful save leaves the status as it was: a failure in an earlier
  // pass stays reported.
  const int status = SavePicture(name, bitmap);
  if (status != 0) renderToFileStatus = status;
  return renderToFileStatus;
}

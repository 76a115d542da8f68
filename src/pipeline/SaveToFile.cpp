// The picture file of a render to file. The extension chooses the encoder,
// and the platform writes through a temporary name, so a failed save never
// leaves a broken picture where the last good one stood.
#include <memory>
#include <new>

#include "BrindlexTexture.h"
#include "BrindlexViewRTRenderEngine.h"
#include "GdiPlus.h"
#include "TextConversion.h"
#include "brindlexutil.h"

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

int RT_RENDER_ENGINE::SaveToFile(const char* name, Gdiplus::Bitmap& bitmap) {
  if (!name) {
    renderToFileStatus = 1;
    return renderToFileStatus;
  }
  const int length = MultiByteToWideChar(CP_ACP, 0, name, -1, nullptr, 0);
  if (length == 0) {
    renderToFileStatus = 1;
    return renderToFileStatus;
  }
  std::unique_ptr<wchar_t[]> wideName(new (std::nothrow) wchar_t[size_t(length)]);
  if (!wideName) {
    renderToFileStatus = 2;
    return renderToFileStatus;
  }
  Gdiplus::CLSID encoder{};
  if (MultiByteToWideChar(CP_ACP, 0, name, -1, wideName.get(), length) == 0 ||
      !EncoderForName(name, encoder) || bitmap.Save(wideName.get(), &encoder, nullptr) != Gdiplus::Ok)
    renderToFileStatus = 1;
  return renderToFileStatus;
}

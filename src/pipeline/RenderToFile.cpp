// The file path of RenderFrame: a picture of any size, independent of the
// window. It is traced tile by tile through the same frame buffer as the
// screen, so blocks still show up in the window, and each tile's state moves
// in and out of a full-size picture. The file is rewritten after every pass.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "host/BrindlexTexture.h"
#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "pipeline/FrameBufferGuard.h"
#include "platform/Gdi.h"
#include "platform/GdiPlus.h"
#include "pipeline/HDRPictureFile.h"
#include "pipeline/PictureSave.h"
#include "host/RenderOptions.h"
#include "platform/Window.h"
#include "host/brindlexutil.h"

struct RT_RENDER_ENGINE::FileRenderTarget {
  ENVIRONMENT_3D_VIEW* view;
  SCENE_GRAPH* scene;
  const MODE_RENDER_OPTIONS* options;
  Gdiplus::Bitmap* bitmap;  // the 8-bit output
  SCENE_VERTEX_XYZW* hdr;   // the running mean of the whole picture
  uint32_t width, height;   // of the output
  uint32_t tileWidth, tileHeight;
  bool cubeMap;
  SCENE_VERTEX_XYZ eye;  // of the cube faces, in world coordinates
};

namespace {
constexpr uint32_t ProgressBlockSize = 32;
constexpr int CubeFaces = 6;

// The camera's eye in the world, where y has the opposite sign; the origin
// when the view gives no camera.
SCENE_VERTEX_XYZ CubeEye(ENVIRONMENT_3D_VIEW* view) {
  SCENE_VERTEX_XYZ eye = {0.0f, 0.0f, 0.0f};
  VIEW_FILE_STATE* state = view ? view->GetViewFileState() : nullptr;
  if (state && state->GetCameraInfo()) eye = state->GetCameraInfo()->eye;
  eye.y = -eye.y;
  return eye;
}

// Pixel for pixel, alpha included.
void CopyPixels(Gdiplus::Bitmap* from, int fromX, int fromY, Gdiplus::Bitmap* to, int toX, int toY, int width,
                int height) {
  Gdiplus::Graphics graphics(to);
  graphics.SetCompositingMode(Gdiplus::CompositingModeSourceCopy);
  graphics.DrawImage(from, toX, toY, fromX, fromY, width, height, Gdiplus::UnitPixel);
}

void CopySampleRows(const SCENE_VERTEX_XYZW* from, size_t fromRowWidth, SCENE_VERTEX_XYZW* to,
                    size_t toRowWidth, size_t width, size_t rows) {
  for (size_t row = 0; row < rows; ++row)
    std::copy_n(from + row * fromRowWidth, width, to + row * toRowWidth);
}

// `passes` is the host's signed count: a value below 1 still lets the
// first pass run, as the comparison is made on the values themselves.
bool PassesDone(uint64_t nextPass, int32_t passes) {
  return passes < 0 || nextPass > static_cast<uint64_t>(passes);
}

}  // namespace

void RT_RENDER_ENGINE::RenderToPictureFile(ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* scene,
                                           const MODE_RENDER_OPTIONS& options) {
  renderToFileStatus = 0;
  engineFlags.Clear(RenderToFileComplete);
  // A size that is not positive leaves the bitmap empty: reported as no
  // memory, like any picture that can't be made.
  std::unique_ptr<Gdiplus::Bitmap> bitmap(new (std::nothrow) Gdiplus::Bitmap(
      renderToFileWidth, renderToFileHeight, Gdiplus::PixelFormat32bppARGB));
  if (!bitmap || bitmap->GetLastStatus() != Gdiplus::Ok) {
    renderToFileStatus = 2;
    return;
  }
  const uint32_t width = bitmap->GetWidth(), height = bitmap->GetHeight();
  std::unique_ptr<SCENE_VERTEX_XYZW[]> hdr(new (std::nothrow) SCENE_VERTEX_XYZW[size_t(width) * height]());
  if (!hdr) {
    renderToFileStatus = 2;
    return;
  }
  const bool cubeMap = engineFlags.IsSet(RenderToCubeMap);
  FileRenderTarget target = {view,
                             scene,
                             &options,
                             bitmap.get(),
                             hdr.get(),
                             width,
                             height,
                             std::min(width, frameWidth),
                             std::min(height, frameHeight),
                             cubeMap,
                             CubeEye(view)};
  const int faces = cubeMap ? CubeFaces : 1;
  if (cubeMapProgressBar) {
    const uint32_t total = std::max(height / ProgressBlockSize, 1u) *
                           std::max(width / ProgressBlockSize, 1u) * static_cast<uint32_t>(faces);
    PostMessageA(cubeMapProgressBar, PBM_SETRANGE, 0, MAKELPARAM(0, total));
    PostMessageA(cubeMapProgressBar, PBM_SETSTEP, 1, 0);
    PostMessageA(cubeMapProgressBar, PBM_SETPOS, 0, 0);
  }
  bool aborted = false;
  for (int face = 0; face < faces; ++face) RenderFileFace(target, face, aborted);
  if (renderToFileStatus == 0) engineFlags.Set(RenderToFileComplete);
}

void RT_RENDER_ENGINE::RenderFileFace(FileRenderTarget& target, int face, bool& aborted) {
  const bool pathTracing = target.options->DoPathTracing();
  for (uint64_t pass = 1;;) {
    if (distributedServer) pass = distributedServer->GetDistributedPass();
    if (pathTracing && pathTracingProgressWindow)
      PostMessageA(pathTracingProgressWindow, pathTracingProgressMessage, pathTracingProgressParam,
                   static_cast<LPARAM>(pass));
    TraceFileTiles(target, face, pass, aborted);
    // A distributed server keeps the picture; this engine only traces.
    if (!aborted && !distributedServer) {
      const bool checkpoint = savePathTracingCheckpoints && pass % CheckpointInterval == 0;
      // An OpenEXR picture holds the running mean itself, before the tone map.
      const auto saveHDR = [&](const char* file) {
        if (!SaveHDRPicture(file, target.hdr, target.width, target.height,
                            engineFlags.IsSet(BackgroundAlpha)))
          renderToFileStatus = 1;
        if (checkpoint) SaveCheckpoint(file, pass);
      };
      const char* name = target.cubeMap ? cubeMapNames[face].c_str() : renderToFileName;
      if (IsEXRFile(name)) {
        saveHDR(name);
      } else {
        SaveToFile(name, *target.bitmap);
        if (checkpoint) SaveCheckpoint(name, pass);
      }
      // The second, high-dynamic-range picture beside the first. The six
      // faces of a cube map have a name each, so they take none.
      if (!target.cubeMap && !renderToFileHDRName.empty()) saveHDR(renderToFileHDRName.c_str());
    }
    ++pass;
    if (!pathTracing || pass == 0) return;
    if (PassesDone(pass, numberOfPathTracingPasses)) return;
    if (ShouldAbort()) return;
  }
}

void RT_RENDER_ENGINE::TraceFileTiles(FileRenderTarget& target, int face, uint64_t pass, bool& aborted) {
  // Without a frame buffer there is no tile to trace into: the pass leaves
  // the picture as it was.
  if (target.tileWidth == 0 || target.tileHeight == 0) return;
  const RECT viewRect = {0, 0, int32_t(target.width), int32_t(target.height)};
  SCENE_VERTEX_XYZ eye = target.eye;
  for (uint32_t top = 0; top < target.height && !aborted; top += target.tileHeight) {
    for (uint32_t left = 0; left < target.width && !aborted; left += target.tileWidth) {
      const RECT tile = {int32_t(left), int32_t(top),
                         int32_t(std::min(left + target.tileWidth, target.width)),
                         int32_t(std::min(top + target.tileHeight, target.height))};
      CopyFileTile(target, tile, true);
      TraceRays(target.view, target.scene, viewRect, tile, target.options, pass,
                target.cubeMap ? &eye : nullptr, target.cubeMap ? face : 0);
      if (ShouldAbort()) aborted = true;
      if (aborted) continue;
      CopyFileTile(target, tile, false);
      if (ShouldAbort()) aborted = true;
    }
  }
}

void RT_RENDER_ENGINE::CopyFileTile(FileRenderTarget& target, const RECT& tile, bool intoFrameBuffer) {
  const int width = tile.right - tile.left, height = tile.bottom - tile.top;
  FrameBufferGuard guard(*this);
  // A frame buffer that shrank since the render began can't hold the tile;
  // TraceRays refuses such a tile too.
  if (!frameBitmap || uint32_t(width) > frameWidth || uint32_t(height) > frameHeight) return;
  // A failed copy is noted in the image it was drawn on, and the tile goes
  // on from what the frame buffer held.
  if (intoFrameBuffer)
    CopyPixels(target.bitmap, tile.left, tile.top, frameBitmap, 0, 0, width, height);
  else
    CopyPixels(frameBitmap, 0, 0, target.bitmap, tile.left, tile.top, width, height);
  if (!frameHDRBuffer) return;
  SCENE_VERTEX_XYZW* file = target.hdr + size_t(tile.top) * target.width + size_t(tile.left);
  if (intoFrameBuffer)
    CopySampleRows(file, target.width, frameHDRBuffer, frameWidth, size_t(width), size_t(height));
  else
    CopySampleRows(frameHDRBuffer, frameWidth, file, target.width, size_t(width), size_t(height));
}

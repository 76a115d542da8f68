// The settings of a render to file, stored for the file path of RenderFrame.
#include <cstring>

#include "engine/RenderEngineBase.h"

void RT_RENDER_ENGINE_BASE::SetRenderToFile(bool on) {
  engineFlags.Assign(RenderToFile, on);
}

void RT_RENDER_ENGINE_BASE::SetRenderToFileResolution(short width, short height) {
  renderToFileWidth = width;
  renderToFileHeight = height;
}

void RT_RENDER_ENGINE_BASE::SetRenderToFileName(const char* name) {
  if (!name) return;
  // A name that does not fit is refused whole rather than cut: a cut name
  // would write the picture somewhere the user never asked for. The empty
  // name then makes the save fail with status 1.
  size_t length = std::strlen(name);
  if (length >= RenderToFileNameSize) length = 0;
  std::memcpy(renderToFileName, name, length);
  renderToFileName[length] = '\0';
}

void RT_RENDER_ENGINE_BASE::SetRenderToFileBitmap(bool on) {
  engineFlags.Assign(RenderToFileBitmap, on);
}

void RT_RENDER_ENGINE_BASE::SetRenderToFileBackgroundAlpha(bool on) {
  engineFlags.Assign(BackgroundAlpha, on);
}

void RT_RENDER_ENGINE_BASE::SetRenderToFileCubeMap(bool on) {
  engineFlags.Assign(RenderToCubeMap, on);
}

void RT_RENDER_ENGINE_BASE::SetRenderToFileCubeMapNames(const std::string* names) {
  if (!names) return;
  for (int face = 0; face < 6; ++face) cubeMapNames[face] = names[face];
}

void RT_RENDER_ENGINE_BASE::SetRenderToFileCubeMapProgressBar(HWND progressBar) {
  cubeMapProgressBar = progressBar;
}

void RT_RENDER_ENGINE_BASE::SetRenderToFileNumberPathTracingPasses(int passes) {
  numberOfPathTracingPasses = passes;
}

void RT_RENDER_ENGINE_BASE::SetRenderToFilePathTracingProgressWindowParams(HWND window, unsigned int message,
                                                                           uint64_t param) {
  pathTracingProgressWindow = window;
  pathTracingProgressMessage = message;
  pathTracingProgressParam = param;
}

void RT_RENDER_ENGINE_BASE::SetRenderToFileSavePathTracingCheckpoints(bool on) {
  savePathTracingCheckpoints = on;
}

int RT_RENDER_ENGINE_BASE::QueryRenderToFile(int key) const {
  switch (key) {
    case 0:
      return engineFlags.IsSet(RenderToFile) ? 1 : 0;
    case 1:
      return engineFlags.IsSet(RenderToFileComplete) ? 1 : 0;
    case 2:
      return renderToFileStatus;
    default:
      return 0;
  }
}

void RT_RENDER_ENGINE_BASE::SetRenderToFileHDRName(const char* name) {
  renderToFileHDRName = name ? name : "";
}

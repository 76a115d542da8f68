#include "RenderLoop.h"

#include <chrono>

#include "engine/BrindlexViewRTRenderEngine.h"
#include "Progress.h"
#include "host/brindlexutil.h"

namespace {

using Clock = std::chrono::steady_clock;

LPARAM MicrosecondsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
}

}  // namespace

void ViewChange::Merge(const ViewChange& later) {
  if (later.fit) {  // a zoom to fit forgets the moves before it
    azimuth = elevation = panRight = panDown = 0.0;
    zoom = 1.0;
    fit = true;
  }
  azimuth += later.azimuth;
  elevation += later.elevation;
  panRight += later.panRight;
  panDown += later.panDown;
  zoom *= later.zoom;
  if (later.modesChanged) modesChanged = true, modes = later.modes;
  if (later.resized) resized = true, width = later.width, height = later.height;
}

const char* UpdateKindName(unsigned kind) {
  static const char* const names[] = {"model change", "camera move", "options change", "window resize"};
  return kind < 4 ? names[kind] : "unknown";
}

unsigned long BlocksPerPass(int width, int height) {
  constexpr unsigned long side = 32;
  if (width <= 0 || height <= 0) return 0;
  return (static_cast<unsigned long>(width) + side - 1) / side *
         ((static_cast<unsigned long>(height) + side - 1) / side);
}

RenderLoop::RenderLoop(HostScene& host, platform::PictureWindow& window) : host(host), window(window) {}

RenderLoop::~RenderLoop() {
  Stop();
}

bool RenderLoop::Start(const std::string& textureDirectory) {
  engine = CreateRenderEngine();
  if (!engine) return false;
  engine->SetShouldAbortRenderFunction(ShouldAbort, this);
  // The folders as brindlex-render gives them: colour maps in the texture
  // directory, relief heights in "bump", transparency masks in "mask".
  engine->Initialize(textureDirectory.c_str(), "", "bump", "mask", "", "");
  engine->InitializeRendererWindow(&window, nullptr);
  window.GetClientRect(frame);
  // Block steps come to the window as to a progress bar; the pass message
  // is the one brindlex-render uses, should a render to file ever run here.
  RENDER_TO_FILE_INTERFACE& file = *engine->GetRenderToFileInterface();
  file.SetRenderToFileCubeMapProgressBar(&window);
  file.SetRenderToFilePathTracingProgressWindowParams(&window, ProgressDisplay::PassMessage, 0);
  thread = std::thread(&RenderLoop::Run, this);
  return true;
}

uint64_t RenderLoop::Request(const ViewChange& change) {
  std::lock_guard guard(mutex);
  if (hasPending)
    pending.Merge(change);
  else
    pending = change;
  hasPending = true;
  abortRequested = true;
  wake.notify_one();
  return ++requests;
}

void RenderLoop::Stop() {
  {
    std::lock_guard guard(mutex);
    stopping = true;
    stopRequested = true;
    wake.notify_one();
  }
  if (thread.joinable()) thread.join();
  if (engine) {
    engine->ShutDown();
    engine->Release();
    engine = nullptr;
  }
}

bool RenderLoop::CopyPicture(ATL::CImage& image) {
  RECT client;
  window.GetClientRect(client);
  image.Destroy();
  if (!engine || client.right <= 0 || client.bottom <= 0 || !image.Create(client.right, -client.bottom, 32))
    return false;
  engine->GetFrameImage(image, &host.Project(), &host.View());
  return true;
}

bool RenderLoop::ShouldAbort(void* loop) {
  auto& self = *static_cast<RenderLoop*>(loop);
  // Only a frame is cut short for a new request. An UpdateFrame after a
  // camera move takes little time, and one cut short would lose the shadow
  // maps and have them drawn again; a model rebuild that is cut short would
  // have to start over. Both run to their end unless the program ends.
  return self.stopRequested || (self.rendering && self.abortRequested);
}

void RenderLoop::Run() {
  bool firstUpdate = true;
  for (;;) {
    ViewChange change;
    uint64_t request;
    {
      std::unique_lock lock(mutex);
      wake.wait(lock, [&] { return stopping || hasPending; });
      if (stopping) return;
      change = pending;
      pending = {};
      hasPending = false;
      abortRequested = false;
      request = requests;
    }
    UpdateKind kind = Apply(change);
    if (firstUpdate) kind = ModelUpdate, firstUpdate = false;
    ENVIRONMENT_3D_VIEW& view = host.View();
    const Clock::time_point updateStart = Clock::now();
    engine->UpdateFrame(&host.Project(), &view, &host.Graph(), &host.Lights(), host.HorizonNode(),
                        host.HorizonMaterialID(), view.GetViewMaterialSet(), host.Project().GetFrameTag());
    const LPARAM updateTime = MicrosecondsSince(updateStart);
    debugOS << "view: UpdateFrame after a " << UpdateKindName(kind) << ": " << updateTime / 1000.0 << " ms"
            << std::endl;
    window.PostMessage(UpdateDoneMessage, kind, updateTime);
    window.PostMessage(FrameStartedMessage, request,
                       static_cast<LPARAM>(BlocksPerPass(frame.right, frame.bottom)));

    const Clock::time_point frameStart = Clock::now();
    rendering = true;
    engine->RenderFrame(&host.Project(), &view, &host.Graph(), frame, false);
    rendering = false;
    const LPARAM frameTime = MicrosecondsSince(frameStart);
    if (!abortRequested && !stopRequested) window.PostMessage(FrameDoneMessage, request, frameTime);
  }
}

UpdateKind RenderLoop::Apply(const ViewChange& change) {
  UpdateKind kind = CameraUpdate;
  if (change.resized) {
    // The window's picture and the engine's frame buffer change size here,
    // between frames, so that no block of a frame of the old size is
    // written into buffers of the new one.
    window.Resize(change.width, change.height);
    engine->ResizeClientArea(nullptr, nullptr);
    window.GetClientRect(frame);
    kind = SizeUpdate;
  }
  const float fieldOfView = host.View().GetViewFileState()->GetCameraInfo()->fieldOfView;
  if (change.fit && frame.bottom > 0) host.FrameAll(static_cast<double>(frame.right) / frame.bottom);
  OrbitCamera camera{host.CameraEye(), host.CameraTarget()};
  camera = Orbit(camera, change.azimuth, change.elevation);
  camera = Pan(camera, change.panRight, change.panDown, fieldOfView, frame.bottom);
  camera = Zoom(camera, change.zoom);
  host.SetCamera(camera.eye, camera.target, fieldOfView);
  if (change.modesChanged) {
    MODE_RENDER_OPTIONS& options = host.Options();
    // Photons are shot only when the engine rebuilds its model, so turning
    // them on or off is a model change for it: a new frame tag.
    const bool photonsChanged = options.DoPhotonMapping() != change.modes.photons;
    if (photonsChanged) host.Project().ModifyProject();
    options.SetPathTracing(change.modes.pathTracing);
    options.SetPhotonMapping(change.modes.photons);
    options.SetRayTracedSoftShadows(change.modes.softShadows);
    kind = photonsChanged ? ModelUpdate : OptionsUpdate;
  }
  return kind;
}

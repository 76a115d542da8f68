// The engine of brindlex-view on a thread of its own. The window's thread
// asks for changes; this thread stops the running frame through the
// engine's abort function, brings the engine up to date with UpdateFrame
// and renders again, so the picture follows the mouse within a frame. It
// reports through messages posted to the window, as the engine does.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "platform/CImage.h"
#include "CameraControl.h"
#include "HostScene.h"
#include "platform/PictureWindow.h"

struct RENDER_ENGINE_INTERFACE;

// The switches of the render options that the keys change.
struct RenderModes {
  bool pathTracing = false;
  bool photons = false;
  bool softShadows = false;
};

// What the user did since the render thread last looked; changes add up.
struct ViewChange {
  double azimuth = 0.0, elevation = 0.0;  // orbit, degrees
  double panRight = 0.0, panDown = 0.0;   // pixels
  double zoom = 1.0;                      // factor on the distance
  bool fit = false;                       // zoom to fit before the rest
  bool modesChanged = false;
  RenderModes modes;
  bool resized = false;
  int width = 0, height = 0;  // the window's size when resized

  // Adds `later` to this change.
  void Merge(const ViewChange& later);
};

// Messages the render thread posts to the window, in the range Windows
// leaves to applications. The engine posts PBM_STEPIT for each finished
// block besides.
enum ViewMessage : unsigned {
  // wParam: an UpdateKind; lParam: microseconds of UpdateFrame.
  UpdateDoneMessage = 0x8101,
  // wParam: the number of the request the frame answers; lParam: blocks
  // in one pass of it.
  FrameStartedMessage = 0x8102,
  // wParam: as above; lParam: microseconds of RenderFrame. Only for a
  // frame that was not aborted.
  FrameDoneMessage = 0x8103,
};

// Why UpdateFrame was called: a model change rebuilds the engine's tables
// and trees; the others must not.
enum UpdateKind : unsigned { ModelUpdate = 0, CameraUpdate = 1, OptionsUpdate = 2, SizeUpdate = 3 };
const char* UpdateKindName(unsigned kind);

// Blocks of the engine's picture in a frame of the size: 32 by 32 pixels.
unsigned long BlocksPerPass(int width, int height);

class RenderLoop {
 public:
  // `host` is the render thread's from Start on; `window` must outlive
  // the loop. The window's present size is the first frame's.
  RenderLoop(HostScene& host, platform::PictureWindow& window);
  ~RenderLoop();
  RenderLoop(const RenderLoop&) = delete;
  RenderLoop& operator=(const RenderLoop&) = delete;

  // Creates the engine and starts the render thread, which builds the
  // model and renders the first frame. False when no engine could be made.
  bool Start(const std::string& textureDirectory);
  // Aborts what runs and has it done again with the change; the number of
  // this request, which the messages of its frame carry.
  uint64_t Request(const ViewChange& change);
  // Aborts what runs, shuts the engine down and joins the thread.
  void Stop();

  // Copies the engine's present picture into `image` (made at the frame's
  // size); false when there is none. Safe during a frame.
  bool CopyPicture(ATL::CImage& image);

 private:
  void Run();
  UpdateKind Apply(const ViewChange& change);
  static bool ShouldAbort(void* loop);

  HostScene& host;
  platform::PictureWindow& window;
  RENDER_ENGINE_INTERFACE* engine = nullptr;
  std::thread thread;
  RECT frame{};

  std::mutex mutex;
  std::condition_variable wake;
  ViewChange pending;
  bool hasPending = true;  // the first frame needs no asking
  bool stopping = false;
  uint64_t requests = 0;
  // Read by the engine's workers when they poll.
  std::atomic<bool> stopRequested{false}, abortRequested{false}, rendering{false};
};

// Stops an engine at random moments, in every kind of work it does, and
// checks that it always comes back to a working idle state: the queue
// empty, and the next uninterrupted frame the same picture as before any
// abort. Used by the test suite (a few dozen stops of the demo house) and
// by bench/abort_stress (hundreds, on real models, under ThreadSanitizer).
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "host/BrindlexTexture.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "EngineTestAccess.h"
#include "HostScene.h"
#include "platform/Window.h"

class AbortStress {
 public:
  // What is running when the abort comes.
  enum class Work { RayTracing, PathTracing, RenderToFile, SceneUpdate };
  static constexpr Work AllWork[] = {Work::RayTracing, Work::PathTracing, Work::RenderToFile,
                                     Work::SceneUpdate};

  AbortStress(HostScene& host, int width, int height, const std::filesystem::path& folder)
      : host(host),
        width(width),
        height(height),
        window(width, height),
        output((folder / "stress.png").string()) {
    engine->SetShouldAbortRenderFunction(ShouldAbort, this);
    engine->Initialize(host.TextureDirectory().string().c_str(), "", "bump", "mask", "", "");
    engine->InitializeRendererWindow(&window, nullptr);
    unsigned int w = width, h = height;
    engine->ResizeClientArea(&w, &h);
  }
  ~AbortStress() {
    engine->ShutDown();
    engine->Release();
  }

  // The picture of an uninterrupted ray-traced frame with every random
  // feature off, which each recovery must give again.
  void TakeReference() { reference = DeterministicFrame(); }

  // One run of `work` stopped after `delay`; false with `failure` set when
  // the engine did not come back as it should. `abortToIdle` gets the
  // seconds from the abort to the return of the stopped call, or stays
  // negative when the work ended before the abort came.
  bool StopOnce(Work work, std::chrono::microseconds delay, double& abortToIdle, std::string& failure) {
    abortToIdle = -1.0;
    SetUp(work);
    const auto start = [&] {
      stop.store(false);
      armed = true;
      timer = std::thread([this, delay] { FireAfter(delay); });
    };
    start();
    if (work == Work::SceneUpdate)
      Update();
    else
      Frame();
    const auto returned = std::chrono::steady_clock::now();
    Disarm();
    if (firedAt) abortToIdle = std::chrono::duration<double>(returned - *firedAt).count();
    stop.store(false);
    EngineTestAccess access(engine);
    if (access.QueueLength() != 0) return failure = "work was left on the queue", false;
    if (work == Work::RenderToFile && std::filesystem::exists(output)) {
      ATL::CImage picture;
      if (!LoadCImageTextureFromFile(output.c_str(), picture))
        return failure = "a broken picture file", false;
    }
    if (DeterministicFrame() != reference)
      return failure = "the next frame differs from the reference", false;
    return true;
  }

 private:
  static bool ShouldAbort(void* context) { return static_cast<AbortStress*>(context)->stop.load(); }

  void FireAfter(std::chrono::microseconds delay) {
    std::unique_lock lock(mutex);
    if (wake.wait_for(lock, delay, [this] { return !armed; })) return;
    firedAt = std::chrono::steady_clock::now();
    stop.store(true);
  }
  void Disarm() {
    {
      std::lock_guard lock(mutex);
      armed = false;
    }
    wake.notify_all();
    timer.join();
  }

  void SetUp(Work work) {
    firedAt.reset();
    MODE_RENDER_OPTIONS& options = host.Options();
    options.SetPathTracing(work == Work::PathTracing || work == Work::RenderToFile);
    // A scene update shoots photons and draws shadow maps where they are on.
    options.SetPhotonMapping(work == Work::SceneUpdate);
    options.SetRayTracedSoftShadows(work == Work::SceneUpdate);
    options.SetAmbientOcclusion(work == Work::RayTracing);
    RENDER_TO_FILE_INTERFACE& file = *engine->GetRenderToFileInterface();
    file.SetRenderToFile(work == Work::RenderToFile);
    if (work == Work::RenderToFile) {
      file.SetRenderToFileResolution(static_cast<short>(width * 2), static_cast<short>(height * 2));
      file.SetRenderToFileName(output.c_str());
      file.SetRenderToFileNumberPathTracingPasses(4);
    }
    if (work != Work::SceneUpdate) Update();
  }

  std::vector<uint8_t> DeterministicFrame() {
    MODE_RENDER_OPTIONS& options = host.Options();
    options.SetPathTracing(false);
    options.SetPhotonMapping(false);
    options.SetRayTracedSoftShadows(false);
    options.SetAmbientOcclusion(false);
    options.SetAntiAliasing(false);
    engine->GetRenderToFileInterface()->SetRenderToFile(false);
    Update();
    Frame();
    return window.Pixels();
  }

  // A new frame tag each time: the whole scene is rebuilt, as after an edit.
  void Update() {
    ENVIRONMENT_3D_VIEW& view = host.View();
    engine->UpdateFrame(&host.Project(), &view, &host.Graph(), &host.Lights(), host.HorizonNode(),
                        host.HorizonMaterialID(), view.GetViewMaterialSet(), ++frameTag);
  }
  void Frame() {
    engine->RenderFrame(&host.Project(), &host.View(), &host.Graph(), {0, 0, width, height}, false);
  }

  HostScene& host;
  const int width, height;
  platform::RecordingWindow window;
  const std::string output;
  RT_RENDER_ENGINE* engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
  std::vector<uint8_t> reference;
  int64_t frameTag = 1000;

  std::atomic<bool> stop{false};
  std::mutex mutex;
  std::condition_variable wake;
  bool armed = false;
  std::thread timer;
  std::optional<std::chrono::steady_clock::time_point> firedAt;
};

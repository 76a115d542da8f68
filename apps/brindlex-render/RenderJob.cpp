#include "RenderJob.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "engine/BrindlexViewRTRenderEngine.h"

namespace {

// Written by the signal handler, read by the engine's threads: a lock-free
// atomic is safe in both places.
std::atomic<int> stopSignal{0};
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void OnStopSignal(int signal) {
  stopSignal.store(signal);
}

// Ends a path-traced render with the pass during which `limit` seconds of
// passes ran out. The engine announces each pass before it traces it;
// when the time is up by then, the render is stopped before a block of the
// new pass is kept, and the picture on disk is the pass before.
class PassTimeLimit {
 public:
  explicit PassTimeLimit(double limit) : limit(limit) {}
  // Called at the start of pass `pass`; false when it is not to run.
  bool StartPass(long pass) {
    const double now =
        std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    if (pass <= 1) start = now;
    if (limit > 0 && pass > 1 && now - start >= limit) reached = true;
    return !reached;
  }
  bool Reached() const { return reached.load(); }

 private:
  const double limit;
  double start = 0;  // only the engine's host thread announces passes
  std::atomic<bool> reached{false};
};

bool ShouldStop(void* context) {
  const auto* limit = static_cast<const PassTimeLimit*>(context);
  return stopSignal.load() != 0 || (limit && limit->Reached());
}

void SetUpFileOutput(RENDER_TO_FILE_INTERFACE& file, const RenderJob& job, platform::Window* progress) {
  file.SetRenderToFile(true);
  file.SetRenderToFileResolution(static_cast<short>(job.width), static_cast<short>(job.height));
  file.SetRenderToFileName(job.output.c_str());
  file.SetRenderToFileBackgroundAlpha(job.alpha);
  file.SetRenderToFileCubeMap(job.cubeMap);
  if (job.cubeMap) file.SetRenderToFileCubeMapNames(job.cubeMapNames.data());
  file.SetRenderToFileCubeMapProgressBar(progress);
  file.SetRenderToFileNumberPathTracingPasses(job.passes);
  file.SetRenderToFilePathTracingProgressWindowParams(progress, ProgressDisplay::PassMessage, 0);
  file.SetRenderToFileSavePathTracingCheckpoints(job.checkpoints);
  if (!job.hdr.empty()) file.SetRenderToFileHDRName(job.hdr.c_str());
}

// What identifies one version of a file: a new picture is a new inode or
// a new modification time.
struct FileStamp {
  bool exists = false;
  dev_t device = 0;
  ino_t inode = 0;
  timespec modified{};
  bool operator==(const FileStamp& o) const {
    return exists == o.exists && device == o.device && inode == o.inode &&
           modified.tv_sec == o.modified.tv_sec && modified.tv_nsec == o.modified.tv_nsec;
  }
};

std::vector<FileStamp> Stamps(const RenderJob& job) {
  std::vector<FileStamp> stamps;
  for (const std::string& name :
       job.cubeMap ? std::vector<std::string>(job.cubeMapNames.begin(), job.cubeMapNames.end())
                   : std::vector<std::string>{job.output}) {
    struct stat info;
    FileStamp stamp;
    if (stat(name.c_str(), &info) == 0) stamp = {true, info.st_dev, info.st_ino, info.st_mtim};
    stamps.push_back(stamp);
  }
  return stamps;
}

// A stop that came while the picture was being saved, or after, leaves a
// finished picture: that is a render done, and is said so.
int StoppedOutcome(const RenderJob& job, bool pathTracing, bool written, std::string& message) {
  if (written && !pathTracing) return ExitDone;
  message = written ? "stopped; " + job.output + " holds the passes finished before the stop"
                    : "stopped before a picture was written";
  return 128 + StopSignal();
}

int Outcome(const RENDER_TO_FILE_INTERFACE& file, const RenderJob& job, bool pathTracing, bool written,
            std::string& message) {
  if (StopSignal()) return StoppedOutcome(job, pathTracing, written, message);
  switch (file.QueryRenderToFile(2)) {
    case 0:
      break;
    case 2:
      message = "not enough memory for a picture of this size";
      return ExitNotWritten;
    default:
      message = job.output + (job.hdr.empty() ? "" : " or " + job.hdr) + ": the picture could not be written";
      return ExitNotWritten;
  }
  if (file.QueryRenderToFile(1) != 1) {
    message = job.output + ": the render did not finish";
    return ExitNotWritten;
  }
  return ExitDone;
}

}  // namespace

void InstallStopHandler() {
  struct sigaction action {};
  action.sa_handler = OnStopSignal;
  sigemptyset(&action.sa_mask);
  // One press asks the engine to stop at its next poll; the handler then
  // falls back to the default, so a second press ends the program.
  action.sa_flags = SA_RESETHAND;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

int StopSignal() {
  return stopSignal.load();
}

int RunRender(HostScene& host, const RenderJob& job, ProgressDisplay& progress, std::string& message) {
  RENDER_ENGINE_INTERFACE* engine = CreateRenderEngine();
  if (!engine) {
    message = "not enough memory to start the render engine";
    return ExitNotWritten;
  }
  PassTimeLimit timeLimit(job.timeLimit);
  engine->SetShouldAbortRenderFunction(ShouldStop, &timeLimit);
  // The engine's messages go to the display, but for the announcement of
  // a pass that the time limit stops.
  platform::MessageWindow messages([&](unsigned message, WPARAM wParam, LPARAM lParam) {
    if (message == ProgressDisplay::PassMessage && !timeLimit.StartPass(static_cast<long>(lParam))) return;
    progress.Receive(message, wParam, lParam);
  });
  // Texture names are relative to the texture directory; colour maps lie in
  // it directly, height pictures for relief in "bump" and transparency masks
  // in "mask" below it. The last two folders are the host's own and unused.
  engine->Initialize(host.TextureDirectory().string().c_str(), "", "bump", "mask", "", "");
  unsigned int frameWidth = std::min<unsigned int>(job.width, MaximumFrameSide);
  unsigned int frameHeight = std::min<unsigned int>(job.height, MaximumFrameSide);
  engine->ResizeClientArea(&frameWidth, &frameHeight);
  RENDER_TO_FILE_INTERFACE& file = *engine->GetRenderToFileInterface();
  SetUpFileOutput(file, job, &messages);

  const std::vector<FileStamp> before = Stamps(job);
  ENVIRONMENT_3D_VIEW& view = host.View();
  engine->UpdateFrame(&host.Project(), &view, &host.Graph(), &host.Lights(), host.HorizonNode(),
                      host.HorizonMaterialID(), view.GetViewMaterialSet(), host.Project().GetFrameTag());
  if (!StopSignal()) {
    const RECT frame = {0, 0, static_cast<int32_t>(frameWidth), static_cast<int32_t>(frameHeight)};
    engine->RenderFrame(&host.Project(), &view, &host.Graph(), frame, false);
  }
  progress.Finish();
  const std::vector<FileStamp> after = Stamps(job);
  bool written = true;
  for (size_t i = 0; i < after.size(); ++i) written = written && after[i].exists && !(after[i] == before[i]);
  const int code = Outcome(file, job, host.Options().DoPathTracing(), written, message);
  engine->ShutDown();
  engine->Release();
  return code;
}

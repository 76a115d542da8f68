// A render process of the farm: its own copy of the scene and one engine,
// to which an MPI-backed distributed server deals the coordinator's tiles.
#include <algorithm>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>

#include "engine/BrindlexViewRTRenderEngine.h"
#include "FarmLink.h"
#include "FarmRoles.h"
#include "SceneAssembly.h"

namespace {

template <typename Record>
std::vector<std::byte> Bytes(const Record& record) {
  std::vector<std::byte> bytes(sizeof record);
  std::memcpy(bytes.data(), &record, sizeof record);
  return bytes;
}

// Tiles asked for ahead, for each worker: enough to cover the time an
// answer takes (the coordinator and the link each nap between rounds) when
// tiles are quick, few enough that a process holds little work that others
// could do at the end of a pass.
constexpr size_t QuestionsAheadPerWorker = 2;

// The engine's side of the farm: its workers ask for tiles of the pass that
// the engine traces and hand in what they traced.
class MpiTileServer final : public RENDER_DISTRIBUTED_SERVER_INTERFACE {
 public:
  MpiTileServer(FarmLink& link, unsigned threads, unsigned short lastPass)
      : link(link),
        threads(threads),
        lastPass(lastPass),
        questionsAhead(size_t(threads) * QuestionsAheadPerWorker) {}

  unsigned int GetDistributedThreadCount() override { return threads; }
  void BeginDistributedFrame(unsigned int, uint64_t pass) override { framePass = pass; }
  // Samples of the frame go out in the background; the frame is not over
  // for the coordinator until they arrived, so wait for them here.
  void EndDistributedFrame() override { link.Flush(); }
  // The link's heartbeat already tells the coordinator that this process
  // lives, whether its workers are busy or not; and the coordinator keeps
  // its own account of the tiles that are out. The slots that only report
  // activity have nothing to add.
  void NotifyDistributedWorkerActive() override {}
  unsigned short GetDistributedPass() override {
    const farm::Reply reply = link.Ask({farm::RequestKind::Pass, 0, 0});
    // With nothing left the engine is given the last pass: its pass loop
    // then ends, and the abort poll stops it as well.
    if (reply.kind != farm::ReplyKind::Pass) return lastPass;
    return static_cast<unsigned short>(reply.pass);
  }
  void BeginDistributedJob() override {}
  void EndDistributedJob() override {}
  bool GetNextDistributedTile(unsigned int* x, unsigned int* y, unsigned short* size, unsigned short* pass,
                              unsigned short* passCount) override {
    const uint32_t wanted = static_cast<uint32_t>(framePass.load());
    std::optional<FarmLink::Ticket> ticket = TakeQuestion(wanted);
    farm::Reply reply = link.Wait(ticket ? *ticket : link.Pose({farm::RequestKind::Tile, wanted, 0}));
    // Questions asked ahead may still bring a tile: it is this process's
    // now, and must be traced before the frame may end.
    while (reply.kind != farm::ReplyKind::Tile) {
      ticket = TakeQuestion(wanted);
      if (!ticket) return false;
      reply = link.Wait(*ticket);
    }
    // Ask ahead while this tile is traced, so that no worker waits for an
    // answer from the coordinator.
    while (QuestionsAhead(wanted) < questionsAhead)
      PutQuestion(link.Pose({farm::RequestKind::Tile, wanted, 0}), wanted);
    *x = reply.x;
    *y = reply.y;
    *size = static_cast<unsigned short>(farm::TileSize);
    *pass = static_cast<unsigned short>(reply.pass);
    // One pass per tile: without a frame buffer the engine keeps only the
    // last pass of a tile in the samples it hands in.
    *passCount = 1;
    return true;
  }
  void SubmitDistributedTile(SCENE_VERTEX_XYZW* samples, unsigned int x, unsigned int y, unsigned short,
                             unsigned short pass, unsigned short, unsigned int width,
                             unsigned int height) override {
    const farm::SampleHeader header = {x, y, width, height, pass};
    const size_t sampleBytes = size_t(width) * height * sizeof(SCENE_VERTEX_XYZW);
    std::vector<std::byte> bytes(sizeof header + sampleBytes);
    std::memcpy(bytes.data(), &header, sizeof header);
    std::memcpy(bytes.data() + sizeof header, samples, sampleBytes);
    link.Post(farm::SamplesTag, std::move(bytes));
  }
  void SetDistributedTileTracing(bool) override {}

 private:
  // A question asked ahead for `pass`, if there is one.
  std::optional<FarmLink::Ticket> TakeQuestion(uint32_t pass) {
    std::lock_guard<std::mutex> lock(mutex);
    for (auto entry = asked.begin(); entry != asked.end(); ++entry) {
      if (entry->pass != pass) continue;
      FarmLink::Ticket ticket = entry->ticket;
      asked.erase(entry);
      return ticket;
    }
    return std::nullopt;
  }
  size_t QuestionsAhead(uint32_t pass) {
    std::lock_guard<std::mutex> lock(mutex);
    return size_t(
        std::count_if(asked.begin(), asked.end(), [pass](const Asked& entry) { return entry.pass == pass; }));
  }
  void PutQuestion(FarmLink::Ticket ticket, uint32_t pass) {
    std::lock_guard<std::mutex> lock(mutex);
    asked.push_back({std::move(ticket), pass});
  }

  struct Asked {
    FarmLink::Ticket ticket;
    uint32_t pass;
  };
  FarmLink& link;
  unsigned threads;
  unsigned short lastPass;
  size_t questionsAhead;
  std::atomic<uint64_t> framePass{1};
  std::mutex mutex;
  std::deque<Asked> asked;
};

struct AbortContext {
  const FarmLink* link;
};

bool ShouldStopRank(void* context) {
  return StopSignal() != 0 || static_cast<AbortContext*>(context)->link->Finished();
}

farm::Hello MakeHello(bool loaded, HostScene& host, const std::string& error) {
  farm::Hello hello{};
  hello.loaded = loaded;
  if (!loaded) {
    std::strncpy(hello.error, error.c_str(), sizeof hello.error - 1);
    return hello;
  }
  const MODE_RENDER_OPTIONS& options = host.Options();
  hello.triangles = static_cast<uint32_t>(host.TriangleCount());
  hello.pathTracing = options.DoPathTracing();
  hello.customLighting = options.DoCustomLighting();
  hello.toneMapping = options.DoHDRTonalMapping();
  hello.gamma = options.ApplyHDRGamma();
  hello.toneMappingLevel = options.GetHDRTonalMappingLevel();
  return hello;
}

void Render(HostScene& host, const RenderJob& job, MpiTileServer& server, AbortContext& abort) {
  RENDER_ENGINE_INTERFACE* engine = CreateRenderEngine();
  if (!engine) return;
  engine->SetShouldAbortRenderFunction(ShouldStopRank, &abort);
  engine->Initialize(host.TextureDirectory().string().c_str(), "", "bump", "mask", "", "");
  // The server goes in before the scene: with it the photon maps are shot
  // from a seeded generator, the same in every process. Before the frame
  // size too, so that no frame buffer is made: the coordinator keeps the
  // picture, and the whole picture is one tile of the render to file.
  engine->SetRenderDistributedServerInterface(&server);
  unsigned int width = static_cast<unsigned int>(job.width), height = static_cast<unsigned int>(job.height);
  engine->ResizeClientArea(&width, &height);
  RENDER_TO_FILE_INTERFACE& file = *engine->GetRenderToFileInterface();
  file.SetRenderToFile(true);
  file.SetRenderToFileResolution(static_cast<short>(job.width), static_cast<short>(job.height));
  file.SetRenderToFileName(job.output.c_str());  // never written: a distributed engine does not save
  file.SetRenderToFileBackgroundAlpha(job.alpha);
  file.SetRenderToFileNumberPathTracingPasses(job.passes);
  ENVIRONMENT_3D_VIEW& view = host.View();
  engine->UpdateFrame(&host.Project(), &view, &host.Graph(), &host.Lights(), host.HorizonNode(),
                      host.HorizonMaterialID(), view.GetViewMaterialSet(), host.Project().GetFrameTag());
  if (!ShouldStopRank(&abort)) {
    const RECT frame = {0, 0, job.width, job.height};
    engine->RenderFrame(&host.Project(), &view, &host.Graph(), frame, false);
  }
  engine->SetRenderDistributedServerInterface(nullptr);
  engine->ShutDown();
  engine->Release();
}

}  // namespace

FarmOutcome RunRenderRank(const RenderSettings& settings, const RenderJob& job, unsigned threads) {
  FarmLink link;
  link.Start();
  HostScene host;
  std::string error;
  const bool loaded = AssembleScene(settings, static_cast<double>(job.width) / job.height, host, error);
  link.Post(farm::HelloTag, Bytes(MakeHello(loaded, host, error)));
  const unsigned short lastPass =
      static_cast<unsigned short>(host.Options().DoPathTracing() ? std::max(job.passes, 1) : 1);
  MpiTileServer server(link, threads, lastPass);
  AbortContext abort = {&link};
  if (loaded) Render(host, job, server, abort);
  link.Flush();
  // The coordinator says when the picture is done; a stopped process leaves
  // without waiting, and the coordinator deals its tiles to the others.
  link.WaitForFinish([] { return StopSignal() != 0; });
  FarmOutcome outcome;
  outcome.ranksLost = link.RanksLost() > 0;
  link.Shutdown();
  if (StopSignal() && !link.Finished()) outcome.code = 128 + StopSignal();
  // Errors are the coordinator's to report, once for the whole farm.
  return outcome;
}

// Rank 0 of the farm: loads no scene, only the command line. It learns the
// render options from the render processes, deals out tiles, blends what
// comes back into the whole picture and saves it after every pass.
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <iostream>
#include <optional>
#include <thread>

#include <mpi.h>

#include "FarmMessages.h"
#include "FarmPicture.h"
#include "FarmRoles.h"
#include "FarmTiles.h"
#include "pipeline/PictureSave.h"
#include "Progress.h"

namespace {

using Clock = std::chrono::steady_clock;
// A render process that has said nothing for this long (its link sends a
// heartbeat every second, whatever it is doing) is taken for lost.
constexpr auto LostAfter = std::chrono::seconds(10);
// Between rounds with nothing to receive; short, since a worker of a render
// process may be waiting for an answer.
constexpr auto Nap = std::chrono::microseconds(500);

enum class RankState { Loading, Working, Left, Lost };

struct Message {
  int source = 0, tag = 0;
  std::vector<std::byte> bytes;
};

struct Parked {
  int rank;
  farm::Request request;
};

struct HeldTile {
  uint32_t tile, pass;
  std::vector<SCENE_VERTEX_XYZW> samples;
};

class Coordinator {
 public:
  Coordinator(const RenderSettings& settings, const RenderJob& job, int ranks)
      : settings(settings),
        job(job),
        states(size_t(ranks), RankState::Loading),
        lastHeard(size_t(ranks), Clock::now()),
        tiles(FarmTiles(uint32_t(job.width), uint32_t(job.height), farm::TileSize)),
        columns((uint32_t(job.width) + farm::TileSize - 1) / farm::TileSize) {
    states[farm::Coordinator] = RankState::Left;
    tileAt.assign(tiles.size(), 0);
    for (uint32_t index = 0; index < tiles.size(); ++index)
      tileAt[tiles[index].y / farm::TileSize * columns + tiles[index].x / farm::TileSize] = index;
  }

  FarmOutcome Run();

 private:
  bool ReceiveOne();
  void Handle(Message& message);
  void HandleHello(int rank, const farm::Hello& hello);
  void HandleRequest(int rank, const farm::Request& request);
  void HandleSamples(const std::vector<std::byte>& bytes);
  void Depart(int rank, RankState state);
  void Reply(int rank, int tag, const farm::Reply& reply);
  bool Answer(const Parked& parked);  // false: parked again
  void AnswerParked();
  void CheckClocks();
  void SaveCompletePasses();
  void Fail(int code, const std::string& message);
  bool Busy() const;  // a render process is still loading or working
  void Finish();
  FarmOutcome Outcome() const;

  const RenderSettings& settings;
  const RenderJob& job;
  std::vector<RankState> states;
  std::vector<Clock::time_point> lastHeard;
  std::vector<FarmTile> tiles;
  uint32_t columns;
  std::vector<uint32_t> tileAt;  // tile index by grid cell
  std::optional<TileDealer> dealer;
  std::unique_ptr<FarmPicture> picture;
  std::unique_ptr<ProgressDisplay> progress;
  std::optional<farm::Hello> scene;
  std::vector<Parked> parked;
  std::vector<HeldTile> held;
  uint32_t saved = 0;
  int saveStatus = 0;
  bool changed = false, finishing = false;
  std::optional<FarmOutcome> failure;
  Clock::time_point start = Clock::now();
  uint64_t bytesIn = 0, bytesOut = 0, tilesTaken = 0;
  uint32_t lost = 0;
};

bool Coordinator::ReceiveOne() {
  int arrived = 0;
  MPI_Status status;
  MPI_Iprobe(MPI_ANY_SOURCE, MPI_ANY_TAG, MPI_COMM_WORLD, &arrived, &status);
  if (!arrived) return false;
  int count = 0;
  MPI_Get_count(&status, MPI_BYTE, &count);
  Message message = {status.MPI_SOURCE, status.MPI_TAG, std::vector<std::byte>(size_t(std::max(count, 0)))};
  MPI_Recv(message.bytes.data(), count, MPI_BYTE, message.source, message.tag, MPI_COMM_WORLD,
           MPI_STATUS_IGNORE);
  bytesIn += message.bytes.size();
  Handle(message);
  return true;
}

template <typename Record>
std::optional<Record> As(const std::vector<std::byte>& bytes) {
  if (bytes.size() != sizeof(Record)) return std::nullopt;
  Record record;
  std::memcpy(&record, bytes.data(), sizeof record);
  return record;
}

void Coordinator::Handle(Message& message) {
  const int rank = message.source;
  if (rank <= 0 || size_t(rank) >= states.size()) return;
  // A process once given up for lost stays lost: its tiles went to others.
  if (states[size_t(rank)] == RankState::Lost) return;
  lastHeard[size_t(rank)] = Clock::now();
  switch (message.tag) {
    case farm::HelloTag:
      if (auto hello = As<farm::Hello>(message.bytes)) HandleHello(rank, *hello);
      break;
    case farm::RequestTag:
      if (auto request = As<farm::Request>(message.bytes)) HandleRequest(rank, *request);
      break;
    case farm::SamplesTag:
      HandleSamples(message.bytes);
      break;
    case farm::LeaveTag:
      Depart(rank, RankState::Left);
      break;
    default:  // heartbeats: only the time counts
      break;
  }
}

void Coordinator::HandleHello(int rank, const farm::Hello& hello) {
  if (states[size_t(rank)] != RankState::Loading) return;
  states[size_t(rank)] = RankState::Working;
  if (!hello.loaded) {
    if (!failure) Fail(ExitBadInput, std::string(hello.error, strnlen(hello.error, sizeof hello.error)));
    return;
  }
  if (scene) {
    if (scene->triangles != hello.triangles || scene->pathTracing != hello.pathTracing)
      Fail(ExitBadInput, "render process " + std::to_string(rank) + " loaded a different scene (" +
                             std::to_string(hello.triangles) + " triangles, others " +
                             std::to_string(scene->triangles) + "): every machine needs the same files");
    return;
  }
  // The first scene sets up the picture; the others only have to agree.
  scene = hello;
  MODE_RENDER_OPTIONS options;
  options.SetPathTracing(hello.pathTracing);
  options.SetCustomLighting(hello.customLighting);
  options.SetHDRTonalMapping(hello.toneMapping);
  options.SetHDRTonalMappingLevel(hello.toneMappingLevel);
  options.SetHDRGamma(hello.gamma);
  picture = std::make_unique<FarmPicture>(uint32_t(job.width), uint32_t(job.height), options, job.alpha);
  if (!picture->Valid()) {
    Fail(ExitNotWritten, "not enough memory for a picture of this size");
    return;
  }
  const uint32_t passes = hello.pathTracing ? uint32_t(std::max(job.passes, 1)) : 1;
  dealer.emplace(tiles.size(), passes);
  const auto style = settings.quiet               ? ProgressDisplay::Style::Quiet
                     : isatty(STDERR_FILENO) != 0 ? ProgressDisplay::Style::Terminal
                                                  : ProgressDisplay::Style::Lines;
  if (!settings.quiet)
    std::cerr << "Rendering " << job.output << " (" << job.width << " x " << job.height << ", "
              << hello.triangles << " triangles" << (hello.pathTracing ? ", path tracing" : "") << ") on "
              << states.size() - 1 << " render processes\n";
  progress = std::make_unique<ProgressDisplay>(std::cerr, style, int(passes));
  const unsigned long total = std::min<size_t>(tiles.size(), 0xFFFF);
  progress->Receive(PBM_SETRANGE, 0, MAKELPARAM(0, total));
  progress->Receive(PBM_SETSTEP, 1, 0);
  progress->Receive(PBM_SETPOS, 0, 0);
  if (hello.pathTracing) progress->Receive(ProgressDisplay::PassMessage, 0, 1);
  start = Clock::now();
  changed = true;
}

void Coordinator::HandleRequest(int rank, const farm::Request& request) {
  if (request.replyTag < farm::ReplyTagBase) return;
  if (!Answer({rank, request})) parked.push_back({rank, request});
}

void Coordinator::Reply(int rank, int tag, const farm::Reply& reply) {
  MPI_Send(&reply, sizeof reply, MPI_BYTE, rank, tag, MPI_COMM_WORLD);
  bytesOut += sizeof reply;
}

bool Coordinator::Answer(const Parked& parked) {
  const auto send = [&](farm::ReplyKind kind, uint32_t pass = 0, uint32_t x = 0, uint32_t y = 0) {
    Reply(parked.rank, parked.request.replyTag, {kind, pass, x, y});
    return true;
  };
  if (finishing || (dealer && dealer->Finished())) return send(farm::ReplyKind::Finished);
  if (!dealer) return false;
  TileDealer::Deal deal;
  if (parked.request.kind == farm::RequestKind::Pass) {
    deal = dealer->NextPass();
    if (deal.answer == TileDealer::Answer::Deal) return send(farm::ReplyKind::Pass, deal.pass);
  } else {
    deal = dealer->NextTile(parked.rank, parked.request.pass);
    if (deal.answer == TileDealer::Answer::Deal) {
      const FarmTile& tile = tiles[deal.tile];
      return send(farm::ReplyKind::Tile, deal.pass, tile.x, tile.y);
    }
    if (deal.answer == TileDealer::Answer::Nothing) return send(farm::ReplyKind::Nothing);
  }
  if (deal.answer == TileDealer::Answer::Finished) return send(farm::ReplyKind::Finished);
  return false;
}

void Coordinator::AnswerParked() {
  std::vector<Parked> waiting;
  waiting.swap(parked);
  for (const Parked& entry : waiting)
    if (!Answer(entry)) parked.push_back(entry);
}

void Coordinator::HandleSamples(const std::vector<std::byte>& bytes) {
  farm::SampleHeader header;
  if (!dealer || bytes.size() < sizeof header) return;
  std::memcpy(&header, bytes.data(), sizeof header);
  if (header.x % farm::TileSize || header.y % farm::TileSize || header.x >= uint32_t(job.width) ||
      header.y >= uint32_t(job.height))
    return;
  const uint32_t index = tileAt[header.y / farm::TileSize * columns + header.x / farm::TileSize];
  const FarmTile& tile = tiles[index];
  const size_t count = size_t(tile.width) * tile.height;
  if (header.width != tile.width || header.height != tile.height ||
      bytes.size() != sizeof header + count * sizeof(SCENE_VERTEX_XYZW))
    return;
  if (!dealer->Receive(index, header.pass)) return;
  ++tilesTaken;
  std::vector<SCENE_VERTEX_XYZW> samples(count);
  std::memcpy(samples.data(), bytes.data() + sizeof header, count * sizeof(SCENE_VERTEX_XYZW));
  // The newer of the two passes being dealt waits until the older one is
  // complete and saved: the file only ever holds whole passes.
  if (header.pass == saved + 1)
    picture->Blend(tile, header.pass, samples.data());
  else
    held.push_back({index, header.pass, std::move(samples)});
  progress->Receive(PBM_STEPIT, 0, 0);
  SaveCompletePasses();
  changed = true;
}

void Coordinator::SaveCompletePasses() {
  while (saved < dealer->CompletePasses()) {
    ++saved;
    // The HDR picture of --hdr beside the output, with its checkpoints.
    for (const std::string* name : {&job.output, &job.hdr}) {
      if (name->empty()) continue;
      const int status = picture->Save(*name);
      if (status != 0) saveStatus = status;
      if (job.checkpoints && saved % CheckpointInterval == 0) SaveCheckpoint(name->c_str(), saved);
    }
    if (scene->pathTracing && saved < dealer->LastPass())
      progress->Receive(ProgressDisplay::PassMessage, 0, LPARAM(saved + 1));
    for (auto entry = held.begin(); entry != held.end();) {
      if (entry->pass != saved + 1) {
        ++entry;
        continue;
      }
      picture->Blend(tiles[entry->tile], entry->pass, entry->samples.data());
      entry = held.erase(entry);
    }
  }
}

void Coordinator::Depart(int rank, RankState state) {
  if (states[size_t(rank)] == RankState::Left || states[size_t(rank)] == RankState::Lost) return;
  const bool working = !finishing && (!dealer || !dealer->Finished());
  states[size_t(rank)] = state;
  if (state == RankState::Lost) {
    ++lost;
    if (working && !settings.quiet)
      std::cerr << "\nbrindlex-render: render process " << rank << " is lost (nothing heard for "
                << LostAfter.count() << " s); the others take over its tiles\n";
  }
  if (dealer) dealer->Lose(rank);
  std::erase_if(parked, [rank](const Parked& entry) { return entry.rank == rank; });
  changed = true;
}

void Coordinator::CheckClocks() {
  const auto now = Clock::now();
  for (size_t rank = 1; rank < states.size(); ++rank)
    if ((states[rank] == RankState::Loading || states[rank] == RankState::Working) &&
        now - lastHeard[rank] > LostAfter)
      Depart(int(rank), RankState::Lost);
  if (finishing || !dealer) return;
  if (StopSignal()) {
    dealer->Stop();
    changed = true;
  } else if (job.timeLimit > 0 && std::chrono::duration<double>(now - start).count() >= job.timeLimit &&
             dealer->LastPass() > dealer->CompletePasses() + 1) {
    dealer->LimitReached();
    changed = true;
  }
}

void Coordinator::Fail(int code, const std::string& message) {
  if (!failure) failure = FarmOutcome{code, message, false};
  if (dealer) dealer->Stop();
  changed = true;
}

bool Coordinator::Busy() const {
  for (RankState state : states)
    if (state == RankState::Loading || state == RankState::Working) return true;
  return false;
}

void Coordinator::Finish() {
  finishing = true;
  const farm::Finish finish = {lost};
  for (size_t rank = 1; rank < states.size(); ++rank) {
    if (states[rank] != RankState::Loading && states[rank] != RankState::Working) continue;
    MPI_Send(&finish, sizeof finish, MPI_BYTE, int(rank), farm::FinishTag, MPI_COMM_WORLD);
    bytesOut += sizeof finish;
  }
  AnswerParked();
  // Until every process said goodbye its messages must still be taken, or
  // it could not deliver them and end.
  while (Busy()) {
    if (!ReceiveOne()) {
      CheckClocks();
      std::this_thread::sleep_for(Nap);
    }
  }
}

FarmOutcome Coordinator::Outcome() const {
  FarmOutcome outcome;
  outcome.ranksLost = lost > 0;
  if (failure) {
    outcome.code = failure->code;
    outcome.message = failure->message;
  } else if (StopSignal()) {
    outcome = {128 + StopSignal(), "stopped", lost > 0};
  } else if (saveStatus == 2) {
    outcome = {ExitNotWritten, "not enough memory for a picture of this size", lost > 0};
  } else if (saveStatus != 0) {
    outcome = {ExitNotWritten, job.output + ": the picture could not be written", lost > 0};
  } else if (!dealer || dealer->CompletePasses() < dealer->LastPass() || saved == 0) {
    outcome = {ExitNotWritten, "every render process was lost before the picture was done", lost > 0};
  }
  return outcome;
}

FarmOutcome Coordinator::Run() {
  while (!failure && !(dealer && dealer->Finished()) && Busy()) {
    const bool received = ReceiveOne();
    CheckClocks();
    if (changed) {
      changed = false;
      AnswerParked();
    }
    if (!received) std::this_thread::sleep_for(Nap);
  }
  if (progress) progress->Finish();
  Finish();
  if (!settings.quiet && tilesTaken > 0)
    std::cerr << "Farm: " << tilesTaken << " tiles, " << (bytesIn + bytesOut) / tilesTaken
              << " bytes sent per tile on average (samples " << sizeof(farm::SampleHeader) << " + "
              << farm::TileSize * farm::TileSize * sizeof(SCENE_VERTEX_XYZW) << " bytes a full tile)\n";
  return Outcome();
}

}  // namespace

FarmOutcome RunCoordinator(const RenderSettings& settings, const RenderJob& job, int ranks) {
  Coordinator coordinator(settings, job, ranks);
  return coordinator.Run();
}

// A render process's line to the coordinator. One thread of its own does
// all MPI work, so that the engine's workers can ask for tiles and hand in
// samples at the same time without MPI having to be thread safe, and so
// that the coordinator hears a heartbeat while the scene loads or a long
// tile is traced.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <mpi.h>

#include "FarmMessages.h"

class FarmLink {
 public:
  FarmLink() = default;
  ~FarmLink();
  FarmLink(const FarmLink&) = delete;
  FarmLink& operator=(const FarmLink&) = delete;

  // From here on only the link's thread calls MPI, until Shutdown.
  void Start();
  // Sends the coordinator `bytes` with `tag`; returns at once.
  void Post(int tag, std::vector<std::byte> bytes);
  struct Question;
  using Ticket = std::shared_ptr<Question>;
  // Asks the coordinator; the answer is collected with Wait. Once the
  // picture is done every question is answered with Finished.
  Ticket Pose(const farm::Request& request);
  farm::Reply Wait(const Ticket& ticket);
  farm::Reply Ask(const farm::Request& request) { return Wait(Pose(request)); }
  // Waits until everything posted has been delivered.
  void Flush();
  // Waits for the coordinator's word that the picture is done, or until
  // `stopped` says to give up; polled every few milliseconds.
  template <typename StopPoll>
  void WaitForFinish(StopPoll stopped) {
    std::unique_lock<std::mutex> lock(mutex);
    while (!finished && !stopped()) answered.wait_for(lock, std::chrono::milliseconds(5));
  }
  // Says goodbye, delivers it, and ends the thread; pending questions are
  // withdrawn. Afterwards the caller may call MPI again.
  void Shutdown();

  bool Finished() const { return finished; }
  uint32_t RanksLost() const { return ranksLost; }

  struct Question {
    farm::Request request;
    farm::Reply reply{};
    bool posted = false, answered = false;
    MPI_Request send = MPI_REQUEST_NULL, receive = MPI_REQUEST_NULL;
  };

 private:
  struct Letter {
    int tag;
    std::vector<std::byte> bytes;
    bool posted = false;
    MPI_Request send = MPI_REQUEST_NULL;
  };

  void Run();
  // One round of the thread: post what is new, see what has arrived.
  // True when a worker waits for an answer.
  bool Turn();
  void SendHeartbeatIfDue();
  void ReceiveFinish();
  void AnswerEverything(farm::ReplyKind kind);

  std::mutex mutex;
  std::condition_variable answered, work;
  std::map<int, Ticket> questions;  // by reply tag, until MPI is done with them
  std::list<Letter> letters;
  int nextTag = 0;
  int waiting = 0;  // workers in Wait
  bool stopping = false;
  std::atomic<bool> finished{false};
  std::atomic<uint32_t> ranksLost{0};
  std::chrono::steady_clock::time_point lastHeartbeat{};
  std::thread thread;
};

#include "FarmLink.h"

#include <chrono>
#include <cstring>

namespace {
// Sooner than the coordinator's patience runs out many times over.
constexpr auto HeartbeatInterval = std::chrono::seconds(1);
// How long the thread sleeps between rounds: short while a worker waits for
// an answer, longer otherwise (questions asked ahead, samples on their way).
constexpr auto BusyNap = std::chrono::microseconds(200);
constexpr auto IdleNap = std::chrono::milliseconds(2);
// Reply tags are taken in turn from this many; far more than questions are
// ever open at once, and below the 32767 that every MPI allows.
constexpr int ReplyTags = 30000;

bool Done(MPI_Request& request) {
  if (request == MPI_REQUEST_NULL) return true;
  int done = 0;
  MPI_Test(&request, &done, MPI_STATUS_IGNORE);
  return done != 0;
}
}  // namespace

FarmLink::~FarmLink() {
  Shutdown();
}

void FarmLink::Start() {
  thread = std::thread([this] { Run(); });
}

void FarmLink::Post(int tag, std::vector<std::byte> bytes) {
  std::lock_guard<std::mutex> lock(mutex);
  letters.push_back({tag, std::move(bytes)});
  work.notify_one();
}

FarmLink::Ticket FarmLink::Pose(const farm::Request& request) {
  auto question = std::make_shared<Question>();
  question->request = request;
  std::lock_guard<std::mutex> lock(mutex);
  if (finished || stopping) {
    question->reply = {farm::ReplyKind::Finished, 0, 0, 0};
    question->answered = true;
    return question;
  }
  int tag = farm::ReplyTagBase + nextTag;
  while (questions.count(tag)) tag = farm::ReplyTagBase + (nextTag = (nextTag + 1) % ReplyTags);
  nextTag = (nextTag + 1) % ReplyTags;
  question->request.replyTag = tag;
  questions[tag] = question;
  work.notify_one();
  return question;
}

farm::Reply FarmLink::Wait(const Ticket& ticket) {
  std::unique_lock<std::mutex> lock(mutex);
  if (!ticket->answered) {
    // A worker stands still: the thread looks for the answer at once and
    // then often, until no worker waits any more.
    ++waiting;
    work.notify_one();
    answered.wait(lock, [&] { return ticket->answered; });
    --waiting;
  }
  return ticket->reply;
}

void FarmLink::Flush() {
  std::unique_lock<std::mutex> lock(mutex);
  while (!letters.empty() && thread.joinable()) answered.wait_for(lock, std::chrono::milliseconds(1));
}

void FarmLink::Run() {
  while (true) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      if (stopping && letters.empty()) break;
    }
    const bool busy = Turn();
    std::unique_lock<std::mutex> lock(mutex);
    work.wait_for(lock, busy ? std::chrono::duration_cast<std::chrono::microseconds>(BusyNap)
                             : std::chrono::duration_cast<std::chrono::microseconds>(IdleNap));
  }
  // Questions still open will not be answered any more.
  std::lock_guard<std::mutex> lock(mutex);
  for (auto& [tag, question] : questions) {
    if (question->receive != MPI_REQUEST_NULL) {
      MPI_Cancel(&question->receive);
      MPI_Wait(&question->receive, MPI_STATUS_IGNORE);
    }
    if (question->send != MPI_REQUEST_NULL) MPI_Wait(&question->send, MPI_STATUS_IGNORE);
  }
  questions.clear();
}

bool FarmLink::Turn() {
  std::lock_guard<std::mutex> lock(mutex);
  for (auto letter = letters.begin(); letter != letters.end();) {
    if (!letter->posted) {
      MPI_Isend(letter->bytes.data(), int(letter->bytes.size()), MPI_BYTE, farm::Coordinator, letter->tag,
                MPI_COMM_WORLD, &letter->send);
      letter->posted = true;
    }
    letter = Done(letter->send) ? letters.erase(letter) : std::next(letter);
  }
  if (letters.empty()) answered.notify_all();  // for Flush
  for (auto entry = questions.begin(); entry != questions.end();) {
    const int tag = entry->first;
    Question& question = *entry->second;
    if (!question.posted) {
      question.posted = true;
      MPI_Irecv(&question.reply, sizeof question.reply, MPI_BYTE, farm::Coordinator, tag, MPI_COMM_WORLD,
                &question.receive);
      MPI_Isend(&question.request, sizeof question.request, MPI_BYTE, farm::Coordinator, farm::RequestTag,
                MPI_COMM_WORLD, &question.send);
    }
    const bool sent = Done(question.send);
    const bool received = Done(question.receive);
    if (received && !question.answered) {
      question.answered = true;
      answered.notify_all();
    }
    // The asker holds the question as long as it wants the answer.
    entry = sent && received ? questions.erase(entry) : std::next(entry);
  }
  SendHeartbeatIfDue();
  ReceiveFinish();
  return waiting > 0;
}

void FarmLink::SendHeartbeatIfDue() {
  const auto now = std::chrono::steady_clock::now();
  if (now - lastHeartbeat < HeartbeatInterval) return;
  lastHeartbeat = now;
  // An empty message: the coordinator only notes when it came.
  letters.push_back({farm::HeartbeatTag, {}, false});
}

void FarmLink::ReceiveFinish() {
  int arrived = 0;
  MPI_Status status;
  MPI_Iprobe(farm::Coordinator, farm::FinishTag, MPI_COMM_WORLD, &arrived, &status);
  if (!arrived) return;
  farm::Finish finish{};
  MPI_Recv(&finish, sizeof finish, MPI_BYTE, farm::Coordinator, farm::FinishTag, MPI_COMM_WORLD,
           MPI_STATUS_IGNORE);
  ranksLost = finish.ranksLost;
  finished = true;
  AnswerEverything(farm::ReplyKind::Finished);
}

void FarmLink::AnswerEverything(farm::ReplyKind kind) {
  for (auto& [tag, question] : questions) {
    if (question->answered) continue;
    question->reply = {kind, 0, 0, 0};
    question->answered = true;
  }
  answered.notify_all();
}

void FarmLink::Shutdown() {
  if (!thread.joinable()) return;
  {
    std::lock_guard<std::mutex> lock(mutex);
    letters.push_back({farm::LeaveTag, {}, false});
    stopping = true;
    AnswerEverything(farm::ReplyKind::Finished);
    work.notify_one();
  }
  thread.join();
}

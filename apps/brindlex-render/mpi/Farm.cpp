#include "Farm.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <thread>

#include <mpi.h>

#include "FarmMessages.h"
#include "FarmRoles.h"
#include "SceneAssembly.h"
#include "host/brindlexutil.h"

namespace {

// Render processes share the processors of their machine; the coordinator
// mostly sleeps and takes no share. So -np 3 on a machine of two
// processors gives two render processes of one worker each.
unsigned WorkerThreads(int rank) {
  MPI_Comm machine;
  MPI_Comm_split_type(MPI_COMM_WORLD, MPI_COMM_TYPE_SHARED, rank, MPI_INFO_NULL, &machine);
  int here = 1, coordinatorHere = rank == farm::Coordinator;
  MPI_Comm_size(machine, &here);
  MPI_Allreduce(MPI_IN_PLACE, &coordinatorHere, 1, MPI_INT, MPI_MAX, machine);
  MPI_Comm_free(&machine);
  const int renderers = std::max(here - coordinatorHere, 1);
  return std::max<unsigned>(static_cast<unsigned>(GetProcessorCount()) / unsigned(renderers), 1u);
}

// What the farm does not do; the same answer on every rank.
std::string Refusal(const RenderJob& job, int ranks) {
  if (ranks < 2)
    return "--mpi needs a coordinator and at least one render process: mpirun -np N brindlex-render --mpi "
           "... with N of 2 or more";
  if (job.cubeMap) return "--mpi does not render cube maps";
  // The engine counts the passes of a distributed render in 16 bits.
  if (job.passes > 0xFFFF) return "--mpi renders at most 65535 passes";
  return {};
}

}  // namespace

int RunFarm(const RenderSettings& settings, std::string& message) {
  // A tile's samples (16,404 bytes for a full tile) go in one eager message
  // over shared memory. Above Open MPI's default eager limit of 4 KiB they
  // would go by rendezvous, where the receiver reads from the sender's
  // memory: a render process killed in the middle of a send then left the
  // coordinator waiting for ever on a message it could not read. An eager
  // message reaches the receiver whole or not at all. A limit the user set
  // is kept.
  setenv("OMPI_MCA_btl_vader_eager_limit", "32768", 0);
  int provided = MPI_THREAD_SINGLE;
  MPI_Init_thread(nullptr, nullptr, MPI_THREAD_SERIALIZED, &provided);
  // A lost render process must not take the others down with an error of
  // its own; the coordinator notices the silence.
  MPI_Comm_set_errhandler(MPI_COMM_WORLD, MPI_ERRORS_RETURN);
  int rank = 0, ranks = 1;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &ranks);
  const RenderJob job = MakeJob(settings);
  std::string refusal = Refusal(job, ranks);
  if (refusal.empty() && provided < MPI_THREAD_SERIALIZED)
    refusal = "this MPI library cannot be used from several threads";
  if (!refusal.empty()) {
    MPI_Finalize();
    if (rank == farm::Coordinator) message = refusal;
    return ExitBadInput;
  }
  const unsigned threads = WorkerThreads(rank);
  InstallStopHandler();
  FarmOutcome outcome = rank == farm::Coordinator ? RunCoordinator(settings, job, ranks)
                                                  : RunRenderRank(settings, job, threads);
  if (!outcome.ranksLost) {
    MPI_Finalize();
  } else if (rank != farm::Coordinator) {
    // MPI_Finalize would wait for the lost process forever. The coordinator
    // ends first, which makes mpirun end the job; until then stay put, so
    // that the coordinator is not taken down before its last words.
    std::this_thread::sleep_for(std::chrono::seconds(30));
  }
  message = outcome.message;
  return outcome.code;
}

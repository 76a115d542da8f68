// Stops renders of a model (the demo house without one) at random moments,
// in ray tracing, path tracing, render to file and scene updates, and
// prints how long the engine took from each abort back to idle.
//   abort_stress [MODEL] [--runs N] [--size W H] [--seed S]
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "AbortStress.h"
#include "SceneAssembly.h"

namespace {

double Percentile(std::vector<double> values, double fraction) {
  if (values.empty()) return 0.0;
  std::sort(values.begin(), values.end());
  return values[std::min(values.size() - 1, static_cast<size_t>(fraction * values.size()))];
}

const char* Name(AbortStress::Work work) {
  static const char* names[] = {"ray tracing", "path tracing", "render to file", "scene update"};
  return names[static_cast<int>(work)];
}

}  // namespace

int main(int argc, char** argv) {
  RenderSettings settings;
  int runs = 200, width = 320, height = 240;
  unsigned seed = 1;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--runs" && i + 1 < argc) {
      runs = std::atoi(argv[++i]);
    } else if (argument == "--size" && i + 2 < argc) {
      width = std::atoi(argv[++i]);
      height = std::atoi(argv[++i]);
    } else if (argument == "--seed" && i + 1 < argc) {
      seed = static_cast<unsigned>(std::atoi(argv[++i]));
    } else {
      settings.model = argument;
    }
  }
  HostScene host;
  std::string error;
  if (!AssembleScene(settings, static_cast<double>(width) / height, host, error)) {
    std::cerr << "abort_stress: " << error << '\n';
    return 2;
  }
  const std::filesystem::path folder = std::filesystem::temp_directory_path() / "brindlex-abort-stress";
  std::filesystem::create_directories(folder);
  AbortStress stress(host, width, height, folder);
  const auto start = std::chrono::steady_clock::now();
  stress.TakeReference();
  const double frame = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::mt19937 random(seed);
  // Aborts fall anywhere from the first instant to about three frames in.
  std::uniform_int_distribution<int> delay(0, std::max(1, static_cast<int>(3e6 * frame)));
  std::map<AbortStress::Work, std::vector<double>> times;
  int failures = 0;
  for (int run = 0; run < runs; ++run) {
    const AbortStress::Work work = AbortStress::AllWork[run % 4];
    double abortToIdle = -1.0;
    std::string failure;
    if (!stress.StopOnce(work, std::chrono::microseconds(delay(random)), abortToIdle, failure)) {
      std::cerr << "run " << run << " (" << Name(work) << "): " << failure << '\n';
      ++failures;
    }
    if (abortToIdle >= 0.0) times[work].push_back(abortToIdle * 1000.0);
  }
  std::filesystem::remove_all(folder);
  std::vector<double> all;
  std::cout << "work            aborts   p50 ms   p99 ms   max ms\n";
  for (const auto& [work, values] : times) {
    all.insert(all.end(), values.begin(), values.end());
    std::printf("%-15s %6zu %8.2f %8.2f %8.2f\n", Name(work), values.size(), Percentile(values, 0.5),
                Percentile(values, 0.99), Percentile(values, 1.0));
  }
  std::printf("%-15s %6zu %8.2f %8.2f %8.2f\n", "all", all.size(), Percentile(all, 0.5),
              Percentile(all, 0.99), Percentile(all, 1.0));
  std::cout << runs << " runs, " << failures << " failures\n";
  return failures == 0 ? 0 : 1;
}

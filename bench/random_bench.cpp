// The cost of one random draw: the system source as the engine draws it,
// from a buffer per thread, against one kernel call per draw, and the
// seeded MT19937.
#include <benchmark/benchmark.h>
#include <sys/random.h>

#include "pipeline/RandomNumberGenerator.h"

namespace {

void SystemRandomUnit(benchmark::State& state) {
  RT_RANDOM_NUMBER_GENERATOR generator(true, 0);
  for (auto _ : state) benchmark::DoNotOptimize(generator.RandomUnit());
}
BENCHMARK(SystemRandomUnit)->ThreadRange(1, 2);

void SeededRandomUnit(benchmark::State& state) {
  RT_RANDOM_NUMBER_GENERATOR generator(false, 5489);
  for (auto _ : state) benchmark::DoNotOptimize(generator.RandomUnit());
}
BENCHMARK(SeededRandomUnit);

// What a draw cost when each one was a call to the kernel.
void KernelCallPerDraw(benchmark::State& state) {
  for (auto _ : state) {
    unsigned int value = 0;
    benchmark::DoNotOptimize(getrandom(&value, sizeof value, 0));
    benchmark::DoNotOptimize(value);
  }
}
BENCHMARK(KernelCallPerDraw)->ThreadRange(1, 2);

}  // namespace

// Random numbers of the engine: the operating system's secure source, or a
// seeded MT19937 where a result must repeat.
#pragma once

#include <cstdint>
#include <optional>
#include <random>

#include "host/SceneRecords.h"

// The operating system's secure random source: one unsigned 32-bit value in
// `value`. 0 on success; otherwise an errno value, and `value` is 0. Safe
// from any thread: each thread draws from a buffer of its own, which one
// call to the kernel refills.
int rand_s(unsigned int* value);

// MT19937 whose state is made at its first draw, so that a generator in
// system-random mode, made for every pixel and every jittered ray, never
// pays for 624 words it does not read. It draws exactly what std::mt19937
// draws with the seed given last, 5489 if none.
class LazilySeededMT19937 {
 public:
  using result_type = std::mt19937::result_type;
  static constexpr result_type min() { return std::mt19937::min(); }
  static constexpr result_type max() { return std::mt19937::max(); }
  void seed(result_type value) {
    seedValue = value;
    engine.reset();
  }
  result_type operator()() {
    if (!engine) engine.emplace(seedValue);
    return (*engine)();
  }

 private:
  result_type seedValue = std::mt19937::default_seed;
  std::optional<std::mt19937> engine;
};

class RT_RANDOM_NUMBER_GENERATOR {
 public:
  // With `useSystemRandom` every draw comes from rand_s and `seed` is not
  // read; otherwise the MT19937 sequence of `seed`.
  RT_RANDOM_NUMBER_GENERATOR(bool useSystemRandom, unsigned int seed);

  // A double from 0 to 1, both included.
  double RandomUnit();
  // A unit vector from a point of the cube from -1 to 1, each axis
  // (RandomUnit - 0.5) * 2.0 in x, y, z order: not uniform over the sphere,
  // the corners' directions are likelier.
  SCENE_VERTEX_XYZ_64 RandomUnitVector();
  // A row below `n`, every row equally likely, or `n` itself once in 2^32
  // draws of the system source, which the caller must turn away.
  uint32_t RandomIndex(uint32_t n);

 private:
  bool useSystemRandom;
  LazilySeededMT19937 generator;  // default seed 5489
};

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

#include "host/BrindlexViewMath.h"
#include "photons/SWPhotonMap.h"

namespace {

const SCENE_VERTEX_XYZ_64 Up = {0.0, 0.0, 1.0};
const SCENE_VERTEX_XYZ White = {1.0f, 1.0f, 1.0f};

// A photon that came straight down onto a surface facing up.
SWPhoton Downward(double x, double y, double z, double energy = 1.0) {
  return {{x, y, z}, {0.0, 0.0, -1.0}, {energy, energy, energy}};
}

std::array<double, 3> Light(const SCENE_VERTEX_XYZ_64& v) {
  return {v.x, v.y, v.z};
}

// The gather by its definition: every photon within reach and in front of
// the normal, nearest first, stable for equal distances; the nearest
// `maxPhotons` summed from the farthest to the nearest, as the gather's heap
// hands them out.
std::array<double, 3> BruteForce(const std::vector<SWPhoton>& photons, const SCENE_VERTEX_XYZ_64& point,
                                 double radius, const SCENE_VERTEX_XYZ_64& normal,
                                 const SCENE_VERTEX_XYZ& diffuse, uint64_t maxPhotons) {
  std::vector<GatherEntry> kept;
  for (uint32_t row = 0; row < photons.size(); ++row) {
    const SCENE_VERTEX_XYZ_64 position = photons[row].position, d = photons[row].direction;
    const double distance = Distance(&position, &point),
                 cosine = -(normal.x * d.x + normal.y * d.y + normal.z * d.z);
    if (distance <= radius && cosine > 0.0) kept.push_back({distance, cosine, row});
  }
  std::stable_sort(kept.begin(), kept.end(), [](const GatherEntry& a, const GatherEntry& b) {
    return double(a.distance) < double(b.distance);
  });
  std::array<double, 3> sum{};
  for (size_t i = std::min<uint64_t>(kept.size(), maxPhotons); i-- > 0;) {
    const double weight = kept[i].cosine * ((radius - kept[i].distance) / radius);
    const SCENE_VERTEX_XYZ_64 energy = photons[kept[i].photonRow].energy;
    sum[0] += energy.x * double(diffuse.x) * weight;
    sum[1] += energy.y * double(diffuse.y) * weight;
    sum[2] += energy.z * double(diffuse.z) * weight;
  }
  return sum;
}

}  // namespace

TEST(PhotonMapGather, KernelCosineNearestRuleAndBounds) {
  SWPhotonMap map;
  map.Build({});
  EXPECT_TRUE(map.nodes.empty() && map.entries.empty());
  EXPECT_EQ(map.GatherPhotons({0, 0, 0}, 10.0, {}, Up, White, 100).x, 0.0);
  // A hundred photons at one point split by count, 100 -> 50 + 50 -> ...
  // -> leaves of 12 or 13, and none is lost: all at distance 0 with cosine
  // 1 give 100 * 0.5.
  std::vector<SWPhoton> photons(100, Downward(2.0, 3.0, 4.0, 0.5));
  map.Build(photons);
  EXPECT_EQ(map.nodes.size(), 15u);
  EXPECT_EQ(map.GatherPhotons({2.0, 3.0, 4.0}, 1.0, photons, Up, White, 1000).x, 50.0);

  photons.clear();
  for (int i = 0; i < 40; ++i) photons.push_back(Downward(i, 0.0, 0.0));
  map.Build(photons);
  const auto gather = [&](double x, double radius, uint64_t most = 100) {
    return map.GatherPhotons({x, 0.0, 0.0}, radius, photons, Up, White, most).x;
  };
  // On the split plane x = 20: 20 at distance 0 on the right, 19 and 21 at 1.
  const double expected = 1.0 + 2.0 * (0.5 / 1.5);
  EXPECT_EQ(Light(map.GatherPhotons({20.0, 0.0, 0.0}, 1.5, photons, Up, {1.0f, 0.5f, 0.25f}, 100)),
            (std::array<double, 3>{expected, expected * 0.5, expected * 0.25}));
  // The rim counts nothing; the nearest two of 19, 20, 21 are 20 and one at 1.
  EXPECT_EQ(gather(20, 1.0), 1.0);
  EXPECT_DOUBLE_EQ(gather(20, 1.5, 2), 1.0 + 0.5 / 1.5);
  EXPECT_EQ(gather(20, 1.5, 0), 0.0);
  // From behind the normal nothing counts, not even at distance 0.
  photons[20].direction = {0.0, 0.0, 1.0};
  EXPECT_DOUBLE_EQ(gather(20, 1.5), 2.0 * (0.5 / 1.5));
  // A tie keeps the photon met first: 19 on the near side, before 21.
  photons[19].energy = {2.0, 2.0, 2.0};
  EXPECT_DOUBLE_EQ(gather(20, 1.5, 1), 2.0 * (0.5 / 1.5));
  photons[19].energy = {1.0, 1.0, 1.0};
  photons[20].direction = {0.0, 0.0, -1.0};
  // Radius 0 on the split plane still reaches the far side, where 20 lies;
  // the cube test includes its ends, so radius 0 at the corner photon finds
  // it. Both weigh 0 / 0. Beyond the box nothing is found.
  EXPECT_TRUE(std::isnan(gather(20, 0.0)) && std::isnan(gather(39, 0.0)));
  EXPECT_EQ(gather(41, 0.5), 0.0);
  // A list shorter than the tree: rows beyond it are skipped.
  photons.resize(20);
  EXPECT_DOUBLE_EQ(gather(20, 1.5), 0.5 / 1.5);
}

TEST(PhotonMapGather, MillionPhotonsMatchABruteForceSum) {
  std::mt19937 random(7);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  // Positions exactly representable as floats, so that a split plane, which
  // is stored as a float, never stands between a photon and its own side.
  std::vector<SWPhoton> photons(1000000);
  for (SWPhoton& photon : photons) {
    SCENE_VERTEX_XYZ_64 d = {unit(random) - 0.5, unit(random) - 0.5, unit(random) - 0.5};
    GetUnitVector(&d, &d);
    photon = {{unit(random) * 10.0f, unit(random) * 10.0f, unit(random) * 2.0f},
              d,
              {unit(random) * 1e-3, unit(random) * 1e-3, unit(random) * 1e-3}};
  }
  SWPhotonMap map;
  map.Build(photons);
  const SCENE_VERTEX_XYZ diffuse = {0.8f, 0.6f, 0.4f};
  for (int query = 0; query < 24; ++query) {
    const SCENE_VERTEX_XYZ_64 point = {unit(random) * 10.0, unit(random) * 10.0, unit(random) * 2.0};
    SCENE_VERTEX_XYZ_64 normal = {unit(random) - 0.5, unit(random) - 0.5, unit(random) - 0.5};
    GetUnitVector(&normal, &normal);
    const double radius = 0.05 + 0.2 * unit(random);
    for (uint64_t maxPhotons : {uint64_t(1), uint64_t(50), uint64_t(500), uint64_t(100000)})
      EXPECT_EQ(BruteForce(photons, point, radius, normal, diffuse, maxPhotons),
                Light(map.GatherPhotons(point, radius, photons, normal, diffuse, maxPhotons)));
  }
}

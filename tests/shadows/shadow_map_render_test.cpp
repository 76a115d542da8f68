#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <sched.h>
#include <vector>

#include "EngineTestAccess.h"
#include "RenderScene.h"
#include "shadows/CubeShadowMapSeams.h"

namespace {

constexpr int Side = 64;
// Scenes are laid out in metres and built in centimetres: a cube map's
// variance never falls below 10 square units, a blur of about 3 units.
constexpr float Cm = 100.0f;

SCENE_VERTEX_XYZ InCm(SCENE_VERTEX_XYZ p) {
  return {p.x * Cm, p.y * Cm, p.z * Cm};
}

// A matt floor with no ambient light and a box standing on it, seen from
// 24 above through a lens of 20 degrees, under one light of the project's
// own. Visibility of a pixel is its colour over that with shadows hidden:
// the light's cone and angle cancel out.
class ShadowMapRenderTest : public ::testing::Test {
 protected:
  void SetUp() override { Populate(); }
  void Populate() {
    scene->Material("Matt", [](TEXTURE_LINK& link) {
      link.SetAmbientLevel(0);
      link.SetSpecularLevel(0);
    });
    // The floor is a slab: a point light's map finds a second blocker under
    // it, so that the mean of the filter stays finite around the shadow.
    Quad({-20, -20, 0}, {20, -20, 0}, {20, 20, 0}, {-20, 20, 0});
    Quad({-20, -20, -0.2f}, {-20, 20, -0.2f}, {20, 20, -0.2f}, {20, -20, -0.2f});
    scene->Options().SetCustomLighting(true);
  }
  void Quad(SCENE_VERTEX_XYZ a, SCENE_VERTEX_XYZ b, SCENE_VERTEX_XYZ c, SCENE_VERTEX_XYZ d) {
    scene->Quad("Matt", InCm(a), InCm(b), InCm(c), InCm(d));
  }
  void Box(float x0, float y0, float x1, float y1, float h) {
    Quad({x0, y0, h}, {x1, y0, h}, {x1, y1, h}, {x0, y1, h});
    Quad({x0, y0, 0}, {x1, y0, 0}, {x1, y0, h}, {x0, y0, h});
    Quad({x1, y1, 0}, {x0, y1, 0}, {x0, y1, h}, {x1, y1, h});
    Quad({x0, y1, 0}, {x0, y0, 0}, {x0, y0, h}, {x0, y1, h});
    Quad({x1, y0, 0}, {x1, y1, 0}, {x1, y1, h}, {x1, y0, h});
  }
  // The camera looks down at floor point (x, y) from 24 above.
  void LookAt(float x, float y) { scene->SetCamera(InCm({x, y - 0.5f, 24}), InCm({x, y, 0}), 20); }
  void Light(uint16_t type, SCENE_VERTEX_XYZ position, SCENE_VERTEX_XYZ target, double angle = 45.0,
             SCENE_VERTEX_XYZ axisU = {}, SCENE_VERTEX_XYZ axisV = {}) {
    SCENE_LIGHT_DEFINITION light{};
    light.type = type;
    light.position = InCm(position);
    light.target = InCm(target);
    light.color = 0x00FFFFFF;
    light.flags = LightEnabled | LightCastsShadows | LightDiffuse;
    light.intensity = 5;
    light.angle = angle;
    light.axisU = InCm(axisU);
    light.axisV = InCm(axisV);
    scene->Lights()->AddLightInstance(scene->Lights()->AddLightDefinition(light), nullptr);
  }
  // Renders with shadows hidden, then as `soft` says, and keeps the ratio
  // of the pixels that the light reaches at all (-1 elsewhere).
  void RenderVisibility(bool soft) {
    scene->Options().SetDisplayShadows(false);
    scene->Render();
    std::vector<double> open(Side * Side);
    for (int i = 0; i < Side * Side; ++i) open[i] = scene->Color(i % Side, i / Side).x;
    scene->Options().SetDisplayShadows(true);
    scene->Options().SetRayTracedSoftShadows(soft);
    scene->Render();
    visibility.assign(Side * Side, -1.0);
    for (int i = 0; i < Side * Side; ++i)
      if (open[i] > 1e-3) visibility[i] = scene->Color(i % Side, i / Side).x / open[i];
  }
  int Count(double low, double high) const {
    int n = 0;
    for (double v : visibility) n += v > low && v < high;
    return n;
  }
  // Counts of shadowed, penumbra and lit pixels, soft and then hard.
  void ExpectPenumbraOnlyWhenSoft() {
    RenderVisibility(true);
    EXPECT_GT(Count(-0.5, 0.05), 10) << "no full shadow";
    EXPECT_GT(Count(0.1, 0.9), 10) << "no penumbra";
    EXPECT_GT(Count(0.999, 1.001), 500) << "no lit floor";
    RenderVisibility(false);
    EXPECT_GT(Count(-0.5, 0.05), 10);
    EXPECT_EQ(Count(0.01, 0.99), 0) << "a hard shadow has no penumbra";
  }

  std::unique_ptr<RenderScene> scene = std::make_unique<RenderScene>(Side, Side);
  EngineTestAccess access{scene->engine};
  std::vector<double> visibility;
};

}  // namespace

TEST_F(ShadowMapRenderTest, EveryKindOfLightGivesAPenumbraOnlyWhenSoft) {
  // A box of 2 x 2 x 2 on the floor. The spot light's shadow reaches from the
  // box to x = -2.25; the direct light's lies 1 and 2/3 beyond the box in x
  // and y; the area light is a panel of 1 x 1 where the spot light stood,
  // its map drawn from a point behind the panel. Seen from the point light 6
  // above the floor, floor points 6 away along x lie on the seam of the
  // downward face and the side face; the box moved to x = 3 ... 5 throws a
  // shadow from x = 4.5 to 7.5 across it.
  const struct {
    const char* name;
    uint16_t type;
    SCENE_VERTEX_XYZ position, axisU, axisV;
    float boxX, x, y;  // where the box starts, the floor point the camera looks at
  } cases[] = {{"spot", 1, {4, 0, 10}, {}, {}, -1, -1.5f, 0},
               {"direct", 2, {-30, -20, 60}, {}, {}, -1, 1, 0.5f},
               {"area", 3, {4, 0, 10}, {0.5f, 0, 0}, {0, 0.5f, 0}, -1, -1.5f, 0},
               {"point, across a cube seam", 0, {0, 0, 6}, {}, {}, 3, 6, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    scene = std::make_unique<RenderScene>(Side, Side);
    Populate();
    Box(c.boxX, -1, c.boxX + 2, 1, 2);
    Light(c.type, c.position, {0, 0, 0}, 45.0, c.axisU, c.axisV);
    LookAt(c.x, c.y);
    ExpectPenumbraOnlyWhenSoft();
  }
}

TEST_F(ShadowMapRenderTest, SeamsCarryOneFaceIntoTheEdgeRingsOfTheFacesBesideIt) {
  // A slab that fills exactly the view of one face of a point light's cube,
  // and nothing else: filtered face by face, the other five faces hold the
  // empty depth, the largest double, everywhere. The seams are mended with
  // the 5 x 5 mean across the edge: beside the slab's face, a pixel on the
  // edge has 10 of its 25 taps on the slab (two columns of five), the next
  // one in has 5, and the third is left as the filter made it.
  scene = std::make_unique<RenderScene>(Side, Side);
  access = EngineTestAccess(scene->engine);
  scene->Material("Matt", [](TEXTURE_LINK&) {});
  Quad({5, -5, -5}, {5, 5, -5}, {5, 5, 5}, {5, -5, 5});
  Quad({5.2f, -5.2f, -5.2f}, {5.2f, -5.2f, 5.2f}, {5.2f, 5.2f, 5.2f}, {5.2f, 5.2f, -5.2f});
  scene->Options().SetCustomLighting(true);
  Light(0, {0, 0, 0}, {1, 0, 0});
  scene->Update();
  ASSERT_EQ(access.ShadowMapsCube().size(), 1u);
  const SWCubeShadowMap& map = *access.ShadowMapsCube()[0];
  const int size = map.width, mid = size / 2;
  const auto depth = [&](int face, int x, int y) {
    return map.pixels[(int64_t(face) * size + y) * size + x].depth;
  };
  constexpr double Empty = std::numeric_limits<double>::max();
  int slabFace = -1;
  for (int face = 0; face < 6; ++face)
    if (depth(face, mid, mid) < Empty) {
      EXPECT_EQ(slabFace, -1) << "a second face sees the slab";
      slabFace = face;
    }
  ASSERT_NE(slabFace, -1);
  const double expected[] = {0.6 * Empty, 0.8 * Empty, Empty};
  for (int ring = 0; ring < 3; ++ring) {
    // The middle of each edge of the slab's face, `ring` pixels beyond it.
    const int beyond[4][2] = {{-1 - ring, mid}, {size + ring, mid}, {mid, -1 - ring}, {mid, size + ring}};
    for (const auto& [x, y] : beyond) {
      int face, nx, ny;
      ASSERT_TRUE(CubeShadowMapNeighbour(size, slabFace, x, y, face, nx, ny));
      EXPECT_NEAR(depth(face, nx, ny), expected[ring], 1e-12 * Empty)
          << "ring " << ring << " at " << x << ", " << y;
    }
  }
}

namespace {
// A scene made while the calling thread is pinned to its first processor:
// its engine starts one worker.
std::unique_ptr<RenderScene> OnOneProcessor() {
  cpu_set_t all, one;
  sched_getaffinity(0, sizeof(all), &all);
  int cpu = 0;
  while (!CPU_ISSET(cpu, &all)) ++cpu;
  CPU_ZERO(&one);
  CPU_SET(cpu, &one);
  sched_setaffinity(0, sizeof(one), &one);
  auto scene = std::make_unique<RenderScene>(Side, Side);
  sched_setaffinity(0, sizeof(all), &all);
  return scene;
}
}  // namespace

TEST_F(ShadowMapRenderTest, MapsComeOutTheSameWhateverWorkerDrawsWhichTile) {
  // Every process of a render farm draws its own maps, on its own number of
  // workers: the pixels must agree to the bit.
  const auto drawMaps = [this] {
    Box(3, -1, 5, 1, 2);
    Light(1, {4, 0, 10}, {0, 0, 0});
    Light(0, {0, 0, 6}, {0, 0, 0});
    scene->Options().SetRayTracedSoftShadows(true);
    scene->Update();
    std::vector<double> values;
    const auto keep = [&](const SW_PIXEL_G64R64F* pixels, size_t count) {
      for (size_t i = 0; i < count; ++i)
        values.insert(values.end(), {pixels[i].depth, pixels[i].depthSquared});
    };
    for (const auto& [number, row] : access.ShadowMapIndexSingle()) {
      const SWShadowMap* map = access.ShadowMapsSingle()[row];
      keep(map->pixels, size_t(map->width) * map->height);
    }
    for (const auto& [number, row] : access.ShadowMapIndexCube()) {
      const SWCubeShadowMap* map = access.ShadowMapsCube()[row];
      keep(map->pixels, size_t(map->faces) * map->width * map->height);
    }
    return values;
  };
  const std::vector<double> shared = drawMaps();
  // A flat map of 256 x 256 and a cube of 6 x 256 x 256.
  ASSERT_EQ(shared.size(), 2u * 7 * 256 * 256);
  scene = OnOneProcessor();
  access = EngineTestAccess(scene->engine);
  ASSERT_EQ(access.WorkerCount(), 1u);
  Populate();
  const std::vector<double> alone = drawMaps();
  ASSERT_EQ(alone.size(), shared.size());
  EXPECT_EQ(std::memcmp(shared.data(), alone.data(), shared.size() * sizeof(double)), 0);
}

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "EngineTestAccess.h"
#include "RenderScene.h"
#include "TestDoubles.h"

namespace {

// A closed room of 20 x 20 x 10 with its floor at z = 0, diffuse 50, and
// photon mapping on under custom lighting with 100 000 photons a list.
// Updates run with a distributed server, which makes the shooting one
// seeded job: every run repeats, and none waits on the system source.
struct PhotonRoom {
  PhotonRoom() {
    scene.Material("Room", [](TEXTURE_LINK& l) { l.SetDiffuseLevel(50); });
    Room();
    MODE_RENDER_OPTIONS& o = scene.Options();
    o.SetCustomLighting(true);
    o.SetPhotonMapping(true);
    o.SetIndirectLighting(true);
    o.SetPhotonLevel(1);
    o.SetDisplayShadows(false);
  }

  void Room() {
    scene.Quad("Room", {-10, -10, 0}, {10, -10, 0}, {10, 10, 0}, {-10, 10, 0});
    scene.Quad("Room", {-10, -10, 10}, {-10, 10, 10}, {10, 10, 10}, {10, -10, 10});
    scene.Quad("Room", {-10, -10, 0}, {-10, 10, 0}, {-10, 10, 10}, {-10, -10, 10});
    scene.Quad("Room", {10, -10, 0}, {10, -10, 10}, {10, 10, 10}, {10, 10, 0});
    scene.Quad("Room", {-10, -10, 0}, {-10, -10, 10}, {10, -10, 10}, {10, -10, 0});
    scene.Quad("Room", {-10, 10, 0}, {10, 10, 0}, {10, 10, 10}, {-10, 10, 10});
  }
  void Light(SCENE_VERTEX_XYZ position) {
    SCENE_LIGHT_DEFINITION light{};
    light.position = position;
    light.color = 0x00FFFFFF;
    light.flags = LightEnabled | LightDiffuse;
    light.intensity = 10;
    scene.Lights()->AddLightInstance(scene.Lights()->AddLightDefinition(light), nullptr);
  }
  void RepeatableUpdate() {
    scene.engine->SetRenderDistributedServerInterface(&server);
    scene.Update();
    scene.engine->SetRenderDistributedServerInterface(nullptr);
  }
  const std::vector<SWPhoton>& Photons(bool direct) { return access.Photons(direct); }

  RenderScene scene{16, 16};
  EngineTestAccess access{scene.engine};
  ThreadCountServer server{2};
};

class PhotonShooting : public ::testing::Test, protected PhotonRoom {};

size_t StoredRows(const std::vector<SWPhoton>& photons) {
  size_t stored = 0;
  for (const SWPhoton& photon : photons) {
    const SCENE_VERTEX_XYZ_64 d = photon.direction;
    if (d.x != 0.0 || d.y != 0.0 || d.z != 0.0) ++stored;
  }
  return stored;
}

}  // namespace

TEST_F(PhotonShooting, ADistributedRunRepeatsAndEveryPhotonCarriesItsShare) {
  const SCENE_VERTEX_XYZ_64 bulb = {1.0, 2.0, 5.0};
  Light({1, 2, 5});
  RepeatableUpdate();
  const std::vector<SWPhoton> direct = Photons(true), indirect = Photons(false);
  // Half the light goes on at each surface, so both lists fill.
  ASSERT_EQ(direct.size() + indirect.size(), 200000u);
  EXPECT_EQ(StoredRows(direct) + StoredRows(indirect), 200000u);

  // In a closed room every photon lands on its first surface straight from
  // the bulb, with the same share of the light, and each bounce halves it.
  const double share = SCENE_VERTEX_XYZ_64(direct[0].energy).x;
  EXPECT_GT(share, 0.0);
  for (const SWPhoton& photon : direct) {
    const SCENE_VERTEX_XYZ_64 p = photon.position, d = photon.direction, e = photon.energy;
    SCENE_VERTEX_XYZ_64 from = {p.x - bulb.x, p.y - bulb.y, p.z - bulb.z};
    GetUnitVector(&from, &from);
    ASSERT_TRUE(std::fabs(d.x - from.x) + std::fabs(d.y - from.y) + std::fabs(d.z - from.z) < 1e-6);
    ASSERT_TRUE(e.x == share && e.y == share && e.z == share);
  }
  for (const SWPhoton& photon : indirect) {
    const double e = SCENE_VERTEX_XYZ_64(photon.energy).z;
    ASSERT_TRUE(e == share * 0.5 || e == share * 0.25) << e / share;
  }

  // Again in this engine, and in another one, as on another machine of a
  // render farm.
  PhotonRoom other;
  other.Light({1, 2, 5});
  for (PhotonRoom* room : {static_cast<PhotonRoom*>(this), &other}) {
    room->RepeatableUpdate();
    ASSERT_EQ(room->Photons(true).size() + room->Photons(false).size(), 200000u);
    EXPECT_EQ(std::memcmp(room->Photons(true).data(), direct.data(), direct.size() * sizeof(SWPhoton)), 0);
    EXPECT_EQ(std::memcmp(room->Photons(false).data(), indirect.data(), indirect.size() * sizeof(SWPhoton)),
              0);
  }
  // Without bounces photons stop at their first surface.
  scene.Options().SetNumberOfIndirectBounces(0);
  RepeatableUpdate();
  EXPECT_EQ(StoredRows(Photons(true)), 100000u);
  EXPECT_EQ(StoredRows(Photons(false)), 0u);
}

TEST_F(PhotonShooting, AGlassPaneStoresAndLetsHalfTheLightThrough) {
  // A pane of opacity 50 and diffuse 50 across the room at z = 8, under the
  // bulb at z = 9. Photons that cross it keep their bounce, so below it they
  // are still direct ones, with half the energy of those above.
  scene.Material("Glass", [&](TEXTURE_LINK& l) {
    l.SetOpacityLevel(50);
    l.SetDiffuseLevel(50);
  });
  scene.Quad("Glass", {-10, -10, 8}, {10, -10, 8}, {10, 10, 8}, {-10, 10, 8});
  Light({0, 0, 9});
  RepeatableUpdate();
  size_t onPane = 0, onFloor = 0;
  double above = 0.0, below = 0.0;
  for (const SWPhoton& photon : Photons(true)) {
    const SCENE_VERTEX_XYZ_64 p = photon.position;
    const double energy = SCENE_VERTEX_XYZ_64(photon.energy).y;
    if (std::fabs(p.z - 8.0) < 1e-6) ++onPane;
    if (p.z > 8.5) above = energy;
    if (std::fabs(p.z) < 1e-6) ++onFloor, below = energy;
  }
  EXPECT_GT(onPane, 0u);
  ASSERT_GT(onFloor, 0u);
  ASSERT_GT(above, 0.0);
  EXPECT_EQ(below, above * 0.5);
}

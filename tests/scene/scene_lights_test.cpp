#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "scene/DefaultLights.h"
#include "scene/LightSets.h"
#include "RenderScene.h"

using namespace scene_test;

namespace {

std::vector<int32_t> Order(const RTLightTable& table) {
  std::vector<int32_t> numbers;
  for (const RTRendererLight* light : table.lights) numbers.push_back(static_cast<int32_t>(light->number));
  return numbers;
}

std::array<float, 3> Point(const SCENE_VERTEX_XYZ& p) {
  return {p.x, p.y, p.z};
}

SCENE_CAMERA_INFO Camera(float x, float y, float z) {
  return {{x, y, z}, {0, 0, 0}, 45.0f, 10.0f, 0.0f};
}

}  // namespace

TEST(LightTable, KeepsInsertionOrderUntilTheFirstRemovalAndNumberOrderAfter) {
  RTLightTable table;
  SCENE_LIGHT_DEFINITION d{};
  d.position = {1, 1, 1};
  d.axisU = {1, 0, 0};
  SCENE_LIGHT_INSTANCE instance{0, &d, Translation(1, 2, 3)};
  for (int32_t number : {5, 2, 9, 7}) {
    instance.number = number;
    table.InsertOrUpdateLight(&instance);
  }
  EXPECT_EQ(Order(table), (std::vector<int32_t>{5, 2, 9, 7}));
  RTRendererLight* two = table.FindLight(2);
  ASSERT_NE(two, nullptr);
  // Position and target move with the instance; the area axes do not.
  EXPECT_EQ(Point(two->definition.position), (std::array<float, 3>{2, 3, 4}));
  EXPECT_EQ(Point(two->definition.target), (std::array<float, 3>{1, 2, 3}));
  EXPECT_EQ(Point(two->definition.axisU), (std::array<float, 3>{1, 0, 0}));

  // An update keeps the record's address and clears its shadow fields.
  two->shadowNear = 4.0;
  d.color = 0x123456;
  instance.number = 2;
  table.InsertOrUpdateLight(&instance);
  EXPECT_EQ(table.FindLight(2), two);
  EXPECT_EQ(uint32_t{two->definition.color}, 0x123456u);
  EXPECT_EQ(double{two->shadowNear}, 0.0);

  table.RemoveLight(9);
  EXPECT_EQ(Order(table), (std::vector<int32_t>{2, 5, 7}));
  EXPECT_EQ(table.FindLight(9), nullptr);
}

TEST(LightSets, DrainIntoTheTableWithTheAlternateLightLastAndMarkEveryChangeDirty) {
  SCENE_LIGHTS host;
  SCENE_LIGHT_DEFINITION d{};
  d.position = {1, 0, 0};
  const int definition = host.AddLightDefinition(d);
  const int a = host.AddLightInstance(definition, nullptr);
  const int b = host.AddLightInstance(definition, nullptr);
  RTLightTable table;
  std::set<int32_t> modified{a, b}, removed, dirty;
  DrainModifiedLights(&table, nullptr, modified, dirty);  // no host lights: the set waits
  EXPECT_EQ(modified.size(), 2u);

  // The alternate light stands in for b over the host's record, but only
  // while it is active.
  RTRendererLight alternate{};
  alternate.number = b;
  alternate.definition.position = {0, 0, 9};
  DrainModifiedLights(&table, &host, modified, dirty);
  ApplyAlternateLight(&table, &alternate, false, dirty);
  EXPECT_EQ(Point(table.FindLight(b)->definition.position), (std::array<float, 3>{1, 0, 0}));
  ApplyAlternateLight(&table, &alternate, true, dirty);
  EXPECT_TRUE(modified.empty());
  EXPECT_EQ(dirty, (std::set<int32_t>{a, b}));
  EXPECT_EQ(Point(table.FindLight(b)->definition.position), (std::array<float, 3>{0, 0, 9}));

  // A light the host dropped is noted as lost, then removed and dirty; a
  // modified number whose instance is gone is dropped without a trace.
  host.RemoveLightInstance(a);
  dirty.clear();
  NoteLostLights(&table, &host, removed);
  EXPECT_EQ(removed, (std::set<int32_t>{a}));
  modified.insert(a);
  DrainRemovedLights(&table, removed, dirty);
  DrainModifiedLights(&table, &host, modified, dirty);
  EXPECT_TRUE(removed.empty() && modified.empty());
  EXPECT_EQ(Order(table), (std::vector<int32_t>{b}));
  EXPECT_EQ(dirty, (std::set<int32_t>{a}));
}

TEST(DefaultLights, SetUpFollowTheCameraAndTheUpwardTestSeesTheRoof) {
  RenderScene scene(4, 4);
  scene.Material("Roof", [](TEXTURE_LINK&) {});
  scene.Mesh("Roof", {Vertex(-5, -5, 10), Vertex(5, -5, 10), Vertex(0, 5, 10)}, {0, 1, 2});
  scene.Update();
  // The eye light at the camera, y negated. (The levels of both lights and
  // the sun's direction are tests/lighting's, in a picture.)
  RTRendererLight lights[2] = {};
  SetDefaultLights(lights, Camera(3, 4, 0));  // world (3, -4, 0): under the roof; (3, 4) is not
  EXPECT_EQ(Point(lights[0].definition.position), (std::array<float, 3>{3, -4, 0}));
  EXPECT_TRUE(TestCameraUnderCover(*scene.engine, lights[0].definition.position));
  EXPECT_FALSE(TestCameraUnderCover(*scene.engine, {3, 4, 0}));
  EXPECT_FALSE(TestCameraUnderCover(*scene.engine, {0, 0, 20}));  // above the roof

  EXPECT_FALSE(FollowCameraWithDefaultLight(lights, Camera(3, 4, 0)));  // not moved
  EXPECT_TRUE(FollowCameraWithDefaultLight(lights, Camera(0, 0, 20)));
  EXPECT_EQ(Point(lights[0].definition.position), (std::array<float, 3>{0, 0, 20}));

  // The headlight at the camera with its level; at level 0 only disabled.
  RTRendererLight headlight{};
  headlight.definition.flags = LightDiffuse;
  MODE_RENDER_OPTIONS options;
  options.SetHeadlight(true);
  for (int level : {15, 0}) {
    options.SetHeadlightLightLevel(level);
    SetHeadlight(headlight, options, Camera(1, 2, 3 + level));
    EXPECT_EQ(+headlight.definition.flags, LightDiffuse | (level ? LightEnabled : 0));
    EXPECT_EQ(+headlight.definition.intensity, 15);
    EXPECT_EQ(Point(headlight.definition.position), (std::array<float, 3>{1, -2, 18}));
  }
}

#include <gtest/gtest.h>

#include <vector>

#include "AccelTestAccess.h"
#include "SceneTestAccess.h"
#include "KDTree.h"
#include "LightTable.h"
#include "SWMeshTable.h"
#include "SWShadowMap.h"

using namespace scene_test;

namespace {

std::vector<int32_t> Order(const RTLightTable& table) {
  std::vector<int32_t> numbers;
  for (const RTRendererLight* light : table.lights) numbers.push_back(static_cast<int32_t>(light->number));
  return numbers;
}

void ExpectPoint(const SCENE_VERTEX_XYZ& p, float x, float y, float z) {
  const SCENE_VERTEX_XYZ copy = p;
  EXPECT_EQ(copy.x, x);
  EXPECT_EQ(copy.y, y);
  EXPECT_EQ(copy.z, z);
}

void ExpectLight(const RTRendererLight& light, int number, int type, int flags, int intensity) {
  const RTRendererLight copy = light;
  EXPECT_EQ(int{copy.number}, number);
  EXPECT_EQ(+copy.definition.type, type);
  EXPECT_EQ(uint32_t{copy.definition.color}, 0x00FFFFFFu);
  EXPECT_EQ(+copy.definition.flags, flags);
  EXPECT_EQ(+copy.definition.intensity, intensity);
}

SCENE_CAMERA_INFO Camera(float x, float y, float z) {
  return {{x, y, z}, {0, 0, 0}, 45.0f, 10.0f, 0.0f};
}

class SceneLights : public ::testing::Test {
 protected:
  void SetUp() override { engine->Initialize("", "", "", "", "", ""); }
  void TearDown() override { engine->Release(); }

  RT_RENDER_ENGINE* engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
  SceneTestAccess access{engine};
};

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
  ExpectPoint(two->definition.position, 2, 3, 4);  // position and target move
  ExpectPoint(two->definition.target, 1, 2, 3);
  ExpectPoint(two->definition.axisU, 1, 0, 0);  // the area axes do not

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
  EXPECT_EQ(table.GetLight(1), table.FindLight(5));
  EXPECT_EQ(table.GetLight(3), nullptr);
  EXPECT_EQ(table.FindLight(9), nullptr);
  SCENE_LIGHT_INSTANCE bare{11, nullptr, Translation(0, 0, 0)};
  table.InsertOrUpdateLight(&bare);  // no definition: ignored
  EXPECT_EQ(table.lights.size(), 3u);
}

TEST_F(SceneLights, LightSetsDrainIntoTheTableWithTheAlternateLightLast) {
  SCENE_LIGHTS host;
  SCENE_LIGHT_DEFINITION d{};
  d.position = {1, 0, 0};
  const int definition = host.AddLightDefinition(d);
  const int a = host.AddLightInstance(definition, nullptr);
  const int b = host.AddLightInstance(definition, nullptr);
  engine->ModifyLightInstance(nullptr);
  EXPECT_TRUE(access.ModifiedLights().empty());
  engine->ModifyLightInstance(host.GetLightInstance(a));
  engine->ModifyLightInstance(host.GetLightInstance(b));
  engine->DrainModifiedLights(nullptr);  // no host lights: the set waits
  EXPECT_EQ(access.ModifiedLights().size(), 2u);

  // The alternate light overrides b and wins over the host's record.
  d.position = {0, 0, 8};
  SCENE_LIGHT_INSTANCE replacement{b, &d, Translation(0, 0, 1)};
  engine->SetAlternateLightInstance(&replacement);
  EXPECT_TRUE(access.Flags().IsSet(AlternateLightActive));
  ExpectPoint(access.AlternateLight().definition.position, 0, 0, 9);
  engine->DrainModifiedLights(&host);
  engine->ApplyAlternateLight();
  EXPECT_TRUE(access.ModifiedLights().empty());
  EXPECT_EQ(access.DirtyShadowLights(), (std::set<int32_t>{a, b}));
  ExpectPoint(access.Lights().FindLight(b)->definition.position, 0, 0, 9);

  // Ending the alternate queues b, so the next update restores the host's.
  engine->SetAlternateLightInstance(nullptr);
  EXPECT_FALSE(access.Flags().IsSet(AlternateLightActive));
  EXPECT_EQ(access.ModifiedLights(), (std::set<int32_t>{b}));
  engine->DrainModifiedLights(&host);
  engine->ApplyAlternateLight();
  ExpectPoint(access.Lights().FindLight(b)->definition.position, 1, 0, 0);

  // A light the host dropped is noted as lost, then removed and dirty; a
  // modified number whose instance is gone is dropped without a trace.
  host.RemoveLightInstance(a);
  access.DirtyShadowLights().clear();
  engine->NoteLostLights(&host);
  EXPECT_EQ(access.RemovedLights(), (std::set<int32_t>{a}));
  access.ModifiedLights().insert(a);
  engine->DrainRemovedLights();
  engine->DrainModifiedLights(&host);
  EXPECT_TRUE(access.RemovedLights().empty() && access.ModifiedLights().empty());
  EXPECT_EQ(Order(access.Lights()), (std::vector<int32_t>{b}));
  EXPECT_EQ(access.DirtyShadowLights(), (std::set<int32_t>{a}));
}

TEST_F(SceneLights, DefaultLightsHeadlightAndTheUpwardTestFollowTheCamera) {
  SCENE_GRAPH scene;
  SCENE_GRAPH_NODE_INTERFACE* root = scene.GetSceneGraphNode("Scene Graph Root");
  root->CreateNodeGroupData()->SetGroupMaterialID("*");  // the initial root material
  root->AddChildNode(MeshNode("roof", {Vertex(-5, -5, 10), Vertex(5, -5, 10), Vertex(0, 5, 10)}));
  access.Walk(0, root);
  AccelTestAccess(engine).BuildTree(0);

  engine->SetDefaultLights(Camera(3, 4, 0));  // world (3, -4, 0): under the roof; (3, 4) is not
  ExpectLight(access.DefaultLight(0), 0, 0, LightEnabled | LightDiffuse, 7);
  ExpectLight(access.DefaultLight(1), 1, 2, LightEnabled | LightDiffuse | LightCastsShadows, 20);
  ExpectPoint(access.DefaultLight(0).definition.position, 3, -4, 0);
  ExpectPoint(access.DefaultLight(1).definition.position, -50, -50, 100);
  ExpectPoint(access.DefaultLight(1).definition.target, 0, 0, 0);
  EXPECT_TRUE(access.Flags().IsSet(CameraUnderCover));
  engine->FollowCameraWithDefaultLight(Camera(0, 0, 20));  // above the roof
  ExpectPoint(access.DefaultLight(0).definition.position, 0, 0, 20);
  EXPECT_FALSE(access.Flags().IsSet(CameraUnderCover));

  MODE_RENDER_OPTIONS options;
  options.SetHeadlight(true);
  options.SetHeadlightLightLevel(15);
  engine->SetHeadlight(options, Camera(1, 2, 3));
  ExpectLight(access.Headlight(), 0, 0, LightEnabled | LightDiffuse, 15);
  ExpectPoint(access.Headlight().definition.position, 1, -2, 3);
  options.SetHeadlightLightLevel(0);
  engine->SetHeadlight(options, Camera(4, 5, 6));
  ExpectLight(access.Headlight(), 0, 0, LightDiffuse, 15);  // disabled, and otherwise left as it was
  ExpectPoint(access.Headlight().definition.position, 1, -2, 3);
}

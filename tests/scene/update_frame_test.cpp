#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "host/BrindlexTexture.h"
#include "EngineTestAccess.h"
#include "LogCapture.h"
#include "textures/SWTexture.h"
#include "SceneTestAccess.h"
#include "TextureTestAccess.h"
#include "accel/KDTree.h"
#include "scene/LightTable.h"
#include "scene/SWMeshTable.h"
#include "shadows/SWShadowMap.h"

using namespace scene_test;

namespace {

class UpdateFrameTest : public ::testing::Test {
 protected:
  void SetUp() override {
    engine->Initialize(folder.File("").c_str(), "", "", "", nullptr, nullptr);
    materials = project.CreateMaterialRoot(0);
    SetCamera({0, -20, 10});
  }
  void TearDown() override { engine->Release(); }

  // A 2 x 2 picture of one grey, written where the engine looks for textures.
  void WritePicture(const char* name, uint8_t shade) {
    folder.Picture(name, 2, 2, 32, [=](int, int, int) { return shade; });
  }
  void SetCamera(SCENE_VERTEX_XYZ eye) {
    view->GetViewFileState()->SetCameraInfo({eye, {0, 0, 0}, 45, 10, 0});
  }
  MODE_RENDER_OPTIONS& Options() { return view->GetRenderOptions(); }
  void Update(int64_t tag) {
    engine->UpdateFrame(&project, view, project.GetSceneGraph(), project.GetSceneLights(), nullptr, nullptr,
                        0, tag);
  }
  MATERIAL_3D_NODE* TexturedMaterial(const char* id, const char* file, bool transparent) {
    MATERIAL_3D_NODE* node = Material(materials, id);
    TEXTURE_LINK link;
    link.SetTextureLinkFullFileName(file);
    link.SetTransparent(transparent);
    node->SetTextureLink(&link);
    return node;
  }
  void AddMesh(const char* material, bool rotateToCamera = false) {
    SCENE_GRAPH_NODE* group = Group(root, material, material);
    group->GetNodeGroupData()->SetGroupRotateToCamera(rotateToCamera);
    group->AddChildNode(MeshNode("mesh"));
  }
  uint32_t TextureRowOf(size_t materialRow) { return access.SWMaterials()[materialRow].textureIndex; }

  TextureFolder folder;
  SceneTestEngine* engine = new SceneTestEngine();
  EngineTestAccess access{engine};
  ENVIRONMENT_3D_PROJECT project;
  ENVIRONMENT_3D_VIEW* view = project.GetView(0);
  SCENE_GRAPH_NODE_INTERFACE* root = project.GetSceneGraph()->GetSceneGraphNode("Scene Graph Root");
  MATERIAL_3D_NODE* materials = nullptr;
};

}  // namespace

TEST_F(UpdateFrameTest, MissingHostObjectsOnlyLog) {
  LogCapture log;
  engine->UpdateFrame(nullptr, view, project.GetSceneGraph(), nullptr, nullptr, nullptr, 0, 5);
  engine->UpdateFrame(&project, view, nullptr, nullptr, nullptr, nullptr, 0, 6);
  EXPECT_EQ(access.LastFrameTag(), 0);
  std::vector<std::string> lines = log.Lines();
  ASSERT_EQ(lines.size(), 2u);
  for (const std::string& line : lines) {
    EXPECT_EQ(line.rfind("UpdateFrame Time = ", 0), 0u) << line;
    EXPECT_EQ(line.substr(line.size() - 8), " seconds") << line;
  }
}

TEST_F(UpdateFrameTest, CameraMoveRebuildsOnlyTheRotateToCameraPair) {
  Material(materials, "Wall");
  AddMesh("Wall");
  AddMesh("Wall", true);
  Update(1);
  EXPECT_FALSE(access.Flags().IsSet(RebuildScene));
  ASSERT_EQ(access.MeshTable(0).instances.size(), 1u);
  ASSERT_EQ(access.MeshTable(1).instances.size(), 1u);
  ASSERT_FALSE(access.Tree(0).nodes.empty());
  const std::vector<KDNode> nodes = access.Tree(0).nodes;
  const KDNode* nodeStorage = access.Tree(0).nodes.data();
  // A marker that only a rebuild of the ordinary table would wipe out.
  access.MeshTable(0).transforms.push_back(access.MeshTable(0).transforms[0]);
  const SCENE_VERTEX_XYZ before = access.MeshTable(1).meshes[0].vertices[1].position;

  SetCamera({20, 0, 10});
  Update(1);
  EXPECT_EQ(access.MeshTable(0).transforms.size(), 2u);
  EXPECT_EQ(access.Tree(0).nodes.data(), nodeStorage);
  ASSERT_EQ(access.Tree(0).nodes.size(), nodes.size());
  for (size_t i = 0; i < nodes.size(); ++i) {
    EXPECT_EQ(uint32_t(access.Tree(0).nodes[i].childAndAxis), uint32_t(nodes[i].childAndAxis));
    EXPECT_EQ(uint32_t(access.Tree(0).nodes[i].splitOrCount), uint32_t(nodes[i].splitOrCount));
  }
  // The billboard turned to the new camera.
  const SCENE_VERTEX_XYZ after = access.MeshTable(1).meshes[0].vertices[1].position;
  EXPECT_FALSE(before.x == after.x && before.y == after.y);

  engine->ModifyAllMaterialTypes();
  Update(1);
  EXPECT_EQ(access.MeshTable(0).transforms.size(), 1u);  // the full rebuild came back
}

TEST_F(UpdateFrameTest, LightsFollowTheHostAcrossTagsAndShutDownModel) {
  SCENE_LIGHTS* lights = project.GetSceneLights();
  SCENE_LIGHT_DEFINITION bulb{};
  bulb.flags = LightEnabled;
  const int definition = lights->AddLightDefinition(bulb);
  const int first = lights->AddLightInstance(definition, nullptr);
  const int second = lights->AddLightInstance(definition, nullptr);
  Update(1);
  EXPECT_EQ(access.Lights().lights.size(), 2u);

  lights->RemoveLightInstance(second);
  Update(1);  // the same tag asks for no lost lights
  EXPECT_EQ(access.Lights().lights.size(), 2u);
  Update(2);
  ASSERT_EQ(access.Lights().lights.size(), 1u);
  EXPECT_EQ(int(access.Lights().lights[0]->number), first);

  engine->ShutDownModel();
  EXPECT_TRUE(access.Lights().lights.empty());
  Update(2);  // unchanged tag, yet everything comes back
  EXPECT_EQ(access.Lights().lights.size(), 1u);
  EXPECT_FALSE(access.Flags().IsSet(RebuildScene));
}

TEST_F(UpdateFrameTest, TexturesAreSharedKeptApartByTransparencyAndRowsReused) {
  WritePicture("wood.png", 100);
  WritePicture("glass.png", 200);
  WritePicture("sky.png", 50);
  TexturedMaterial("Floor", "wood.png", false);
  TexturedMaterial("Table", "wood.png", false);
  MATERIAL_3D_NODE* pane = TexturedMaterial("Pane", "wood.png", true);
  TexturedMaterial("Lost", "missing.png", false);
  for (const char* id : {"Floor", "Table", "Pane", "Lost"}) AddMesh(id);
  Options().SetUseBackgroundTexture(true);
  Options().SetBackgroundTextureName("sky.png");
  Update(1);

  ASSERT_EQ(access.SWMaterials().size(), 4u);
  EXPECT_EQ(TextureRowOf(0), TextureRowOf(1));  // one file, loaded once
  EXPECT_NE(TextureRowOf(2), TextureRowOf(0));  // transparent use: its own row
  EXPECT_EQ(TextureRowOf(3), 0xFFFFFFFFu);
  ASSERT_EQ(access.Textures().size(), 3u);
  const uint32_t sky = access.BackgroundTexture();
  ASSERT_LT(sky, 3u);
  const uint32_t paneRow = TextureRowOf(2);

  // The pane now shows glass: the transparent wood goes and its row is reused.
  TEXTURE_LINK glass = *pane->GetTextureLink();
  glass.SetTextureLinkFullFileName("glass.png");
  pane->SetTextureLink(&glass);
  // The background is named in other letters and its file is gone: it is
  // the same picture and must not be read again.
  Options().SetBackgroundTextureName("SKY.PNG");
  std::remove(folder.File("sky.png").c_str());
  engine->ModifyAllMaterialTypes();
  Update(1);
  EXPECT_EQ(TextureRowOf(2), paneRow);
  EXPECT_EQ(access.Textures()[paneRow]->name, folder.File("glass.png"));
  EXPECT_EQ(access.TransparentTextureIndex().count(folder.File("wood.png")), 0u);
  EXPECT_EQ(access.BackgroundTexture(), sky);
  ASSERT_NE(access.Textures()[sky], nullptr);
  EXPECT_EQ(access.Textures().size(), 3u);

  // No background and no pane any more: their rows are freed, left null.
  Options().SetUseBackgroundTexture(false);
  pane->SetTextureLink(nullptr);
  engine->ModifyAllMaterialTypes();
  Update(1);
  EXPECT_EQ(access.BackgroundTexture(), 0xFFFFFFFFu);
  EXPECT_EQ(access.Textures()[sky], nullptr);
  EXPECT_EQ(access.Textures()[paneRow], nullptr);
  EXPECT_NE(access.Textures()[TextureRowOf(0)], nullptr);

  // A background named with no file, or a file that is no picture, leaves
  // the plain colour, never a row that another texture takes over next.
  std::FILE* broken = std::fopen(folder.File("broken.png").c_str(), "wb");
  ASSERT_NE(broken, nullptr);
  std::fputs("not a picture", broken);
  std::fclose(broken);
  for (const char* background : {"missing.png", "broken.png"}) {
    Options().SetUseBackgroundTexture(true);
    Options().SetBackgroundTextureName(background);
    TEXTURE_LINK link;
    link.SetTextureLinkFullFileName(background[0] == 'm' ? "glass.png" : "wood.png");
    pane->SetTextureLink(&link);
    engine->ModifyAllMaterialTypes();
    Update(1);
    EXPECT_EQ(access.BackgroundTexture(), 0xFFFFFFFFu) << background;
    ASSERT_LT(TextureRowOf(2), access.Textures().size());
    EXPECT_NE(access.Textures()[TextureRowOf(2)], nullptr);
  }
}

TEST_F(UpdateFrameTest, SwitchingToDefaultLightingWithoutAModelChangeLightsTheScene) {
  Material(materials, "Wall");
  AddMesh("Wall");
  Options().SetCustomLighting(true);
  Update(1);
  Options().SetCustomLighting(false);
  Update(1);  // the same tag and no notification: no rebuild
  // Both default lights are on; the eye light stands at the camera, y negated.
  const SCENE_VERTEX_XYZ eye = engine->DefaultLight(0).definition.position;
  EXPECT_TRUE(engine->DefaultLight(0).definition.flags & engine->DefaultLight(1).definition.flags &
              LightEnabled);
  EXPECT_TRUE(eye.x == 0.0f && eye.y == 20.0f && eye.z == 10.0f);
}

class ShadowChoiceTest : public UpdateFrameTest {
 protected:
  void SetUp() override {
    UpdateFrameTest::SetUp();
    view->GetViewFileState()->SetCameraInfo({{0, 0, 0}, {1, 0, 0}, 45, 10, 0});
    Options().SetCustomLighting(true);
    Options().SetDisplayShadows(true);
    Options().SetRayTracedSoftShadows(true);
    Options().SetCalculateAllShadows(false);
  }
  // Nine lights that cast shadows, numbered 0 to 8. With a map each, as if
  // all had been drawn, an update keeps the nearest eight.
  void ExpectTheLastLosesItsMap(const std::vector<SCENE_VERTEX_XYZ>& positions) {
    for (const SCENE_VERTEX_XYZ& position : positions) {
      SCENE_LIGHT_DEFINITION light{};
      light.type = 1;
      light.flags = LightEnabled | LightCastsShadows;
      light.position = position;
      project.GetSceneLights()->AddLightInstance(project.GetSceneLights()->AddLightDefinition(light),
                                                 nullptr);
    }
    Update(1);
    access.DirtyShadowLights().clear();
    for (int32_t number = 0; number < 9; ++number) {
      access.ShadowMapIndexSingle()[number] = number;
      access.ShadowMapsSingle().push_back(new SWShadowMap(1, 1));
    }
    Update(1);
    std::set<int32_t> kept;
    for (const auto& entry : access.ShadowMapIndexSingle()) kept.insert(entry.first);
    EXPECT_EQ(kept, (std::set<int32_t>{0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(access.ShadowMapsSingle()[8], nullptr);
    EXPECT_EQ(access.DirtyShadowLights(), std::set<int32_t>{8});
  }
};

// Nine lights at heights 10 to 18 over the camera: the farthest, 8, loses
// its map. Nine exactly 10 away: a tie never displaces a chosen light.
TEST_F(ShadowChoiceTest, TheFarthestOfNineLightsLosesItsMap) {
  ExpectTheLastLosesItsMap({{0, 0, 10},
                            {0, 0, 11},
                            {0, 0, 12},
                            {0, 0, 13},
                            {0, 0, 14},
                            {0, 0, 15},
                            {0, 0, 16},
                            {0, 0, 17},
                            {0, 0, 18}});
}
TEST_F(ShadowChoiceTest, ATieNeverDisplacesAChosenLight) {
  ExpectTheLastLosesItsMap({{10, 0, 0},
                            {-10, 0, 0},
                            {0, 10, 0},
                            {0, -10, 0},
                            {0, 0, 10},
                            {0, 0, -10},
                            {6, 8, 0},
                            {8, 6, 0},
                            {0, 6, 8}});
}

namespace {
struct AbortAtPoll {
  int polls = 0;
  int abortFrom = 0;  // 0: never
};
bool PollCounter(void* context) {
  auto* abort = static_cast<AbortAtPoll*>(context);
  ++abort->polls;
  return abort->abortFrom > 0 && abort->polls >= abort->abortFrom;
}
}  // namespace

TEST_F(UpdateFrameTest, AnAbortAtAnyPollLeavesARebuildForTheNextCall) {
  // A and C share a file, B has its own: an abort must cost neither row.
  WritePicture("wood.png", 100);
  WritePicture("stone.png", 150);
  const char* files[] = {"wood.png", "stone.png", "wood.png"};
  const char* ids[] = {"A", "B", "C"};
  for (int i = 0; i < 3; ++i) {
    TexturedMaterial(ids[i], files[i], false);
    AddMesh(ids[i]);
  }
  // Shadow maps poll after every pixel; their aborts are tested with them.
  Options().SetLighting(false);
  AbortAtPoll counter;
  engine->SetShouldAbortRenderFunction(&PollCounter, &counter);
  Update(1);
  const int polls = counter.polls;  // a whole rebuild, never aborted
  const size_t leaves = access.Tree(0).leafTriangles.size();
  ASSERT_GT(polls, 5);

  // The polls of an update without changes also follow a rebuild's end.
  counter = {0, 0};
  Update(1);
  const int tail = counter.polls;
  ASSERT_LT(tail, polls);
  for (int n = 1; n <= polls - tail; ++n) {
    engine->ModifyAllMaterialTypes();
    counter = {0, n};
    Update(100 + n);
    EXPECT_TRUE(access.Flags().IsSet(RebuildScene)) << "abort at poll " << n;
    EXPECT_EQ(access.LastFrameTag(), 100 + n);
    counter = {0, 0};
    Update(100 + n);
    EXPECT_FALSE(access.Flags().IsSet(RebuildScene)) << "after abort at poll " << n;
    EXPECT_EQ(access.Tree(0).leafTriangles.size(), leaves);
    EXPECT_EQ(TextureRowOf(0), TextureRowOf(2));
    for (size_t row = 0; row < 3; ++row) {
      const uint32_t texture = TextureRowOf(row);
      ASSERT_LT(texture, access.Textures().size()) << "abort at poll " << n;
      ASSERT_NE(access.Textures()[texture], nullptr) << "abort at poll " << n << ", material " << row;
      EXPECT_EQ(access.Textures()[texture]->name, folder.File(files[row]));
    }
  }
  engine->SetShouldAbortRenderFunction(nullptr, nullptr);
}

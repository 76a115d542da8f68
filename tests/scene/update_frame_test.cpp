#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <fstream>

#include "EngineTestAccess.h"
#include "SceneTestAccess.h"
#include "TextureTestAccess.h"

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

TEST_F(UpdateFrameTest, ACameraMoveTurnsTheBillboardsWithoutAModelChange) {
  Material(materials, "Wall");
  AddMesh("Wall", true);
  Update(1);
  ASSERT_EQ(access.MeshTable(1).instances.size(), 1u);
  const SCENE_VERTEX_XYZ before = access.MeshTable(1).meshes[0].vertices[1].position;
  SetCamera({20, 0, 10});
  Update(1);
  const SCENE_VERTEX_XYZ after = access.MeshTable(1).meshes[0].vertices[1].position;
  EXPECT_FALSE(before.x == after.x && before.y == after.y);
}

TEST_F(UpdateFrameTest, TexturesAreSharedKeptApartByTransparencyAndRowsReused) {
  for (const char* name : {"wood.png", "glass.png", "sky.png"}) WritePicture(name, 100);
  TexturedMaterial("Floor", "wood.png", false);
  TexturedMaterial("Table", "wood.png", false);
  MATERIAL_3D_NODE* pane = TexturedMaterial("Pane", "wood.png", true);
  TexturedMaterial("Lost", "missing.png", false);
  for (const char* id : {"Floor", "Table", "Pane", "Lost"}) AddMesh(id);
  const auto update = [&](const char* background, const char* paneFile) {
    Options().SetUseBackgroundTexture(background != nullptr);
    if (background) Options().SetBackgroundTextureName(background);
    TEXTURE_LINK link;
    link.SetTextureLinkFullFileName(paneFile);
    link.SetTransparent(true);
    pane->SetTextureLink(paneFile ? &link : nullptr);
    engine->ModifyAllMaterialTypes();
    Update(1);
  };
  update("sky.png", "wood.png");
  EXPECT_EQ(TextureRowOf(0), TextureRowOf(1));  // one file, loaded once
  EXPECT_NE(TextureRowOf(2), TextureRowOf(0));  // transparent use: its own row
  EXPECT_EQ(TextureRowOf(3), 0xFFFFFFFFu);
  ASSERT_EQ(access.Textures().size(), 3u);
  const uint32_t sky = access.BackgroundTexture(), paneRow = TextureRowOf(2);
  ASSERT_LT(sky, 3u);

  // The pane now shows glass: the transparent wood goes and its row is
  // reused. The background is named in other letters and its file is gone:
  // it is the same picture and must not be read again.
  std::remove(folder.File("sky.png").c_str());
  update("SKY.PNG", "glass.png");
  EXPECT_EQ(TextureRowOf(2), paneRow);
  EXPECT_EQ(access.Textures()[paneRow]->name, folder.File("glass.png"));
  EXPECT_EQ(access.BackgroundTexture(), sky);
  ASSERT_NE(access.Textures()[sky], nullptr);

  // No background and no pane any more: their rows are freed, left null.
  update(nullptr, nullptr);
  EXPECT_EQ(access.BackgroundTexture(), 0xFFFFFFFFu);
  EXPECT_EQ(access.Textures()[sky], nullptr);
  EXPECT_EQ(access.Textures()[paneRow], nullptr);
  EXPECT_NE(access.Textures()[TextureRowOf(0)], nullptr);

  // A background with no file, or a file that is no picture, leaves the
  // plain colour, never a row that the texture loaded next takes over.
  std::ofstream(folder.File("broken.png")) << "not a picture";
  for (const char* background : {"missing.png", "broken.png"}) {
    update(background, background[0] == 'm' ? "glass.png" : "wood.png");
    EXPECT_EQ(access.BackgroundTexture(), 0xFFFFFFFFu) << background;
    ASSERT_LT(TextureRowOf(2), access.Textures().size());
    EXPECT_NE(access.Textures()[TextureRowOf(2)], nullptr);
  }
}

// Nine lights that cast shadows, each with a map as if all had been drawn:
// an update keeps the nearest eight. At heights 10 to 18 over the camera
// the farthest, 8, loses its map; nine exactly 10 away keep the first
// eight, since a tie never displaces a chosen light.
TEST_F(UpdateFrameTest, TheNearestEightShadowLightsKeepTheirMaps) {
  const float cases[2][27] = {
      {0, 0, 10, 0, 0, 11, 0, 0, 12, 0, 0, 13, 0, 0, 14, 0, 0, 15, 0, 0, 16, 0, 0, 17, 0, 0, 18},
      {10, 0, 0, -10, 0, 0, 0, 10, 0, 0, -10, 0, 0, 0, 10, 0, 0, -10, 6, 8, 0, 8, 6, 0, 0, 6, 8}};
  for (const float* positions : cases) {
    SCENE_LIGHTS lights;
    for (int i = 0; i < 9; ++i) {
      SCENE_LIGHT_DEFINITION light{};
      light.type = 1;
      light.flags = LightEnabled | LightCastsShadows;
      light.position = {positions[3 * i], positions[3 * i + 1], positions[3 * i + 2]};
      lights.AddLightInstance(lights.AddLightDefinition(light), nullptr);
    }
    view->GetViewFileState()->SetCameraInfo({{0, 0, 0}, {1, 0, 0}, 45, 10, 0});
    Options().SetCustomLighting(true);
    const auto update = [&] {
      engine->UpdateFrame(&project, view, project.GetSceneGraph(), &lights, nullptr, nullptr, 0, 1);
    };
    update();
    access.DirtyShadowLights().clear();
    access.ShadowMapIndexSingle().clear();
    for (int32_t number = 0; number < 9; ++number) {
      access.ShadowMapIndexSingle()[number] = int32_t(access.ShadowMapsSingle().size());
      access.ShadowMapsSingle().push_back(new SWShadowMap(1, 1));
    }
    update();
    std::set<int32_t> kept;
    for (const auto& entry : access.ShadowMapIndexSingle()) kept.insert(entry.first);
    EXPECT_EQ(kept, (std::set<int32_t>{0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(access.ShadowMapsSingle().back(), nullptr);
    EXPECT_EQ(access.DirtyShadowLights(), std::set<int32_t>{8});
    engine->ShutDownModel();
  }
}

TEST_F(UpdateFrameTest, AnAbortAtAnyPollLeavesARebuildForTheNextCall) {
  // A and C share a file, B has its own: an abort must cost neither row.
  // Shadow maps poll after every pixel; their aborts are tested with them.
  for (const char* name : {"wood.png", "stone.png"}) WritePicture(name, 100);
  const char* files[] = {"wood.png", "stone.png", "wood.png"};
  for (const char* id : {"A", "B", "C"}) {
    TexturedMaterial(id, files[id[0] - 'A'], false);
    AddMesh(id);
  }
  Options().SetLighting(false);
  // Build workers poll too, so the count is atomic; `abortFrom` is set
  // only between updates.
  struct Polls {
    std::atomic<int> count{0};
    int abortFrom = 0;  // 0: never
    void Reset(int from) { count = 0, abortFrom = from; }
  } polls;
  engine->SetShouldAbortRenderFunction(
      [](void* context) {
        auto* p = static_cast<Polls*>(context);
        return ++p->count >= p->abortFrom && p->abortFrom > 0;
      },
      &polls);
  Update(1);
  const int rebuild = polls.count;
  const size_t leaves = access.Tree(0).leafTriangles.size();
  polls.Reset(0);
  Update(1);  // the polls of an update without changes follow a rebuild's
  const int unchanged = polls.count;
  ASSERT_LT(unchanged, rebuild);
  for (int n = 1; n <= rebuild - unchanged; ++n) {
    SCOPED_TRACE(n);
    engine->ModifyAllMaterialTypes();
    polls.Reset(n);
    Update(100 + n);
    EXPECT_TRUE(access.Flags().IsSet(RebuildScene));
    EXPECT_EQ(access.LastFrameTag(), 100 + n);
    polls.Reset(0);
    Update(100 + n);
    EXPECT_FALSE(access.Flags().IsSet(RebuildScene));
    EXPECT_EQ(access.Tree(0).leafTriangles.size(), leaves);
    EXPECT_EQ(TextureRowOf(0), TextureRowOf(2));
    for (size_t row = 0; row < 3; ++row) {
      ASSERT_LT(TextureRowOf(row), access.Textures().size());
      ASSERT_NE(access.Textures()[TextureRowOf(row)], nullptr) << "material " << row;
      EXPECT_EQ(access.Textures()[TextureRowOf(row)]->name, folder.File(files[row]));
    }
  }
  engine->SetShouldAbortRenderFunction(nullptr, nullptr);
}

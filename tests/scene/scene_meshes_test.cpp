#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "host/BrindlexViewMath.h"
#include "scene/MaterialTables.h"
#include "SceneTestAccess.h"

using namespace scene_test;

namespace {

std::array<float, 3> At(const SCENE_VERTEX& v) {
  const SCENE_VERTEX_XYZ p = v.position;
  return {p.x, p.y, p.z};
}
// Rotated positions, rounded to 1e-4.
std::array<float, 3> Rounded(const SCENE_VERTEX& v) {
  std::array<float, 3> p = At(v);
  for (float& c : p) c = std::round(c * 1e4f) / 1e4f + 0.0f;
  return p;
}
// Mesh, transform and material rows of each instance as three digits.
std::vector<uint32_t> Rows(const SWMeshTable& table) {
  std::vector<uint32_t> rows;
  for (const SWMeshInstance& i : table.instances)
    rows.push_back(i.meshIndex * 100 + i.transformIndex * 10 + i.materialIndex);
  return rows;
}
std::array<double, 3> Box(const SCENE_VERTEX_XYZ_64& box) {
  return {box.x, box.y, box.z};
}

class SceneMeshes : public ::testing::Test {
 protected:
  void SetUp() override {
    engine->Initialize("", "", "", "", "", "");
    Material(project.CreateMaterialRoot(0), "Brick");
    Material(project.GetMaterialRoot(0), "Glass", false);
    Material(project.CreateMaterialRoot(5), "Brick");
    ReplaceMaterialRoots(access.MaterialRoots(), &project, project.GetView(0), 0);
    brick = access.MaterialRoots()[0]->GetNodeThatControlsMaterial("Brick");
    ResetSceneBounds(access.SceneBox(0), access.SceneBox(1));
    root->CreateNodeGroupData()->SetGroupMaterialID("Brick");
  }
  void TearDown() override { engine->Release(); }

  // Root (Brick)
  //   T(10,0,0) > scale 2 > once                               placed once
  //   T(0,5,0), T(0,0,30), T(-3,0,0) > shared                  three placements
  //   Hidden (Glass, invisible) > twice                        not counted
  //   Unknown ("Nope") > lost, and Rescue (Brick) T(0,0,20) > twice
  void BuildScene() {
    const SCENE_MATRIX a = Translation(10, 0, 0);
    SCENE_MATRIX b = Translation(0, 0, 0);
    b.m[0] = b.m[5] = b.m[10] = 2.0f;
    Group(Group(root, "A", nullptr, &a), "B", nullptr, &b)->AddChildNode(MeshNode("once"));
    auto* shared = MeshNode("shared", {Vertex(0, 0, 0), Vertex(0, 0, 1), Vertex(1, 0, 0)});
    const SCENE_MATRIX p[3] = {Translation(0, 5, 0), Translation(0, 0, 30), Translation(-3, 0, 0)};
    for (const SCENE_MATRIX& m : p) Group(root, "P", nullptr, &m)->AddChildNode(shared);
    auto* twice = MeshNode("twice");
    Group(root, "Hidden", "Glass")->AddChildNode(twice);
    SCENE_GRAPH_NODE* unknown = Group(root, "Unknown", "Nope");
    unknown->AddChildNode(MeshNode("lost"));
    const SCENE_MATRIX up = Translation(0, 0, 20);
    Group(unknown, "Rescue", "Brick", &up)->AddChildNode(twice);
    access.Walk(0, root);
    access.Walk(1, root);
  }

  SceneTestEngine* engine = new SceneTestEngine();
  SceneTestEngine& access = *engine;
  ENVIRONMENT_3D_PROJECT project;
  SCENE_GRAPH scene;
  SCENE_GRAPH_NODE_INTERFACE* root = scene.GetSceneGraphNode("Scene Graph Root");
  const MATERIAL_3D_NODE* brick = nullptr;
};

}  // namespace

TEST_F(SceneMeshes, OrdinaryPassBakesSingleMeshesSharesRepeatedOnesDropsHiddenOnesAndLeadsHitsBack) {
  BuildScene();
  const SWMeshTable& table = access.MeshTable(0);
  ASSERT_EQ(table.meshes.size(), 3u);
  EXPECT_EQ(Rows(table),
            (std::vector<uint32_t>{0, 110, 120, 130, 200}));  // the hidden placement did not count
  EXPECT_EQ(At(table.meshes[0].vertices[1]), (std::array<float, 3>{12, 0, 0}));  // T(10,0,0) * scale 2
  EXPECT_EQ(At(table.meshes[1].vertices[1]), (std::array<float, 3>{0, 0, 1}));   // shared: local
  EXPECT_EQ(At(table.meshes[2].vertices[2]), (std::array<float, 3>{0, 1, 20}));
  ASSERT_EQ(table.transforms.size(), 4u);
  EXPECT_EQ(float{table.transforms[3].m[12]}, -3.0f);

  // Both Brick nodes share one row.
  ASSERT_EQ(access.SWMaterials().size(), 1u);
  EXPECT_EQ(MaterialOf(access.SWMaterials()[0]), brick);
  EXPECT_EQ(uint32_t{access.SWMaterials()[0].textureIndex}, 0xFFFFFFFFu);

  // Only the first placement of `shared` grows the box: not x = -3 of the
  // third, nor z = 31 of the second.
  EXPECT_EQ(Box(access.SceneBox(0)), (std::array<double, 3>{0, 0, 0}));
  EXPECT_EQ(Box(access.SceneBox(1)), (std::array<double, 3>{12, 5, 20}));
  EXPECT_TRUE(access.MeshTable(1).instances.empty());

  // Hits lead back to world vertices.
  SWHitSurface surface;
  auto resolve = [&](uint32_t tree, uint32_t instance, uint32_t triangle) {
    SWRayIntersectionResult hit{};
    hit.treeIndex = tree, hit.instanceIndex = instance, hit.triangleIndex = triangle;
    return ResolveHitSurface(&access.MeshTable(0), access.SWMaterials(), hit, surface);
  };
  ASSERT_EQ(resolve(0, 2, 0), SWHitSurfaceStatus::Resolved);  // shared under T(0,0,30)
  EXPECT_EQ(surface.material, &access.SWMaterials()[0]);
  EXPECT_EQ(At(surface.vertices[1]), (std::array<float, 3>{0, 0, 31}));
  ASSERT_EQ(resolve(0, 0, 0), SWHitSurfaceStatus::Resolved);  // baked
  EXPECT_EQ(At(surface.vertices[1]), (std::array<float, 3>{12, 0, 0}));
}

TEST_F(SceneMeshes, RotateToCameraGeometryGoesOnlyToTheSecondTableTurnedToTheViewer) {
  root->AddChildNode(MeshNode("ground"));
  const SCENE_MATRIX at = Translation(5, 0, 0);
  SCENE_GRAPH_NODE* tree = Group(root, "Tree", nullptr, &at);
  tree->GetNodeGroupData()->SetGroupRotateToCamera(true);
  tree->AddChildNode(MeshNode("leaf", {Vertex(0, 0, 0), Vertex(1, 0, 0), Vertex(0, 0, 1)}));
  SCENE_GRAPH_NODE* tile = Group(tree, "Tile", "Brick");  // Brick of tree 5: a second row
  tile->GetNodeGroupData()->SetGroupMaterialTree(5);
  tile->AddChildNode(MeshNode("tile"));

  // Eye at world (15,0,0): the billboard's front, local -y, turns a quarter
  // about z to face +x, so local (1,0,0) goes to (0,1,0).
  SCENE_CAMERA_INFO camera{{15, 0, 0}, {5, 0, 0}, 45.0f, 10.0f, 0.0f};
  SCENE_MATRIX view;
  CalculateModelViewMatrix(&view, &camera);
  access.Walk(0, root);
  access.Walk(1, root, nullptr, nullptr, &view);

  EXPECT_EQ(Rows(access.MeshTable(0)), std::vector<uint32_t>{0});
  const SWMeshTable& turned = access.MeshTable(1);
  ASSERT_EQ(Rows(turned), (std::vector<uint32_t>{0, 101}));
  EXPECT_EQ(Rounded(turned.meshes[0].vertices[1]), (std::array<float, 3>{5, 1, 0}));
  EXPECT_EQ(Rounded(turned.meshes[0].vertices[2]), (std::array<float, 3>{5, 0, 1}));
  EXPECT_EQ(MaterialOf(access.SWMaterials()[1]),
            access.MaterialRoots()[5]->GetNodeThatControlsMaterial("Brick"));
}

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "host/BrindlexViewModel.h"

namespace {

// Scales by `s`, then moves by (x, y, z).
SCENE_MATRIX ScaleThenMove(float s, float x, float y, float z) {
  SCENE_MATRIX m{};
  m.m[0] = m.m[5] = m.m[10] = s;
  m.m[15] = 1.0f;
  m.m[12] = x, m.m[13] = y, m.m[14] = z;
  return m;
}

// A node with one triangle whose corners are (0,0,0), (1,0,0), (0,1,0).
SCENE_GRAPH_NODE* MeshNode(const char* name) {
  auto* node = new SCENE_GRAPH_NODE(name);
  SCENE_VERTEX v[3] = {};
  v[1].position = {1, 0, 0};
  v[2].position = {0, 1, 0};
  unsigned int triangle[3] = {0, 1, 2};
  node->CreateNodeMeshData()->SetMeshData(v, 3, triangle, 3);
  return node;
}

// Records the walk as "+name", "mesh name", "-name"; enters only active
// nodes, as a renderer does.
class Recorder : public TRAVERSE_SCENE_GRAPH {
 public:
  bool TraversalEnterNode(SCENE_GRAPH_NODE_INTERFACE* node) override {
    log.push_back(std::string("+") + node->GetNodeName());
    return node->IsNodeActive();
  }
  void TraversalVisitMesh(SCENE_GRAPH_NODE_INTERFACE* node) override {
    log.push_back(std::string("mesh ") + node->GetNodeName());
  }
  void TraversalLeaveNode(SCENE_GRAPH_NODE_INTERFACE* node) override {
    log.push_back(std::string("-") + node->GetNodeName());
  }

  std::vector<std::string> log;
};

void ExpectPoint(const SCENE_VERTEX_XYZ& p, float x, float y, float z) {
  EXPECT_FLOAT_EQ(p.x, x);
  EXPECT_FLOAT_EQ(p.y, y);
  EXPECT_FLOAT_EQ(p.z, z);
}

// A material node named `id` under `parent`, with a colour of its own
// unless `rgb` is negative.
MATERIAL_3D_NODE* Material(MATERIAL_3D_NODE* parent, const char* id, long rgb = -1) {
  auto* node = new MATERIAL_3D_NODE(parent, ':');
  node->SetThisNodesID(id);
  TEXTURE_LINK link;
  link.SetColor(static_cast<unsigned long>(rgb));
  if (rgb >= 0) node->SetTextureLink(&link);
  return node;
}

}  // namespace

TEST(SceneGraph, WalkBracketsNodesAndSkipsInactiveOnes) {
  SCENE_GRAPH scene;
  SCENE_GRAPH_NODE_INTERFACE* root = scene.GetSceneGraphNode("Scene Graph Root");
  ASSERT_NE(root, nullptr);
  auto* a = MeshNode("a");
  auto* b = new SCENE_GRAPH_NODE("b");
  auto* hidden = MeshNode("hidden");
  ASSERT_TRUE(root->AddChildNode(a));
  ASSERT_TRUE(a->AddChildNode(b));
  ASSERT_TRUE(b->AddChildNode(hidden));
  ASSERT_TRUE(root->AddChildNode(MeshNode("c")));
  hidden->AddChildNode(MeshNode("below"));
  hidden->ActivateNode(false);

  Recorder walk;
  TraverseSceneGraph(root, &walk);
  // The inactive node is entered, answers false, and gets neither mesh,
  // children nor leave.
  EXPECT_EQ(walk.log, (std::vector<std::string>{"+Scene Graph Root", "+a", "mesh a", "+b", "+hidden", "-b",
                                                "-a", "+c", "mesh c", "-c", "-Scene Graph Root"}));

  EXPECT_EQ(scene.GetSceneGraphNode("below")->GetParentNode(), hidden);
  EXPECT_EQ(scene.GetSceneGraphNode("nothing"), nullptr);
  EXPECT_EQ(scene.GetSceneGraphNode(nullptr), nullptr);
}

TEST(SceneGraph, SharedNodesAreInstancesAndCyclesAreRefused) {
  SCENE_GRAPH scene;
  SCENE_GRAPH_NODE* root = scene.GetRootNode();
  auto* left = new SCENE_GRAPH_NODE("left");
  auto* right = new SCENE_GRAPH_NODE("right");
  auto* shared = MeshNode("shared");
  root->AddChildNode(left);
  root->AddChildNode(right);
  ASSERT_TRUE(left->AddChildNode(shared));
  ASSERT_TRUE(right->AddChildNode(shared));
  EXPECT_FALSE(right->AddChildNode(shared));  // already there
  EXPECT_FALSE(shared->AddChildNode(root));   // would be a cycle
  EXPECT_FALSE(shared->AddChildNode(shared));
  EXPECT_EQ(shared->GetNumberOfParentNodes(), 2u);

  Recorder walk;
  TraverseSceneGraph(root, &walk);
  EXPECT_EQ(std::count(walk.log.begin(), walk.log.end(), "mesh shared"), 2);

  // The first detach leaves the node to its other parent; the last hands it
  // back to the caller.
  EXPECT_EQ(left->DetachChildNode(shared), nullptr);
  EXPECT_EQ(shared->GetParentNode(), right);
  EXPECT_EQ(right->DetachChildNode(shared), shared);
  EXPECT_EQ(shared->GetParentNode(), nullptr);
  EXPECT_TRUE(left->AddChildNode(shared));
  EXPECT_TRUE(root->DeleteChildNode(left));
  EXPECT_FALSE(root->DeleteChildNode(left));
}

TEST(SceneGraph, BoundsFollowNestedTransforms) {
  SCENE_GRAPH scene;
  SCENE_GRAPH_NODE* root = scene.GetRootNode();
  auto* outer = new SCENE_GRAPH_NODE("outer");
  auto* inner = MeshNode("inner");
  root->AddChildNode(outer);
  outer->AddChildNode(inner);
  SCENE_MATRIX move = ScaleThenMove(1, 10, 0, 0), innerMove = ScaleThenMove(1, 0, 5, 1);
  outer->CreateNodeGroupData()->SetGroupMatrix(&move);
  inner->CreateNodeGroupData()->SetGroupMatrix(&innerMove);
  // Corners (0,0,0), (1,0,0), (0,1,0) go to (10,5,1), (11,5,1), (10,6,1).
  SCENE_VERTEX_XYZ min, max;
  ASSERT_TRUE(root->GetNodeBounds(&min, &max, true));
  ExpectPoint(min, 10, 5, 1);
  ExpectPoint(max, 11, 6, 1);

  // Outer now scales by 2 and then moves by 10 in x: the inner move is
  // scaled too, so the corners go to (10,10,2), (12,10,2), (10,12,2). A
  // second mesh at the root widens the box to the origin.
  SCENE_MATRIX scaleThenMove = ScaleThenMove(2, 10, 0, 0);
  outer->GetNodeGroupData()->SetGroupMatrix(&scaleThenMove);
  root->AddChildNode(MeshNode("origin"));
  ASSERT_TRUE(root->GetNodeBounds(&min, &max, true));
  ExpectPoint(min, 0, 0, 0);
  ExpectPoint(max, 12, 12, 2);

  // A subtree's box starts at that node, whose own matrix counts.
  ASSERT_TRUE(outer->GetNodeBounds(&min, &max, true));
  ExpectPoint(min, 10, 10, 2);

  // Inactive subtrees drop out only with activeOnly; an empty box is the
  // origin.
  outer->ActivateNode(false);
  ASSERT_TRUE(root->GetNodeBounds(&min, &max, true));
  ExpectPoint(max, 1, 1, 0);
  ASSERT_TRUE(root->GetNodeBounds(&min, &max, false));
  ExpectPoint(max, 12, 12, 2);
  SCENE_GRAPH_NODE empty("empty");
  EXPECT_FALSE(empty.GetNodeBounds(&min, &max, true));
  ExpectPoint(max, 0, 0, 0);
}

TEST(MaterialTree, IdsResolveToTheNearestDefinition) {
  MATERIAL_3D_NODE root(nullptr, ':');
  root.SetThisNodesID("*");
  root.SetShouldThisNodeUseDefault(false, false);
  auto *walls = Material(&root, "Walls", 0x0000FF), *brick = Material(walls, "Brick"),
       *glass = Material(walls, "Glass", 0xFF0000), *roof = Material(&root, "Roof");
  // Brick has no settings of its own and takes Walls'; Glass defines its own.
  const std::pair<const char*, const MATERIAL_3D_NODE*> lookups[] = {
      {"Walls:Brick", walls}, {"*:Walls:Brick", walls}, {"Walls:Glass", glass},     {"Roof", &root},
      {"*", &root},           {"Brick", nullptr},       {"Walls:Nothing", nullptr}, {"", nullptr},
      {nullptr, nullptr}};
  for (const auto& [id, node] : lookups) EXPECT_EQ(root.GetNodeThatControlsMaterial(id), node) << id;

  // Making the whole Walls group use the default sends all of it to the root.
  walls->SetShouldThisNodeUseDefault(true, true);
  EXPECT_EQ(root.GetNodeThatControlsMaterial("Walls:Glass"), &root);
  EXPECT_EQ(brick->GetFullID(), "*:Walls:Brick");

  walls->SetVisible(false);
  EXPECT_EQ(std::tuple(brick->IsVisible(), roof->IsVisible()), std::tuple(0, 1));
}

TEST(MaterialTree, AssignmentCopiesTheWholeTreeIndependently) {
  MATERIAL_3D_NODE original(nullptr, ':'), copy(nullptr, '/');
  original.SetThisNodesID("*");
  auto* child = Material(&original, "Stone", 0x808080);
  copy = original;
  const MATERIAL_3D_NODE* copied = copy.GetNodeThatControlsMaterial("Stone");
  ASSERT_TRUE(copied && copied != child && copied->GetParentNode() == &copy);
  // Changing or deleting the original leaves the copy as it was.
  child->GetTextureLink()->SetColor(0x0000FF);
  original.DeleteChildNode(child);
  EXPECT_EQ(copied->GetTextureLink()->GetColor(), 0x808080ul);
  // Assigning a node's own descendant into it must not read freed nodes.
  copy = *Material(new MATERIAL_3D_NODE(&copy, ':'), "deep");
  EXPECT_EQ(std::tuple(std::string(copy.GetThisNodesID()), copy.GetNumberOfChildNodes()),
            std::tuple("deep", 0u));
}

TEST(MaterialTree, FileRoundTripAndDamagedInput) {
  MATERIAL_3D_NODE root(nullptr, ':');
  root.SetThisNodesID("*");
  auto* odd = Material(&root, "Name with \"quotes\" and spaces");
  TEXTURE_LINK link;
  link.SetTextureLinkFullFileName("folder/my file.jpg");
  link.SetColor(0x123456);
  link.SetTextureMappingType(TEXTURE_LINK::SV_BOX_MAPPING);
  link.SetTransparent(true);
  link.SetOpacityLevel(33.3333f);
  link.SetReliefDepthLevel(0.1f);
  odd->SetTextureLink(&link);
  odd->SetVisible(false);
  new MATERIAL_3D_NODE(odd, ':');

  std::stringstream file;
  ASSERT_TRUE(root.WriteToFile(&file));
  MATERIAL_3D_NODE read(nullptr, ':');
  ASSERT_TRUE(read.ReadFromFile(&file));
  auto* back = dynamic_cast<MATERIAL_3D_NODE*>(read.GetChildNode(0));
  ASSERT_NE(back, nullptr);
  EXPECT_STREQ(back->GetThisNodesID(), odd->GetThisNodesID());
  ASSERT_NE(back->GetTextureLink(), nullptr);
  EXPECT_TRUE(*back->GetTextureLink() == link);
  EXPECT_EQ(back->IsVisible(), 0);
  EXPECT_FALSE(back->ShouldThisNodeUseDefault());
  EXPECT_EQ(back->GetNumberOfChildNodes(), 1u);

  // A cut-off file and a wrong mapping type are refused, and the node that
  // was read into keeps its tree.
  std::string text = file.str();
  std::istringstream cut(text.substr(0, text.size() / 2));
  EXPECT_FALSE(read.ReadFromFile(&cut));
  std::string badMapping = text;
  badMapping.replace(badMapping.find(" 2 0 1 0 "), 9, " 7 0 1 0 ");
  std::istringstream bad(badMapping);
  EXPECT_FALSE(read.ReadFromFile(&bad));
  EXPECT_EQ(read.GetNumberOfChildNodes(), 1u);
  EXPECT_FALSE(read.ReadFromFile(nullptr));
}

TEST(Project, LightNumbersAreStableAndNeverReused) {
  SCENE_LIGHTS lights;
  SCENE_LIGHT_DEFINITION lamp{};
  int definition = lights.AddLightDefinition(lamp);
  SCENE_MATRIX up = ScaleThenMove(1, 0, 0, 3);
  EXPECT_EQ(lights.AddLightInstance(definition, nullptr), 0);
  EXPECT_EQ(lights.AddLightInstance(definition, &up), 1);
  EXPECT_EQ(lights.AddLightInstance(definition + 1, nullptr), -1);
  EXPECT_EQ(std::tuple(lights.GetLightInstance(0)->matrix.m[0], lights.GetLightInstance(1)->matrix.m[14]),
            std::tuple(1.0f, 3.0f));
  EXPECT_FALSE(lights.RemoveLightDefinition(definition));
  EXPECT_TRUE(lights.RemoveLightInstance(0));
  EXPECT_EQ(lights.GetLightInstance(0), nullptr);
  EXPECT_EQ(lights.AddLightInstance(definition, nullptr), 2);
  EXPECT_EQ(lights.GetNumberOfLightInstances(), 3);  // the removed number still counts
}

TEST(RenderOptions, ViewOptionsAndTheBackgroundPicturesPath) {
  ENVIRONMENT_3D_VIEW view;
  view.GetRenderOptions().SetBackgroundTextureName("sky.png");
  view.GetRenderOptions().SetFogLevel(250.0f);
  MODE_RENDER_OPTIONS options;
  options.SetFogLevel(10.0f);
  view.GetCurrentRenderOptions(nullptr, options);
  EXPECT_FLOAT_EQ(options.GetFogLevel(), 100.0f);  // set to 250, kept within 100

  char path[MODE_RENDER_OPTIONS::MaxPathLength];
  for (const char* folder : {"/textures", "/textures/"}) {
    options.GetBackgroundTexture(path, folder);
    EXPECT_STREQ(path, "/textures/sky.png");
  }
}

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "AppTestFiles.h"
#include "host/BrindlexViewMath.h"
#include "ModelImport.h"

namespace {

constexpr const char* TestModels = "/usr/share/assimp/models";

SCENE_VERTEX_XYZ Apply(const SCENE_MATRIX& m, SCENE_VERTEX_XYZ p) {
  TransformPoint3D(&m, &p, &p);
  return p;
}

// The first node below `node`, depth first, that carries mesh data.
SCENE_GRAPH_NODE_INTERFACE* FirstMesh(SCENE_GRAPH_NODE_INTERFACE* node) {
  if (node->GetNodeMeshData()) return node;
  for (unsigned i = 0; i < node->GetNumberOfChildNodes(); ++i)
    if (auto* found = FirstMesh(node->GetChildNode(i))) return found;
  return nullptr;
}

// A 2 x 1 quad standing in the file's x-y plane... of a y-up file: it lies
// along x and up y, facing +z, with texture coordinates.
constexpr const char* QuadObj = R"(mtllib quad.mtl
o Quad
v 0 0 0
v 2 0 0
v 2 1 0
v 0 1 0
vt 0 0
vt 1 0
vt 1 1
vt 0 1
usemtl Brick
f 1/1 2/2 3/3 4/4
)";

constexpr const char* QuadMtl = "newmtl Brick\nKd 0.8 0.4 0.2\nd 0.5\nmap_Kd textures/brick.png\n";

TEST(ModelImport, ObjWithMaterialBecomesGroupsMeshAndMaterialTree) {
  TestFolder folder;
  folder.Write("quad.mtl", QuadMtl);
  HostScene host;
  host.SetTextureDirectory(folder.path);
  ImportedModel model;
  std::string error;
  ASSERT_TRUE(ImportModel(folder.Write("quad.obj", QuadObj), {}, host, model, error)) << error;
  EXPECT_EQ(model.triangles, 2u);
  EXPECT_EQ(host.TriangleCount(), 2ul);
  EXPECT_EQ(model.lights, 0);
  EXPECT_FALSE(model.camera.has_value());

  // y-up: the quad's up (file y) becomes world z, its front (file +z)
  // faces world -y; an OBJ file's unit is taken as the metre, the world's
  // is the centimetre.
  SCENE_VERTEX_XYZ min, max;
  ASSERT_TRUE(host.WorldBounds(min, max));
  ExpectPoint(min, 0, 0, 0);
  ExpectPoint(max, 200, 0, 100);
  EXPECT_EQ(model.root->GetParentNode(), host.Root());
  EXPECT_STREQ(model.root->GetNodeName(), "quad");

  SCENE_GRAPH_NODE_INTERFACE* mesh = FirstMesh(model.root);
  ASSERT_NE(mesh, nullptr);
  EXPECT_STREQ(mesh->GetNodeGroupData()->GetGroupMaterialID(), "quad:Brick");
  // Normals made from the winding (file +z), tangents along u (file +x).
  const SCENE_VERTEX vertex = mesh->GetNodeMeshData()->GetMeshVertices()[0];
  ExpectPoint(vertex.normal, 0, 0, 1);
  ExpectPoint(vertex.tangent, 1, 0, 0);

  const auto bricks = host.FindMaterials("quad:Brick");
  ASSERT_EQ(bricks.size(), 1u);
  const TEXTURE_LINK* brick = bricks[0]->GetTextureLink();
  EXPECT_EQ(brick->GetColor(), 204ul | 102ul << 8 | 51ul << 16);
  EXPECT_FLOAT_EQ(brick->GetOpacityLevel(), 50.0f);
  EXPECT_NE(brick->IsTransparent(), 0);
  EXPECT_STREQ(brick->GetTextureLinkFullFileName(), "textures/brick.png");
}

TEST(ModelImport, GltfNodeTransformCameraAndLight) {
  // One triangle under a node moved by (1, 2, 3); a camera at (0, 1, 5)
  // looking along -z; a point light at (1, 2, 3) of colour (1, 0.5, 0) and
  // intensity 2. The buffer is the triangle's 9 floats, base64.
  TestFolder folder;
  const auto file = folder.Write("scene.gltf", R"({
  "asset": {"version": "2.0"},
  "extensionsUsed": ["KHR_lights_punctual"],
  "extensions": {"KHR_lights_punctual": {"lights": [
    {"type": "point", "color": [1.0, 0.5, 0.0], "intensity": 2.0}]}},
  "scene": 0,
  "scenes": [{"nodes": [0, 1, 2]}],
  "nodes": [
    {"name": "Moved", "translation": [1, 2, 3], "mesh": 0},
    {"name": "Eye", "translation": [0, 1, 5], "camera": 0},
    {"name": "Lamp", "translation": [1, 2, 3], "extensions": {"KHR_lights_punctual": {"light": 0}}}],
  "cameras": [{"type": "perspective", "perspective": {"yfov": 0.8, "aspectRatio": 1.5, "znear": 0.1}}],
  "meshes": [{"primitives": [{"attributes": {"POSITION": 0}}]}],
  "accessors": [{"bufferView": 0, "componentType": 5126, "count": 3, "type": "VEC3",
                 "min": [0, 0, 0], "max": [1, 1, 0]}],
  "bufferViews": [{"buffer": 0, "byteLength": 36}],
  "buffers": [{"byteLength": 36,
    "uri": "data:application/octet-stream;base64,AAAAAAAAAAAAAAAAAACAPwAAAAAAAAAAAAAAAAAAgD8AAAAA"}]
})");
  HostScene host;
  ImportedModel model;
  std::string error;
  ASSERT_TRUE(ImportModel(file, {}, host, model, error)) << error;
  EXPECT_EQ(model.triangles, 1u);
  // glTF is y-up and in metres: file (x, y, z) is world 100 (x, -z, y).
  SCENE_VERTEX_XYZ min, max;
  ASSERT_TRUE(host.WorldBounds(min, max));
  ExpectPoint(min, 100, -300, 200);
  ExpectPoint(max, 200, -300, 300);

  ASSERT_TRUE(model.camera.has_value());
  ExpectPoint(model.camera->eye, 0, -500, 100);
  ExpectPoint(model.camera->target, 0, -400, 100);
  EXPECT_NEAR(model.camera->fieldOfView, 0.8 * 180.0 / 3.141592653589793, 1e-3);  // yfov in radians

  ASSERT_EQ(model.lights, 1);
  const SCENE_LIGHT_INSTANCE* light = host.Lights().GetLightInstance(0);
  ASSERT_NE(light, nullptr);
  const SCENE_LIGHT_DEFINITION d = *light->definition;
  EXPECT_EQ(+d.type, 0);
  EXPECT_EQ(+d.color, 255u | 128u << 8);
  EXPECT_EQ(+d.intensity, 20);
  EXPECT_EQ(+d.flags & (LightEnabled | LightCastsShadows), LightEnabled | LightCastsShadows);
  const SCENE_MATRIX matrix = light->matrix;
  ExpectPoint(Apply(matrix, d.position), 100, -300, 200);
}

TEST(ModelImport, PlacementAndZoomToFit) {
  // A scene file's "up": "z" keeps a model as it is; it is scaled about
  // the origin, then moved, in file units.
  TestFolder folder;
  folder.Write("quad.mtl", QuadMtl);
  ModelPlacement placement;
  placement.up = UpAxis::Z;
  placement.scale = 2.0f;
  placement.translate = {10, 0, 0};
  HostScene host;
  ImportedModel model;
  std::string error;
  ASSERT_TRUE(ImportModel(folder.Write("quad.obj", QuadObj), placement, host, model, error)) << error;
  SCENE_VERTEX_XYZ min, max;
  ASSERT_TRUE(host.WorldBounds(min, max));
  ExpectPoint(min, 1000, 0, 0);
  ExpectPoint(max, 1400, 200, 0);

  // The whole box in view from above, in front, to the right, with a tenth
  // of each half of the picture free.
  for (double aspect : {0.5, 1.0, 2.0}) {
    ASSERT_TRUE(host.FrameAll(aspect));
    SCENE_VERTEX_XYZ eye = host.CameraEye(), target = host.CameraTarget();
    EXPECT_GT(+eye.z, +max.z);
    EXPECT_LT(+eye.y, +min.y);
    EXPECT_GT(+eye.x, +max.x);
    SCENE_VERTEX_XYZ forward = {target.x - eye.x, target.y - eye.y, target.z - eye.z}, up = {0, 0, 1}, right,
                     screenUp;
    GetUnitVector(&forward, &forward);
    CrossProduct(&forward, &up, &right);
    GetUnitVector(&right, &right);
    CrossProduct(&right, &forward, &screenUp);
    const double tanHalf = std::tan(HostScene::DefaultFieldOfView * 3.141592653589793 / 360.0);
    SCENE_VERTEX_XYZ corners[8];
    InitializeCubePointArrayFromCubeMinMaxPts(corners, &min, &max);
    for (SCENE_VERTEX_XYZ corner : corners) {
      SCENE_VERTEX_XYZ d = {corner.x - eye.x, corner.y - eye.y, corner.z - eye.z};
      const double depth = DotProduct(&d, &forward);
      ASSERT_GT(depth, 0.0);
      EXPECT_LE(std::abs(DotProduct(&d, &screenUp)) / depth, 0.9 * tanHalf + 1e-6);
      EXPECT_LE(std::abs(DotProduct(&d, &right)) / depth, 0.9 * tanHalf * aspect + 1e-6);
    }
  }
}

TEST(ModelImport, DebianTestModelsOfEveryListedFormat) {
  if (!std::filesystem::exists(TestModels)) GTEST_SKIP() << "assimp-testmodels is not installed";
  const char* files[] = {"OBJ/spider.obj",
                         "glTF2/BoxTextured-glTF/BoxTextured.gltf",
                         "glTF2/BoxTextured-glTF-Binary/BoxTextured.glb",
                         "Collada/duck.dae",
                         "3DS/fels.3ds",
                         "FBX/box.fbx",
                         "PLY/cube.ply",
                         "STL/Spider_ascii.stl",
                         "IFC/AC14-FZK-Haus.ifc"};
  for (const char* name : files) {
    const auto file = std::filesystem::path(TestModels) / name;
    if (!std::filesystem::exists(file)) continue;
    HostScene host;
    ImportedModel model;
    std::string error;
    EXPECT_TRUE(ImportModel(file, {}, host, model, error)) << name << ": " << error;
    EXPECT_GT(host.TriangleCount(), 0ul) << name;
    EXPECT_FALSE(host.FindMaterials(file.stem().string()).empty()) << name;
  }
  // Lamp, Sun, Spot and Area; the ambient "Hemi" has no place in a ray tracer.
  HostScene lit;
  ImportedModel lights;
  std::string why;
  ASSERT_TRUE(ImportModel(std::filesystem::path(TestModels) / "Collada/lights.dae", {}, lit, lights, why))
      << why;
  EXPECT_EQ(lights.lights, 4);
  EXPECT_EQ(lit.Lights().GetNumberOfLightInstances(), 4);
  // The binary glTF keeps its picture inside; it is written out (to a cache
  // folder of this test's own) and named so that the engine finds it from
  // the model's folder.
  TestFolder cache;
  setenv("XDG_CACHE_HOME", cache.path.c_str(), 1);
  HostScene host;
  ImportedModel model;
  std::string error;
  const auto glb = std::filesystem::path(TestModels) / "glTF2/BoxTextured-glTF-Binary/BoxTextured.glb";
  host.SetTextureDirectory(glb.parent_path());
  ASSERT_TRUE(ImportModel(glb, {}, host, model, error)) << error;
  bool textured = false;
  auto visit = [&](auto& self, STRING_TREE_NODE* node) -> void {
    const TEXTURE_LINK* link = static_cast<MATERIAL_3D_NODE*>(node)->GetTextureLink();
    if (link && *link->GetTextureLinkFullFileName()) {
      textured = true;
      EXPECT_TRUE(std::filesystem::exists(glb.parent_path() / link->GetTextureLinkFullFileName()));
    }
    for (unsigned i = 0; i < node->GetNumberOfChildNodes(); ++i) self(self, node->GetChildNode(i));
  };
  visit(visit, &host.Materials());
  EXPECT_TRUE(textured);
}

}  // namespace

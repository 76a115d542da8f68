// Model files into the host's scene graph, materials, lights and camera;
// and the files that used to come out wrong, or bring the program down:
// each written here, small, for one cause.
#include <gtest/gtest.h>

#include <assimp/scene.h>

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <tuple>
#include <vector>

#include "AppTestFiles.h"
#include "CameraFraming.h"
#include "ImportGuard.h"
#include "ModelImport.h"
#include "SceneFile.h"

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
constexpr const char* QuadObj =
    "mtllib quad.mtl\no Quad\nv 0 0 0\nv 2 0 0\nv 2 1 0\nv 0 1 0\nvt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\n"
    "usemtl Brick\nf 1/1 2/2 3/3 4/4\n";

constexpr const char* QuadMtl = "newmtl Brick\nKd 0.8 0.4 0.2\nd 0.5\nmap_Kd textures/brick.png\n";

// One triangle, 100 x 100 file units in the file's x-y plane, of one
// material with the given Collada colour settings.
std::string ColladaTriangle(const std::string& opaque, const std::string& transparent, double transparency,
                            const std::string& reflective, double reflectivity,
                            const std::string& asset = "<unit meter=\"0.01\"/><up_axis>Z_UP</up_axis>") {
  return R"(<?xml version="1.0"?>
<COLLADA xmlns="http://www.collada.org/2005/11/COLLADASchema" version="1.4.1"><asset>)" +
         asset + R"(</asset><library_effects><effect id="fx"><profile_COMMON><technique sid="t"><phong>
<diffuse><color>0.8 0.2 0.2 1</color></diffuse><reflective><color>)" +
         reflective + "</color></reflective><reflectivity><float>" + std::to_string(reflectivity) +
         R"(</float></reflectivity><transparent opaque=")" + opaque + "\"><color>" + transparent +
         "</color></transparent><transparency><float>" + std::to_string(transparency) +
         R"(</float></transparency></phong></technique></profile_COMMON></effect></library_effects>
<library_materials><material id="Paint" name="Paint"><instance_effect url="#fx"/></material></library_materials>
<library_geometries><geometry id="g"><mesh><source id="p"><float_array id="pa" count="9">0 0 0 100 0 0 0 100 0
</float_array><technique_common><accessor source="#pa" count="3" stride="3"><param name="X" type="float"/>
<param name="Y" type="float"/><param name="Z" type="float"/></accessor></technique_common></source>
<vertices id="v"><input semantic="POSITION" source="#p"/></vertices><triangles count="1" material="m">
<input semantic="VERTEX" source="#v" offset="0"/><p>0 1 2</p></triangles></mesh></geometry>
</library_geometries>
<library_visual_scenes><visual_scene id="s"><node id="n" name="n"><instance_geometry url="#g"><bind_material>
<technique_common><instance_material symbol="m" target="#Paint"/></technique_common></bind_material>
</instance_geometry></node></visual_scene></library_visual_scenes><scene><instance_visual_scene url="#s"/>
</scene></COLLADA>)";
}

struct Imported {
  HostScene host;
  ImportedModel model;
  std::string error;
  bool ok = false;
  SCENE_VERTEX_XYZ min{}, max{};
  explicit Imported(const std::filesystem::path& file, const ModelPlacement& placement = {},
                    const ImportLimits& limits = {}, const std::filesystem::path& textures = {}) {
    if (!textures.empty()) host.SetTextureDirectory(textures);
    ok = ImportModel(file, placement, host, model, error, limits);
    if (ok) host.WorldBounds(min, max);
  }
  const TEXTURE_LINK& Paint() { return *host.FindMaterials("Paint").at(0)->GetTextureLink(); }
  void ExpectSize(float x, float y, float z, const std::string& name) {
    ASSERT_TRUE(ok) << name << ": " << error;
    SCOPED_TRACE(name);
    ExpectPoint({max.x - min.x, max.y - min.y, max.z - min.z}, x, y, z, 1e-2f);
  }
};

TEST(ModelImport, ObjWithMaterialBecomesGroupsMeshAndMaterialTree) {
  TestFolder folder;
  folder.Write("quad.mtl", QuadMtl);
  Imported in(folder.Write("quad.obj", QuadObj), {}, {}, folder.path);
  ASSERT_TRUE(in.ok) << in.error;
  const ImportedModel& model = in.model;
  EXPECT_EQ(std::tuple(model.triangles, in.host.TriangleCount(), model.lights), std::tuple(2u, 2ul, 0));
  EXPECT_FALSE(model.camera.has_value());
  // y-up: the quad's up (file y) becomes world z, its front (file +z)
  // faces world -y; an OBJ file's unit is taken as the metre, the world's
  // is the centimetre.
  ExpectPoint(in.min, 0, 0, 0);
  ExpectPoint(in.max, 200, 0, 100);

  SCENE_GRAPH_NODE_INTERFACE* mesh = FirstMesh(model.root);
  ASSERT_NE(mesh, nullptr);
  EXPECT_STREQ(mesh->GetNodeGroupData()->GetGroupMaterialID(), "quad:Brick");
  // Normals made from the winding (file +z), tangents along u (file +x).
  const SCENE_VERTEX vertex = mesh->GetNodeMeshData()->GetMeshVertices()[0];
  ExpectPoint(vertex.normal, 0, 0, 1);
  ExpectPoint(vertex.tangent, 1, 0, 0);

  const auto bricks = in.host.FindMaterials("quad:Brick");
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
  const auto file = folder.Write("scene.gltf", R"({"asset": {"version": "2.0"}, "scene": 0,
  "extensionsUsed": ["KHR_lights_punctual"], "extensions": {"KHR_lights_punctual": {"lights": [
    {"type": "point", "color": [1.0, 0.5, 0.0], "intensity": 2.0}]}}, "scenes": [{"nodes": [0, 1, 2]}],
  "nodes": [{"name": "Moved", "translation": [1, 2, 3], "mesh": 0}, {"name": "Eye", "translation": [0, 1, 5],
    "camera": 0}, {"name": "Lamp", "translation": [1, 2, 3],
    "extensions": {"KHR_lights_punctual": {"light": 0}}}],
  "cameras": [{"type": "perspective", "perspective": {"yfov": 0.8, "aspectRatio": 1.5, "znear": 0.1}}],
  "meshes": [{"primitives": [{"attributes": {"POSITION": 0}}]}], "accessors": [{"bufferView": 0,
    "componentType": 5126, "count": 3, "type": "VEC3", "min": [0, 0, 0], "max": [1, 1, 0]}],
  "bufferViews": [{"buffer": 0, "byteLength": 36}], "buffers": [{"byteLength": 36,
    "uri": "data:application/octet-stream;base64,AAAAAAAAAAAAAAAAAACAPwAAAAAAAAAAAAAAAAAAgD8AAAAA"}]})");
  Imported in(file);
  ASSERT_TRUE(in.ok) << in.error;
  const ImportedModel& model = in.model;
  EXPECT_EQ(model.triangles, 1u);
  // glTF is y-up and in metres: file (x, y, z) is world 100 (x, -z, y).
  ExpectPoint(in.min, 100, -300, 200);
  ExpectPoint(in.max, 200, -300, 300);

  ASSERT_TRUE(model.camera.has_value());
  ExpectPoint(model.camera->eye, 0, -500, 100);
  ExpectPoint(model.camera->target, 0, -400, 100);
  EXPECT_NEAR(model.camera->fieldOfView, 0.8 * 180.0 / 3.141592653589793, 1e-3);  // yfov in radians

  ASSERT_EQ(model.lights, 1);
  const SCENE_LIGHT_INSTANCE* light = in.host.Lights().GetLightInstance(0);
  ASSERT_NE(light, nullptr);
  const SCENE_LIGHT_DEFINITION d = *light->definition;
  EXPECT_EQ(std::tuple(+d.type, +d.color, +d.intensity), std::tuple(0, 255u | 128u << 8, 20));
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
  Imported in(folder.Write("quad.obj", QuadObj), placement);
  ASSERT_TRUE(in.ok) << in.error;
  const SCENE_VERTEX_XYZ min = in.min, max = in.max;
  ExpectPoint(min, 1000, 0, 0);
  ExpectPoint(max, 1400, 200, 0);
  HostScene& host = in.host;

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
    Imported in(file);
    EXPECT_TRUE(in.ok) << name << ": " << in.error;
    EXPECT_GT(in.host.TriangleCount(), 0ul) << name;
    EXPECT_FALSE(in.host.FindMaterials(file.stem().string()).empty()) << name;
  }
  // Lamp, Sun, Spot and Area; the ambient "Hemi" has no place in a ray tracer.
  Imported lit(std::filesystem::path(TestModels) / "Collada/lights.dae");
  ASSERT_TRUE(lit.ok) << lit.error;
  EXPECT_EQ(lit.model.lights, 4);
  EXPECT_EQ(lit.host.Lights().GetNumberOfLightInstances(), 4);
  // The binary glTF keeps its picture inside; it is written out (to a cache
  // folder of this test's own) and named so that the engine finds it from
  // the model's folder.
  TestFolder cache;
  setenv("XDG_CACHE_HOME", cache.path.c_str(), 1);
  const auto glb = std::filesystem::path(TestModels) / "glTF2/BoxTextured-glTF-Binary/BoxTextured.glb";
  Imported in(glb, {}, {}, glb.parent_path());
  ASSERT_TRUE(in.ok) << in.error;
  bool textured = false;
  auto visit = [&](auto& self, STRING_TREE_NODE* node) -> void {
    const TEXTURE_LINK* link = static_cast<MATERIAL_3D_NODE*>(node)->GetTextureLink();
    if (link && *link->GetTextureLinkFullFileName()) {
      textured = true;
      EXPECT_TRUE(std::filesystem::exists(glb.parent_path() / link->GetTextureLinkFullFileName()));
    }
    for (unsigned i = 0; i < node->GetNumberOfChildNodes(); ++i) self(self, node->GetChildNode(i));
  };
  visit(visit, &in.host.Materials());
  EXPECT_TRUE(textured);
}

TEST(ModelRepair, ReflectivityIsWeighedByTheReflectiveColourAndTransparencyReadAsMeant) {
  struct Case {
    const char *opaque, *transparent;
    double transparency;
    const char* reflective;
    double reflectivity;
    float opacityLevel, reflectivityLevel;
  } cases[] = {
      // The exporters' default: factor 1, black colour: no mirror at all.
      {"A_ONE", "1 1 1 1", 1.0, "0 0 0 1", 1.0, 100.0f, 0.0f},
      // A_ONE: alpha times transparency is the opacity.
      {"A_ONE", "1 1 1 0.5", 1.0, "0.5 0.5 0.5 1", 1.0, 50.0f, 50.0f},
      // Transparency 0 would make the material vanish: read the other way.
      {"A_ONE", "1 1 1 1", 0.0, "1 1 1 1", 0.4, 100.0f, 40.0f},
      // RGB_ZERO: one minus luminance times transparency.
      {"RGB_ZERO", "1 1 1 1", 0.25, "0 0 0 1", 0.0, 75.0f, 0.0f},
      {"RGB_ZERO", "0.5 0.5 0.5 1", 1.0, "0.2 0.6 0.4 1", 0.5, 50.0f, 30.0f},
  };
  TestFolder folder;
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.opaque) + " " + c.transparent + " " + c.reflective);
    Imported in(folder.Write(
        "paint.dae", ColladaTriangle(c.opaque, c.transparent, c.transparency, c.reflective, c.reflectivity)));
    ASSERT_TRUE(in.ok) << in.error;
    EXPECT_NEAR(in.Paint().GetOpacityLevel(), c.opacityLevel, 0.01f);
    EXPECT_EQ(in.Paint().IsTransparent() != 0, c.opacityLevel < 100.0f);
    EXPECT_NEAR(in.Paint().GetReflectivityLevel(), c.reflectivityLevel, 0.01f);
    EXPECT_EQ(in.Paint().IsReflecting() != 0, c.reflectivityLevel > 0.0f);
  }
}

TEST(ModelRepair, UpAxesAndUnitsFromTheFileOrTheSceneFileEndInZUpCentimetres) {
  // Each file holds a triangle 1 long along the file's x whose third corner
  // is 1 (or 0.5) along the file's y (or z). y-up files turn y into the
  // world's z; SMD, DXF and X files are z-up already.
  const struct {
    std::string name, text;
    float x, y, z;  // the size in the world, centimetres
  } files[] = {
      {"one.stl",
       "solid one\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\n"
       "endloop\nendfacet\nendsolid one\n",
       100, 0, 100},
      {"up.smd",
       "version 1\nnodes\n0 \"root\" -1\nend\nskeleton\ntime 0\n0 0 0 0 0 0 0\nend\n"
       "triangles\nmat\n0 0 0 0 0 0 1 0 0\n0 1 0 0 0 0 1 1 0\n0 0 0 0.5 0 0 1 0 1\nend\n",
       100, 0, 50},
      {"up.dxf",
       "0\nSECTION\n2\nENTITIES\n0\n3DFACE\n8\n0\n10\n0\n20\n0\n30\n0\n11\n1\n21\n0\n31\n0\n"
       "12\n0\n22\n0\n32\n0.5\n13\n0\n23\n0\n33\n0.5\n0\nENDSEC\n0\nEOF\n",
       100, 0, 50},
      {"up.x",
       "xof 0302txt 0032\nMesh t {\n 3;\n 0.0;0.0;0.0;,\n 1.0;0.0;0.0;,\n 0.0;0.0;0.5;;\n 1;\n "
       "3;0,1,2;;\n}\n",
       100, 0, 50},
      // Collada in centimetres and in inches, z-up: 100 x 100 units in the
      // ground plane.
      {"cm.dae", ColladaTriangle("A_ONE", "1 1 1 1", 1.0, "0 0 0 1", 0.0), 100, 100, 0},
      {"in.dae",
       ColladaTriangle("A_ONE", "1 1 1 1", 1.0, "0 0 0 1", 0.0,
                       "<unit meter=\"0.0254\"/><up_axis>Z_UP</up_axis>"),
       254, 254, 0},
  };
  TestFolder folder;
  for (const auto& f : files) {
    Imported model(folder.Write(f.name, f.text));
    model.ExpectSize(f.x, f.y, f.z, f.name);
    EXPECT_NEAR(model.min.z, 0.0f, 1e-3f) << f.name;
  }
  // An OBJ file has no unit: metres, unless the scene file says millimetres.
  SceneDescription scene;
  std::string error;
  ASSERT_TRUE(ParseScene(R"({"models": [{"file": "tri.obj", "unit": "mm"}]})", folder.path, scene, error));
  folder.Write("tri.obj", "v 0 0 0\nv 2000 0 0\nv 0 1000 0\nf 1 2 3\n");
  Imported mm(scene.models.at(0).file, scene.models[0].placement);
  mm.ExpectSize(200, 0, 100, "mm");
  EXPECT_DOUBLE_EQ(mm.host.WorldPerFileUnit(), 0.1);
}

TEST(ModelRepair, AFileCameraIsKeptOnlyWhenItShowsTheModel) {
  // A 100-unit cube; the picture is 4:3.
  const SCENE_VERTEX_XYZ min{0, 0, 0}, max{100, 100, 100}, centre{50, 50, 50}, left{-300, 50, 50};
  struct Case {
    SCENE_VERTEX_XYZ eye, target;
    float fieldOfView;
    const char* problem;
  } cases[] = {
      {left, centre, 45.0f, ""},
      {left, {-600, 50, 50}, 45.0f, "looks away from the model"},
      {centre, {200, 50, 50}, 45.0f, "stands inside the model or beside it"},
      {left, {-300, 400, 50}, 45.0f, "stands inside the model or beside it"},  // beside: half behind
      {left, centre, 0.78f, "has a field of view of under a degree"},
      // 200 from the centre through 10 degrees: about 26 of the 100 in view.
      {{-150, 50, 50}, centre, 10.0f, "cuts off part of the model"},
      {{-100000, 50, 50}, centre, 45.0f, "shows the model too small"},
      {left, left, 45.0f, "has no direction"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(CameraFramingProblem(min, max, c.eye, c.target, c.fieldOfView, 4.0 / 3.0), c.problem)
        << c.eye.x << " " << c.target.x << " " << c.fieldOfView;
}

TEST(ModelRepair, BadVerticesGoWithTheirTrianglesAndZeroNormalsAreMadeAnew) {
  // Vertex 0 is not a number and vertex 4 infinite; every normal is zero.
  TestFolder folder;
  Imported ply(folder.Write("bad.ply",
                            "ply\nformat ascii 1.0\nelement vertex 5\nproperty float x\nproperty float y\n"
                            "property float z\nproperty float nx\nproperty float ny\nproperty float nz\n"
                            "element face 3\nproperty list uchar int vertex_indices\nend_header\n"
                            "nan 0 0 0 0 0\n0 0 0 0 0 0\n1 0 0 0 0 0\n0 1 0 0 0 0\n1 1 inf 0 0 0\n"
                            "3 0 1 2\n3 1 2 3\n3 2 3 4\n"));
  ply.ExpectSize(100, 0, 100, "bad.ply");
  EXPECT_EQ(ply.model.triangles, 1u);
  EXPECT_EQ(ply.model.warnings.size(), 1u);
  // The kept triangle (1, 2, 3) lies in the file's x-y plane: its normal
  // is the file's z (the world's -y). No texture coordinates, so no
  // tangents: the engine's sign for none.
  auto* mesh = FirstMesh(ply.model.root);
  ASSERT_NE(mesh, nullptr);
  const SCENE_GRAPH_MESH_DATA_INTERFACE* data = mesh->GetNodeMeshData();
  ASSERT_EQ(data->GetMeshVertexCount(), 3u);
  for (unsigned i = 0; i < data->GetMeshVertexCount(); ++i) {
    const SCENE_VERTEX v = data->GetMeshVertices()[i];
    EXPECT_NEAR(std::abs(v.normal.z), 1.0f, 1e-4f);
    EXPECT_TRUE(std::isfinite(v.position.x));
    EXPECT_TRUE(std::isnan(v.tangent.x));
  }
}

TEST(ModelRepair, BadFilesAndReadersThatHangOrCrashEndInAReason) {
  TestFolder folder;
  ImportLimits quick, small;
  quick.seconds = 0.5;
  small.bytes = uint64_t{256} << 20;
  const struct {
    std::filesystem::path file;
    ImportLimits limits;
    const char* reason;  // a part of the one-line reason
  } files[] = {
      {folder.path / "missing.obj", {}, "no such file"},
      {folder.Write("lines.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nl 1 2 3\n"), {}, "only points or lines"},
      {folder.Write("junk.obj", std::string("\x00\x01\x02garbage", 10)), {}, ""},
      {folder.path, {}, ""},
      // Cut after 60 bytes: the reader of some versions waits forever for
      // the end of the header.
      {folder.Write("cut.ply", "ply\nformat ascii 1.0          \nelement vertex 8          \npr"), quick, ""},
      // A header that claims two thousand million vertices.
      {folder.Write("huge.ply",
                    "ply\nformat ascii 1.0\nelement vertex 2000000000\nproperty float x\n"
                    "property float y\nproperty float z\nelement face 1\n"
                    "property list uchar int vertex_indices\nend_header\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n"),
       small, "memory"},
  };
  for (const auto& f : files) {
    Imported model(f.file, {}, f.limits);
    EXPECT_FALSE(model.ok) << f.file;
    EXPECT_NE(model.error.find(f.reason), std::string::npos) << model.error;
    EXPECT_FALSE(model.error.empty()) << f.file;
    EXPECT_EQ(model.error.find('\n'), std::string::npos) << model.error;
    EXPECT_EQ(model.host.TriangleCount(), 0ul) << f.file;
  }
  // The reader's own faults are played by the hook that configures it,
  // which runs in the child: one that never returns, one that crashes.
  const auto cube = folder.Write("cube.off", "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n");
  ReadModel read;
  std::string error;
  using Hook = void (*)(Assimp::Importer&);
  // A hang is stopped at the time limit; a crash or abort at once.
  const std::tuple<Hook, ImportLimits, const char*> hooks[] = {
      {[](Assimp::Importer&) {
         for (volatile bool forever = true; forever;) {
         }
       },
       quick, "reading took longer than 0.5 seconds ("},
#ifdef BRINDLEX_SANITIZED_BUILD
      // The sanitizer's handler turns the signal into an exit code.
      {[](Assimp::Importer&) { raise(SIGSEGV); }, {}, "the model reader crashed (exit code "},
#else
      {[](Assimp::Importer&) { raise(SIGSEGV); },
       {},
       "the model reader crashed (Segmentation fault; the file is probably damaged)"},
#endif
      {[](Assimp::Importer&) { abort(); }, {}, "the model reader stopped on an internal check"}};
  for (const auto& [hook, limits, reason] : hooks) {
    EXPECT_FALSE(ReadModelGuarded(cube, hook, 0, limits, read, error));
    EXPECT_EQ(error.rfind(reason, 0), 0u) << error;
  }
  ASSERT_TRUE(ReadModelGuarded(
      cube, [](Assimp::Importer&) {}, 0, {}, read, error))
      << error;
  ASSERT_NE(read.scene, nullptr);
  EXPECT_EQ(read.scene->mNumMeshes, 1u);
}

}  // namespace

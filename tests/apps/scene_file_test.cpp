#include <gtest/gtest.h>

#include "AppTestFiles.h"
#include "BrindlexViewMath.h"
#include "SceneFile.h"

namespace {

std::string ErrorOf(const std::string& text) {
  SceneDescription scene;
  std::string error;
  EXPECT_FALSE(ParseScene(text, "/tmp", scene, error)) << text;
  return error;
}

TEST(SceneFile, UnknownKeysAndWrongTypesNameTheKey) {
  EXPECT_EQ(ErrorOf(R"({"camera": {"eye": [0, 0, 0], "zoom": 2}})"), "unknown key 'camera.zoom'");
  EXPECT_EQ(ErrorOf(R"({"lightz": []})"), "unknown key 'lightz'");
  EXPECT_EQ(ErrorOf(R"({"lights": [{"type": "point", "position": [0, 0, 0], "colour": "#FFFFFF"}]})"),
            "unknown key 'lights[0].colour'");
  EXPECT_EQ(ErrorOf(R"({"renderOptions": {"DoPathTracing": true, "DoRayTracing": true}})"),
            "unknown key 'renderOptions.DoRayTracing'");
  EXPECT_EQ(ErrorOf(R"({"camera": {"fov": "wide"}})"), "'camera.fov' must be a number");
  EXPECT_EQ(ErrorOf(R"({"camera": {"eye": [1, 2]}})"), "'camera.eye' must be an array of three numbers");
  EXPECT_EQ(ErrorOf(R"({"renderOptions": {"DoPathTracing": 1}})"),
            "'renderOptions.DoPathTracing' must be true or false");
  EXPECT_EQ(ErrorOf(R"({"renderOptions": {"GetAntialiasingLevel": 2.5}})"),
            "'renderOptions.GetAntialiasingLevel' must be a whole number");
  EXPECT_EQ(ErrorOf(R"({"renderOptions": {"GetFogLevel": 150}})"),
            "'renderOptions.GetFogLevel' must be from 0 to 100");
  EXPECT_EQ(ErrorOf(R"({"background": {"color": "blue"}})"),
            "'background.color' must be a colour \"#RRGGBB\"");
  EXPECT_EQ(ErrorOf(R"({"lights": [{"type": "torch", "position": [0, 0, 0]}]})"),
            "'lights[0].type' must be one of area, direct, point, spot");
  EXPECT_EQ(ErrorOf(R"({"lights": [{"type": "spot", "position": [0, 0, 0]}]})"),
            "'lights[0].target' is needed for a spot light");
  EXPECT_EQ(ErrorOf(R"({"materials": {"Glass": {"opacity": true}}})"),
            "'materials.Glass.opacity' must be a number");
  EXPECT_EQ(ErrorOf(R"({"models": [{"up": "y"}]})"), "'models[0].file' is missing");
  EXPECT_EQ(ErrorOf(R"([1, 2])"), "the scene must be an object");
  EXPECT_EQ(ErrorOf(R"({"time": 0})"), "'time' must be above 0");
  EXPECT_EQ(ErrorOf(R"({"passes": 2.5})"), "'passes' must be a whole number");
  EXPECT_EQ(ErrorOf("{\"camera\": ").rfind("not valid JSON: ", 0), 0u);
}

constexpr const char* QuadObj =
    "mtllib quad.mtl\no Wall\nv 0 0 0\nv 4 0 0\nv 4 3 0\nv 0 3 0\n"
    "usemtl Glass\nf 1 2 3 4\n";
constexpr const char* QuadMtl = "newmtl Glass\nKd 1 1 1\n";

// The worked example of the documentation, cut down to one of each thing.
constexpr const char* Example = R"({
  "models": [{"file": "quad.obj", "up": "y"}],
  "camera": {"eye": [2, 1.5, 10], "target": [2, 1.5, 0], "fov": 40, "roll": 5},
  "lights": [
    {"type": "spot", "position": [2, 5, 4], "target": [2, 0, 0], "color": "#FF8000", "intensity": 1.5,
     "angle": 30, "softEdge": true, "castsShadows": false, "hasFalloff": true, "falloffStart": 2,
     "falloffEnd": 20},
    {"type": "area", "position": [2, 2.9, 1], "target": [2, 0, 1], "axisU": [0.5, 0, 0],
     "axisV": [0, 0, 0.25], "definitionNumber": 7}],
  "renderOptions": {"DoPathTracing": true, "GetAntialiasingLevel": 3, "GetFogLevel": 12.5,
                    "GetHighlightColor": "#00FF00", "GetBackgroundImageYOffset": -20},
  "background": {"color": "#102030", "picture": "sky.jpg", "panorama": true},
  "horizon": {"material": {"color": "#336633"}, "size": 500},
  "rotateToCamera": ["Wall"],
  "materials": {"Glass": {"opacity": 30, "reflectivity": 10, "texture": "maps/glass.png"}}
})";

TEST(SceneFile, FullExampleLoadsIntoTheHostObjects) {
  TestFolder folder;
  folder.Write("quad.obj", QuadObj);
  folder.Write("quad.mtl", QuadMtl);
  const auto file = folder.Write("scene.json", Example);
  SceneDescription scene;
  std::string error;
  ASSERT_TRUE(ReadSceneFile(file, scene, error)) << error;
  ASSERT_EQ(scene.models.size(), 1u);
  EXPECT_EQ(scene.models[0].file, folder.path / "quad.obj");
  EXPECT_EQ(scene.models[0].placement.up, UpAxis::Y);
  ASSERT_TRUE(scene.camera.eye && scene.camera.fieldOfView);
  EXPECT_FLOAT_EQ(+scene.camera.eye->z, 10.0f);
  EXPECT_FLOAT_EQ(*scene.camera.fieldOfView, 40.0f);

  HostScene host;
  host.SetTextureDirectory(folder.path);
  ImportedModel model;
  ASSERT_TRUE(ImportModel(scene.models[0].file, scene.models[0].placement, host, model, error)) << error;
  ASSERT_TRUE(ApplyScene(scene, host, error)) << error;

  // Lights: definitions as written, the instance matrix the y-up conversion.
  ASSERT_EQ(host.Lights().GetNumberOfLightInstances(), 2);
  const SCENE_LIGHT_INSTANCE* spot = host.Lights().GetLightInstance(0);
  const SCENE_LIGHT_DEFINITION s = *spot->definition;
  EXPECT_EQ(+s.type, 1);
  EXPECT_EQ(+s.color, 0x0080FFu);  // red in the low byte
  EXPECT_EQ(+s.intensity, 15);
  EXPECT_DOUBLE_EQ(+s.angle, 30.0);
  EXPECT_DOUBLE_EQ(+s.falloffEnd, 20.0);
  EXPECT_EQ(+s.flags, LightEnabled | LightDiffuse | LightSpecular | LightSoftEdge | LightHasFalloff);
  SCENE_MATRIX matrix = spot->matrix;
  SCENE_VERTEX_XYZ position = s.position;
  TransformPoint3D(&matrix, &position, &position);
  EXPECT_FLOAT_EQ(+position.x, 2.0f);
  EXPECT_FLOAT_EQ(+position.y, -4.0f);
  EXPECT_FLOAT_EQ(+position.z, 5.0f);
  const SCENE_LIGHT_DEFINITION area = *host.Lights().GetLightInstance(1)->definition;
  EXPECT_EQ(+area.type, 3);
  EXPECT_EQ(+area.definitionNumber, 7u);
  // The engine takes area axes as they stand: already turned into the world.
  EXPECT_FLOAT_EQ(+area.axisV.y, -0.25f);
  EXPECT_FLOAT_EQ(+area.axisV.z, 0.0f);

  const MODE_RENDER_OPTIONS& options = host.Options();
  EXPECT_TRUE(options.DoCustomLighting());
  EXPECT_TRUE(options.DoPathTracing());
  EXPECT_EQ(options.GetAntialiasingLevel(), 3);
  EXPECT_FLOAT_EQ(options.GetFogLevel(), 12.5f);
  EXPECT_EQ(options.GetHighlightColor(), 0x00FF00ul);
  EXPECT_EQ(options.GetBackgroundImageYOffset(), -20);
  EXPECT_EQ(options.GetBackgroundColor(), 0x302010ul);
  EXPECT_TRUE(options.UseBackgroundTexture());
  EXPECT_TRUE(options.IsBackgroundTexturePanoramic());
  EXPECT_EQ(std::string(options.GetBackgroundTextureName()), (folder.path / "sky.jpg").string());

  EXPECT_FLOAT_EQ(host.View().GetViewFileState()->GetCameraInfo()->roll, 5.0f);
  EXPECT_TRUE(host.Root()->FindNode("Wall")->GetNodeGroupData()->IsGroupRotateToCamera());

  const TEXTURE_LINK glass = *host.FindMaterials("quad:Glass").at(0)->GetTextureLink();
  EXPECT_FLOAT_EQ(glass.GetOpacityLevel(), 30.0f);
  EXPECT_NE(glass.IsTransparent(), 0);
  EXPECT_NE(glass.IsReflecting(), 0);
  EXPECT_STREQ(glass.GetTextureLinkFullFileName(), "maps/glass.png");

  ASSERT_NE(host.HorizonNode(), nullptr);
  const auto horizon = host.FindMaterials(host.HorizonMaterialID());
  ASSERT_EQ(horizon.size(), 1u);
  EXPECT_EQ(horizon[0]->GetTextureLink()->GetColor(), 0x336633ul);
  SCENE_VERTEX_XYZ min, max;
  ASSERT_TRUE(host.HorizonNode()->GetNodeBounds(&min, &max, true));
  EXPECT_FLOAT_EQ(max.x - min.x, 500.0f);
}

TEST(SceneFile, NamesThatMatchNothingAreErrors) {
  HostScene host;
  SceneDescription scene;
  std::string error;
  ASSERT_TRUE(ParseScene(R"({"rotateToCamera": ["Tree"]})", "/tmp", scene, error));
  EXPECT_FALSE(ApplyScene(scene, host, error));
  EXPECT_EQ(error, "rotateToCamera: no node is named 'Tree'");
  SceneDescription materials;
  ASSERT_TRUE(ParseScene(R"({"materials": {"Brass": {"color": "#C0A040"}}})", "/tmp", materials, error));
  EXPECT_FALSE(ApplyScene(materials, host, error));
  EXPECT_EQ(error, "materials: no material is named 'Brass'");
}

}  // namespace

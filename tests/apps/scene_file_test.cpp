#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

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
  // A range open on one side is said so, numbers as JSON writes them.
  EXPECT_EQ(ErrorOf(R"({"models": [{"file": "a.obj", "scale": 0}]})"),
            "'models[0].scale' must be at least 1e-9");
  EXPECT_EQ(ErrorOf(R"({"lights": [{"type": "point", "position": [0, 0, 0], "falloffEnd": -1}]})"),
            "'lights[0].falloffEnd' must be at least 0");
  EXPECT_EQ(ErrorOf(R"({"background": {"color": "blue"}})"),
            "'background.color' must be a colour \"#RRGGBB\"");
  EXPECT_EQ(ErrorOf(R"({"background": {"color": "#-12345"}})"),
            "'background.color' must be a colour \"#RRGGBB\"");
  EXPECT_EQ(ErrorOf(R"({"camera": {"fov": 1e400}})").rfind("not a usable value: ", 0), 0u);
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

  // Lights: definitions as written, the instance matrix the y-up conversion
  // and the metre of an OBJ file into centimetres; falloff distances scaled.
  ASSERT_EQ(host.Lights().GetNumberOfLightInstances(), 2);
  const SCENE_LIGHT_INSTANCE* spot = host.Lights().GetLightInstance(0);
  const SCENE_LIGHT_DEFINITION s = *spot->definition;
  EXPECT_EQ(+s.type, 1);
  EXPECT_EQ(+s.color, 0x0080FFu);  // red in the low byte
  EXPECT_EQ(+s.intensity, 15);
  EXPECT_DOUBLE_EQ(+s.angle, 30.0);
  EXPECT_DOUBLE_EQ(+s.falloffEnd, 2000.0);
  EXPECT_EQ(+s.flags, LightEnabled | LightDiffuse | LightSpecular | LightSoftEdge | LightHasFalloff);
  SCENE_MATRIX matrix = spot->matrix;
  SCENE_VERTEX_XYZ position = s.position;
  TransformPoint3D(&matrix, &position, &position);
  EXPECT_FLOAT_EQ(+position.x, 200.0f);
  EXPECT_FLOAT_EQ(+position.y, -400.0f);
  EXPECT_FLOAT_EQ(+position.z, 500.0f);
  const SCENE_LIGHT_DEFINITION area = *host.Lights().GetLightInstance(1)->definition;
  EXPECT_EQ(+area.type, 3);
  EXPECT_EQ(+area.definitionNumber, 7u);
  // The engine takes area axes as they stand: already turned into the world.
  EXPECT_FLOAT_EQ(+area.axisV.y, -25.0f);
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
  // 500 file units (metres) are 50000 world centimetres.
  EXPECT_FLOAT_EQ(max.x - min.x, 50000.0f);
}

// Options as a scene file's renderOptions leave them on a new view.
MODE_RENDER_OPTIONS OptionsOf(const std::string& renderOptions) {
  SceneDescription scene;
  std::string error;
  EXPECT_TRUE(ParseScene(R"({"renderOptions": )" + renderOptions + "}", "/scenes", scene, error)) << error;
  MODE_RENDER_OPTIONS options;
  for (const auto& apply : scene.options) apply(options);
  // Lengths as the file gives them: one world unit to the file's unit.
  for (const auto& apply : scene.lengthOptions) apply(options, 1.0);
  return options;
}

TEST(SceneFile, EveryRenderOptionHasAPlainKeyAndKeepsItsGetterName) {
  using O = const MODE_RENDER_OPTIONS&;
  struct Case {
    const char *key, *getter, *value;  // a value that no new view has
    std::function<bool(O)> holds;
  };
  const std::vector<Case> cases = {
      {"pathTracing", "DoPathTracing", "true", [](O o) { return o.DoPathTracing(); }},
      {"customLighting", "DoCustomLighting", "true", [](O o) { return o.DoCustomLighting(); }},
      {"lighting", "DoLighting", "false", [](O o) { return !o.DoLighting(); }},
      {"photonMapping", "DoPhotonMapping", "true", [](O o) { return o.DoPhotonMapping(); }},
      {"indirectLighting", "DoIndirectLighting", "true", [](O o) { return o.DoIndirectLighting(); }},
      {"softShadows", "DoRayTracedSoftShadows", "false", [](O o) { return !o.DoRayTracedSoftShadows(); }},
      {"shadows", "DisplayShadows", "false", [](O o) { return !o.DisplayShadows(); }},
      {"allShadows", "ShouldCalculateAllShadows", "true", [](O o) { return o.ShouldCalculateAllShadows(); }},
      {"ambientOcclusion", "DoAmbientOcclusion", "true", [](O o) { return o.DoAmbientOcclusion(); }},
      {"reflections", "DoReflections", "false", [](O o) { return !o.DoReflections(); }},
      {"bumpMapping", "DoBumpMapping", "false", [](O o) { return !o.DoBumpMapping(); }},
      {"emissiveMaterial", "DoEmissiveMaterial", "false", [](O o) { return !o.DoEmissiveMaterial(); }},
      {"useAntialiasing", "DoAntiAliasing", "false", [](O o) { return !o.DoAntiAliasing(); }},
      {"antialiasing", "GetAntialiasingLevel", "3", [](O o) { return o.GetAntialiasingLevel() == 3; }},
      {"toneMapping", "DoHDRTonalMapping", "true", [](O o) { return o.DoHDRTonalMapping(); }},
      {"toneMappingLevel", "GetHDRTonalMappingLevel", "40",
       [](O o) { return o.GetHDRTonalMappingLevel() == 40.0f; }},
      {"toneMappingGamma", "ApplyHDRGamma", "false", [](O o) { return !o.ApplyHDRGamma(); }},
      {"highlightColor", "GetHighlightColor", R"("#123456")",
       [](O o) { return o.GetHighlightColor() == 0x563412ul; }},
      {"disableSymbolLights", "DisableSymbolLights", "true", [](O o) { return o.DisableSymbolLights(); }},
      {"headlight", "IsHeadlightOn", "true", [](O o) { return o.IsHeadlightOn(); }},
      {"headlightLevel", "GetHeadlightLightLevel", "25",
       [](O o) { return o.GetHeadlightLightLevel() == 25; }},
      {"ambientLightLevel", "GetAmbientLightLevel", "0.5",
       [](O o) { return o.GetAmbientLightLevel() == 0.5f; }},
      {"indirectBounces", "GetNumberOfIndirectBounces", "5",
       [](O o) { return o.GetNumberOfIndirectBounces() == 5; }},
      {"photonLevel", "GetPhotonLevel", "7", [](O o) { return o.GetPhotonLevel() == 7; }},
      {"photonEnergy", "GetPhotonEnergy", "11", [](O o) { return o.GetPhotonEnergy() == 11; }},
      {"photonSampleLevel", "GetPhotonSampleLevel", "13", [](O o) { return o.GetPhotonSampleLevel() == 13; }},
      {"photonRadius", "GetPhotonRadius", "2.5", [](O o) { return o.GetPhotonRadius() == 2.5f; }},
      {"photonDirectLighting", "GetPhotonDirectLightingContribution", "30",
       [](O o) { return o.GetPhotonDirectLightingContribution() == 30.0f; }},
      {"fogLevel", "GetFogLevel", "12.5", [](O o) { return o.GetFogLevel() == 12.5f; }},
      {"mistLevel", "GetMistLevel", "20", [](O o) { return o.GetMistLevel() == 20.0f; }},
      {"mistOffset", "GetMistOffset", "-3", [](O o) { return o.GetMistOffset() == -3.0f; }},
      {"backgroundColor", "GetBackgroundColor", R"("#102030")",
       [](O o) { return o.GetBackgroundColor() == 0x302010ul; }},
      {"useBackgroundTexture", "UseBackgroundTexture", "true", [](O o) { return o.UseBackgroundTexture(); }},
      {"backgroundPanoramic", "IsBackgroundTexturePanoramic", "true",
       [](O o) { return o.IsBackgroundTexturePanoramic(); }},
      {"backgroundXOffset", "GetBackgroundImageXOffset", "-20",
       [](O o) { return o.GetBackgroundImageXOffset() == -20; }},
      {"backgroundYOffset", "GetBackgroundImageYOffset", "15",
       [](O o) { return o.GetBackgroundImageYOffset() == 15; }},
      {"faces", "DisplayFaces", "false", [](O o) { return !o.DisplayFaces(); }},
      {"faceDisplayType", "GetFaceDisplayType", "0", [](O o) { return o.GetFaceDisplayType() == 0; }},
      {"faceOpacity", "GetFaceOpacityLevel", "60", [](O o) { return o.GetFaceOpacityLevel() == 60.0f; }},
      {"useFaceTextureScale", "UseFaceTextureScale", "true", [](O o) { return o.UseFaceTextureScale(); }},
      {"faceTextureScale", "GetFaceTextureScale", "50", [](O o) { return o.GetFaceTextureScale() == 50.0f; }},
      {"monochromeFaceColor", "GetMonochromeFaceColor", R"("#FF0000")",
       [](O o) { return o.GetMonochromeFaceColor() == 0x0000FFul; }},
      {"backgroundTexture", "GetBackgroundTexture", R"("sky.jpg")",
       [](O o) { return std::string(o.GetBackgroundTextureName()) == "/scenes/sky.jpg"; }},
  };
  const MODE_RENDER_OPTIONS fresh;
  for (const Case& c : cases) {
    EXPECT_FALSE(c.holds(fresh)) << c.key << ": the test value is the default";
    for (const char* name : {c.key, c.getter})
      EXPECT_TRUE(c.holds(OptionsOf("{\"" + std::string(name) + "\": " + c.value + "}"))) << name;
  }
  // A key and its getter name set one option: only one of them may be given.
  EXPECT_EQ(ErrorOf(R"({"renderOptions": {"antialiasing": 2, "GetAntialiasingLevel": 3}})"),
            "'renderOptions.antialiasing' sets the same option as 'renderOptions.GetAntialiasingLevel'");
  // Out of range: the error names the key as written and the range.
  EXPECT_EQ(ErrorOf(R"({"renderOptions": {"antialiasing": 5}})"),
            "'renderOptions.antialiasing' must be from 0 to 4");
  EXPECT_EQ(ErrorOf(R"({"renderOptions": {"fogLevel": -1}})"),
            "'renderOptions.fogLevel' must be from 0 to 100");
  EXPECT_EQ(ErrorOf(R"({"renderOptions": {"photonLevel": 70000}})"),
            "'renderOptions.photonLevel' must be from 0 to 65535");
}

// The rows of the renderOptions table in docs/scene-format.md, each cell
// trimmed: key, getter name, type, default, range.
std::vector<std::vector<std::string>> DocumentedRenderOptions() {
  std::ifstream doc(BRINDLEX_SCENE_FORMAT_DOC);
  std::vector<std::vector<std::string>> rows;
  bool inSection = false;
  for (std::string line; std::getline(doc, line);) {
    if (line.rfind("### ", 0) == 0) inSection = line == "### `renderOptions`";
    if (!inSection || line.rfind("| `", 0) != 0) continue;
    std::vector<std::string> cells;
    std::istringstream row(line.substr(1));
    for (std::string cell; std::getline(row, cell, '|');) {
      const size_t first = cell.find_first_not_of(' '), last = cell.find_last_not_of(' ');
      cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
    }
    for (std::string& cell : cells)
      if (cell.size() > 2 && cell.front() == '`' && cell.back() == '`')
        cell = cell.substr(1, cell.size() - 2);
    rows.push_back(cells);
  }
  return rows;
}

TEST(SceneFile, TheDocumentedKeysAndRangesAreTheOnesReadThere) {
  const auto rows = DocumentedRenderOptions();
  ASSERT_EQ(rows.size(), 43u);  // every option of the view, counted by hand
  for (const auto& row : rows) {
    ASSERT_EQ(row.size(), 5u) << row[0];
    const std::string &key = row[0], &getter = row[1], &type = row[2], &range = row[4];
    const size_t to = range.find(" to ");
    std::string inside = "true", outside;
    if (to != std::string::npos) {
      const double high = std::stod(range.substr(to + 4));
      inside = range.substr(0, to);
      std::ostringstream above;
      above << (type.rfind("whole number", 0) == 0 ? high + 1 : high * 2);
      outside = above.str();
    } else if (type.rfind("`\"#", 0) == 0 || type.rfind("\"#", 0) == 0) {
      inside = R"("#000000")";
    } else if (type == "file name") {
      inside = R"("sky.jpg")";
    }
    // Both names are read and set one option.
    EXPECT_EQ(
        ErrorOf("{\"renderOptions\": {\"" + key + "\": " + inside + ", \"" + getter + "\": " + inside + "}}"),
        "'renderOptions." + std::max(key, getter) + "' sets the same option as 'renderOptions." +
            std::min(key, getter) + "'");
    // Just beyond the documented range is an error that quotes the range.
    if (outside.empty()) continue;
    for (const std::string& name : {key, getter})
      EXPECT_EQ(ErrorOf("{\"renderOptions\": {\"" + name + "\": " + outside + "}}"),
                "'renderOptions." + name + "' must be from " + range);
  }
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

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "AppTestFiles.h"
#include "host/BrindlexViewMath.h"
#include "SceneFile.h"

namespace {

std::string ErrorOf(const std::string& text) {
  SceneDescription scene;
  std::string error;
  EXPECT_FALSE(ParseScene(text, "/tmp", scene, error)) << text;
  return error;
}

TEST(SceneFile, BadKeysAndValuesNameTheKey) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"lights": [{"type": "point", "position": [0, 0, 0], "colour": "#FFFFFF"}]})",
       "unknown key 'lights[0].colour'"},
      {R"({"renderOptions": {"DoPathTracing": true, "DoRayTracing": true}})",
       "unknown key 'renderOptions.DoRayTracing'"},
      {R"({"camera": {"fov": "wide"}})", "'camera.fov' must be a number"},
      {R"({"camera": {"eye": [1, 2]}})", "'camera.eye' must be an array of three numbers"},
      {R"({"renderOptions": {"DoPathTracing": 1}})", "'renderOptions.DoPathTracing' must be true or false"},
      {R"({"renderOptions": {"GetAntialiasingLevel": 2.5}})",
       "'renderOptions.GetAntialiasingLevel' must be a whole number"},
      // A range open on one side is said so, numbers as JSON writes them.
      {R"({"models": [{"file": "a.obj", "scale": 0}]})", "'models[0].scale' must be at least 1e-9"},
      {R"({"lights": [{"type": "point", "position": [0, 0, 0], "falloffEnd": -1}]})",
       "'lights[0].falloffEnd' must be at least 0"},
      {R"({"background": {"color": "#-12345"}})", "'background.color' must be a colour \"#RRGGBB\""},
      {R"({"lights": [{"type": "torch", "position": [0, 0, 0]}]})",
       "'lights[0].type' must be one of area, direct, point, spot"},
      {R"({"lights": [{"type": "spot", "position": [0, 0, 0]}]})",
       "'lights[0].target' is needed for a spot light"},
      {R"({"models": [{"up": "y"}]})", "'models[0].file' is missing"},
      {R"([1, 2])", "the scene must be an object"},
      {R"({"time": 0})", "'time' must be above 0"},
      // Quoted keys keep the message on one line.
      {"{\"a\\nb\": 1}", "unknown key 'a\\nb'"},
  };
  for (const auto& [text, message] : cases) EXPECT_EQ(ErrorOf(text), message);
  EXPECT_EQ(ErrorOf(R"({"camera": {"fov": 1e400}})").rfind("not a usable value: ", 0), 0u);
  EXPECT_EQ(ErrorOf("{\"camera\": ").rfind("not valid JSON: ", 0), 0u);
}

constexpr const char* QuadObj =
    "mtllib quad.mtl\no Wall\nv 0 0 0\nv 4 0 0\nv 4 3 0\nv 0 3 0\n"
    "usemtl Glass\nf 1 2 3 4\n";
constexpr const char* QuadMtl = "newmtl Glass\nKd 1 1 1\n";

// The worked example of the documentation, cut down to one of each thing.
constexpr const char* Example = R"({
  "models": [{"file": "quad.obj", "up": "y"}],
  "camera": {"eye": [2, 1.5, 10], "target": [2, 1.5, 0], "fov": 40, "roll": 5, "projection": "parallel",
             "parallelHeight": 3},
  "lights": [
    {"type": "spot", "position": [2, 5, 4], "target": [2, 0, 0], "color": "#FF8000", "intensity": 1.5,
     "angle": 30, "softEdge": true, "castsShadows": false, "hasFalloff": true, "falloffStart": 2,
     "falloffEnd": 20},
    {"type": "area", "position": [2, 2.9, 1], "target": [2, 0, 1], "axisU": [0.5, 0, 0],
     "axisV": [0, 0, 0.25], "definitionNumber": 7}],
  "renderOptions": {"DoPathTracing": true, "mistOffset": 2},
  "background": {"color": "#102030", "picture": "sky.jpg", "panorama": true},
  "horizon": {"material": {"color": "#336633"}, "size": 500},
  "rotateToCamera": ["Wall"],
  "materials": {"Glass": {"opacity": 30, "reflectivity": 10, "texture": "maps/glass.png"}}
})";

TEST(SceneFile, FullExampleLoadsIntoTheHostObjects) {
  TestFolder folder;
  folder.Write("quad.obj", QuadObj);
  folder.Write("quad.mtl", QuadMtl);
  SceneDescription scene;
  std::string error;
  ASSERT_TRUE(ReadSceneFile(folder.Write("scene.json", Example), scene, error)) << error;
  ASSERT_EQ(scene.models.size(), 1u);
  // The camera's eye and field of view are the program's to apply (after
  // any framing): read here.
  ASSERT_TRUE(scene.camera.eye);
  EXPECT_EQ(std::tuple(scene.camera.eye->z, scene.camera.fieldOfView), std::tuple(10.0f, 40.0f));

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
  // Red in the low byte of the colour.
  EXPECT_EQ(std::tuple(+s.type, +s.color, +s.intensity, +s.angle, +s.falloffEnd),
            std::tuple(1, 0x0080FFu, 15, 30.0, 2000.0));
  EXPECT_EQ(+s.flags, LightEnabled | LightDiffuse | LightSpecular | LightSoftEdge | LightHasFalloff);
  SCENE_MATRIX matrix = spot->matrix;
  SCENE_VERTEX_XYZ position = s.position;
  TransformPoint3D(&matrix, &position, &position);
  ExpectPoint(position, 200, -400, 500);
  const SCENE_LIGHT_DEFINITION area = *host.Lights().GetLightInstance(1)->definition;
  EXPECT_EQ(std::tuple(+area.type, +area.definitionNumber), std::tuple(3, 7u));
  // The engine takes area axes as they stand: already turned into the world.
  ExpectPoint(area.axisV, 0, -25, 0);

  // Lengths among the options, like the parallel view's height, are in the
  // file's metres: 2 and 3 m are 200 and 300 cm.
  const MODE_RENDER_OPTIONS& options = host.Options();
  EXPECT_TRUE(options.DoCustomLighting() && options.DoPathTracing());
  EXPECT_FLOAT_EQ(options.GetMistOffset(), 200.0f);
  EXPECT_EQ(options.GetBackgroundColor(), 0x302010ul);
  EXPECT_TRUE(options.UseBackgroundTexture() && options.IsBackgroundTexturePanoramic());
  EXPECT_EQ(std::string(options.GetBackgroundTextureName()), (folder.path / "sky.jpg").string());
  const SCENE_CAMERA_INFO camera = *host.View().GetViewFileState()->GetCameraInfo();
  EXPECT_EQ(std::tuple(camera.roll, camera.parallelHeight), std::tuple(5.0f, 300.0f));
  EXPECT_EQ(host.View().GetProjectionType(), ENVIRONMENT_3D_VIEW::ParallelProjection);
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
  EXPECT_FLOAT_EQ(max.x - min.x, 50000.0f);  // 500 m
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

// The rows of the renderOptions table in docs/scene-format.md, each cell
// trimmed of spaces and backticks: key, getter name, type, default, range.
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
      const size_t first = cell.find_first_not_of(" `"), last = cell.find_last_not_of(" `");
      cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
    }
    rows.push_back(cells);
  }
  return rows;
}

// A colour "#RRGGBB" as the engine keeps it, red in the low byte.
double ColorValue(const std::string& text) {
  const unsigned long rgb = std::stoul(text.substr(2, 6), nullptr, 16);
  return double((rgb >> 16) | (rgb & 0xFF00) | (rgb & 0xFF) << 16);
}

// Every render option's getter by name, its value as a number. The
// background picture's name is read from the scene file's folder.
using O = const MODE_RENDER_OPTIONS&;
double BackgroundTexture(O o) {
  return std::string(o.GetBackgroundTextureName()) == "/scenes/sky.jpg";
}
// clang-format off
#define G(getter) {#getter, [](O o) { return double(o.getter()); }}
const std::map<std::string, double (*)(O)> Getters = {
    {"GetBackgroundTexture", BackgroundTexture}, G(DoPathTracing), G(DoCustomLighting), G(DoLighting),
    G(DoPhotonMapping), G(DoIndirectLighting), G(DoRayTracedSoftShadows), G(DisplayShadows),
    G(ShouldCalculateAllShadows), G(DoAmbientOcclusion), G(DoReflections), G(DoBumpMapping),
    G(DoEmissiveMaterial), G(DoAntiAliasing), G(GetAntialiasingLevel), G(DoHDRTonalMapping),
    G(GetHDRTonalMappingLevel), G(ApplyHDRGamma), G(GetHighlightColor), G(DisableSymbolLights),
    G(IsHeadlightOn), G(GetHeadlightLightLevel), G(GetAmbientLightLevel), G(GetNumberOfIndirectBounces),
    G(GetPhotonLevel), G(GetPhotonEnergy), G(GetPhotonSampleLevel), G(GetPhotonRadius),
    G(GetPhotonDirectLightingContribution), G(GetFogLevel), G(GetMistLevel), G(GetMistOffset),
    G(GetBackgroundColor), G(UseBackgroundTexture), G(IsBackgroundTexturePanoramic),
    G(GetBackgroundImageXOffset), G(GetBackgroundImageYOffset), G(DisplayFaces), G(GetFaceDisplayType),
    G(GetFaceOpacityLevel), G(UseFaceTextureScale), G(GetFaceTextureScale), G(GetMonochromeFaceColor)};
// clang-format on
#undef G

// A value that a new view does not have, within the documented range: as
// the scene file writes it, and as the getter reads it.
std::pair<std::string, double> TestValue(const std::string& type, const std::string& fallback,
                                         const std::string& range) {
  if (fallback == "none") return {"\"sky.jpg\"", 1};
  if (fallback[0] == '"') return {"\"#123456\"", ColorValue("\"#123456\"")};
  if (type.rfind("bool", 0) == 0)
    return fallback[0] == 't' ? std::pair("false", 0.0) : std::pair("true", 1.0);
  const double low = std::stod(range), high = std::stod(range.substr(range.find(" to ") + 4));
  const double fresh = std::stod(fallback);
  double value = fresh == high ? (low + high) / 2 : (fresh + std::min(high, fresh + 2)) / 2;
  if (type.rfind("whole number", 0) == 0) value = std::floor(value);
  std::ostringstream text;
  text << value;
  return {text.str(), value};
}

TEST(SceneFile, EveryDocumentedRenderOptionIsReadWithItsDefaultAndRange) {
  const auto rows = DocumentedRenderOptions();
  ASSERT_EQ(rows.size(), 43u);  // every option of the view, counted by hand
  const MODE_RENDER_OPTIONS fresh;
  for (const auto& row : rows) {
    ASSERT_EQ(row.size(), 5u) << row[0];
    const std::string &key = row[0], &getter = row[1], &type = row[2], &fallback = row[3], &range = row[4];
    ASSERT_EQ(Getters.count(getter), 1u) << key << ": " << getter;
    const auto read = Getters.at(getter);
    // The documented default is a new view's (a bool's may say more after it).
    if (fallback[0] == '"') {
      EXPECT_EQ(read(fresh), ColorValue(fallback)) << key;
    } else if (fallback != "none") {
      EXPECT_FLOAT_EQ(read(fresh), type.rfind("bool", 0) == 0 ? fallback[0] == 't' : std::stod(fallback))
          << key;
    }
    // Either name sets the option.
    const auto [value, expected] = TestValue(type, fallback, range);
    EXPECT_NE(read(fresh), expected) << key << ": the test value is the default";
    for (const std::string& name : {key, getter})
      EXPECT_FLOAT_EQ(read(OptionsOf("{\"" + name + "\": " + value + "}")), expected) << name;
    // Just beyond the documented range is an error that quotes the range.
    const size_t to = range.find(" to ");
    if (to == std::string::npos) continue;
    const double high = std::stod(range.substr(to + 4));
    std::ostringstream outside;
    outside << (type.rfind("whole number", 0) == 0 ? high + 1 : high * 2);
    for (const std::string& name : {key, getter})
      EXPECT_EQ(ErrorOf("{\"renderOptions\": {\"" + name + "\": " + outside.str() + "}}"),
                "'renderOptions." + name + "' must be from " + range);
  }
}

}  // namespace

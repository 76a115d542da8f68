// A small host scene built in code and rendered through UpdateFrame and
// RenderFrame into a frame buffer with no window on screen, for tests that
// check pictures. Positions and cameras are given in world coordinates.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "host/BrindlexTexture.h"
#include "host/BrindlexViewMath.h"
#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "PipelineTestAccess.h"
#include "SceneTestAccess.h"
#include "ShadingTestAccess.h"
#include "platform/Window.h"

class RenderScene {
 public:
  RenderScene(int width, int height) : width(width), height(height), window(width, height) {
    std::string pattern = testing::TempDir() + "render-scene-XXXXXX";
    if (mkdtemp(pattern.data())) folder = pattern + "/";
    // The texture cache goes to the temporary folder: keep it in ours.
    setenv("TMPDIR", folder.c_str(), 1);
    engine->Initialize(folder.c_str(), "", "", "", nullptr, nullptr);
    engine->InitializeRendererWindow(&window, nullptr);
    materials = project.CreateMaterialRoot(0);
    Options().SetAntiAliasing(false);
    SetCamera({0, 0, 10}, {0, 0, 0});
  }
  ~RenderScene() {
    engine->Release();
    unsetenv("TMPDIR");
    std::filesystem::remove_all(folder);
  }

  MODE_RENDER_OPTIONS& Options() { return view->GetRenderOptions(); }
  ENVIRONMENT_3D_VIEW* View() { return view; }
  SCENE_LIGHTS* Lights() { return project.GetSceneLights(); }

  // A material of its own settings, edited by `setUp` from the defaults.
  MATERIAL_3D_NODE* Material(const char* id, const std::function<void(TEXTURE_LINK&)>& setUp,
                             bool visible = true) {
    MATERIAL_3D_NODE* node = scene_test::Material(materials, id, visible);
    Restyle(node, setUp);
    return node;
  }
  // Gives `node` new settings, edited by `setUp` from the defaults; the
  // next update takes them.
  static void Restyle(MATERIAL_3D_NODE* node, const std::function<void(TEXTURE_LINK&)>& setUp) {
    TEXTURE_LINK link;
    setUp(link);
    node->SetTextureLink(&link);
  }
  // A mesh under a group of its own with material `materialID`.
  void Mesh(const char* materialID, const std::vector<SCENE_VERTEX>& vertices,
            const std::vector<unsigned int>& indices) {
    const std::string name = "mesh" + std::to_string(++meshes);
    auto* node = new SCENE_GRAPH_NODE(name.c_str());
    node->CreateNodeMeshData()->SetMeshData(vertices.data(), unsigned(vertices.size()), indices.data(),
                                            unsigned(indices.size()));
    scene_test::Group(root, name.c_str(), materialID)->AddChildNode(node);
  }
  // The quad a, b, c, d (in order round it) as two triangles; texture
  // coordinates run (0,0), (1,0), (1,1), (0,1) from a, scaled by `repeat`.
  void Quad(const char* materialID, SCENE_VERTEX_XYZ a, SCENE_VERTEX_XYZ b, SCENE_VERTEX_XYZ c,
            SCENE_VERTEX_XYZ d, float repeat = 1.0f) {
    SCENE_VERTEX_XYZ e1 = {b.x - a.x, b.y - a.y, b.z - a.z}, e2 = {d.x - a.x, d.y - a.y, d.z - a.z}, n;
    CrossProduct(&e1, &e2, &n);
    GetUnitVector(&n, &n);
    const auto vertex = [&](SCENE_VERTEX_XYZ p, float u, float v) {
      SCENE_VERTEX_XYZ tangent;
      GetUnitVector(&e1, &tangent);
      return SCENE_VERTEX{p, n, u * repeat, v * repeat, tangent};
    };
    Mesh(materialID, {vertex(a, 0, 0), vertex(b, 1, 0), vertex(c, 1, 1), vertex(d, 0, 1)},
         {0, 1, 2, 0, 2, 3});
  }
  // A PNG of 32-bit pixels in the texture folder; `bgra(x, y)` gives the
  // pixel with blue in the low byte, y counted from the top. Returns the
  // name that materials use.
  std::string Picture(const char* name, int w, int h, const std::function<uint32_t(int x, int y)>& bgra) {
    ATL::CImage image;
    EXPECT_NE(image.Create(w, h, 32), 0);
    const platform::PixelSurface s = image.Surface();
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x)
        for (int c = 0; c < 4; ++c) s.Row(y)[4 * x + c] = uint8_t(bgra(x, y) >> (8 * c));
    EXPECT_TRUE(SavePictureFile((folder + name).c_str(), s, PictureFileFormat::Png));
    return name;
  }
  // The camera record keeps y with the opposite sign to the world.
  void SetCamera(SCENE_VERTEX_XYZ eye, SCENE_VERTEX_XYZ lookAt, float fieldOfView = 60.0f) {
    view->GetViewFileState()->SetCameraInfo(
        {{eye.x, -eye.y, eye.z}, {lookAt.x, -lookAt.y, lookAt.z}, fieldOfView, 10.0f, 0.0f});
  }
  // A scene update (a new frame tag, so everything is rebuilt) and a frame.
  void Update() {
    engine->UpdateFrame(&project, view, project.GetSceneGraph(), project.GetSceneLights(), nullptr, nullptr,
                        0, ++frameTag);
  }
  // A scene update under the last frame tag: only what follows the camera
  // and the lights is brought up to date.
  void UpdateAgain() {
    engine->UpdateFrame(&project, view, project.GetSceneGraph(), project.GetSceneLights(), nullptr, nullptr,
                        0, frameTag);
  }
  void Render() {
    Update();
    engine->RenderFrame(&project, view, project.GetSceneGraph(), {0, 0, width, height}, true);
  }

  // The shaded colour of pixel (x, y), y from the top, before tone mapping.
  SCENE_VERTEX_XYZW Color(int x, int y) { return pipeline.FrameHDR()[size_t(y) * width + x]; }

  const int width, height;
  RT_RENDER_ENGINE* engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
  PipelineTestAccess pipeline{engine};

 private:
  platform::NullWindow window;
  std::string folder;
  ENVIRONMENT_3D_PROJECT project;
  ENVIRONMENT_3D_VIEW* view = project.GetView(0);
  SCENE_GRAPH_NODE_INTERFACE* root = project.GetSceneGraph()->GetSceneGraphNode("Scene Graph Root");
  MATERIAL_3D_NODE* materials = nullptr;
  int meshes = 0;
  int64_t frameTag = 0;
};

// A white 40 x 40 quad "Surface" at z = 0 over a wall "Wall" at z = -2
// (red 128, the background black), shaded by rays straight down from
// z = 5 through ShadePixel.
class SurfaceScene : public RenderScene {
 public:
  explicit SurfaceScene(const std::function<void(TEXTURE_LINK&)>& style) : RenderScene(8, 8) {
    surface = Material("Surface", style);
    Material("Wall", [](TEXTURE_LINK& l) { l.SetColor(0x00000080); });
    Quad("Surface", {-20, -20, 0}, {20, -20, 0}, {20, 20, 0}, {-20, 20, 0});
    Quad("Wall", {-20, -20, -2}, {20, -20, -2}, {20, 20, -2}, {-20, 20, -2});
    Options().SetBackgroundColor(0);
  }
  // The colour of the ray down from (x, y, 5), shaded at `depth` in a
  // frame whose fog runs from 1 to `farDistance`.
  SCENE_VERTEX_XYZW Shade(double x = 0, double y = 0, uint32_t depth = 0, float farDistance = 100.0f) {
    PixelRaySample sample = CameraRay({x, y, 5}, {0, 0, -1});
    ShadingTestAccess(engine).ShadeGroup(View(), Options(), &sample, 1, 1.0f, farDistance, depth);
    return sample.color;
  }

  MATERIAL_3D_NODE* surface = nullptr;
};

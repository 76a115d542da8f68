#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "LightingTestAccess.h"
#include "PipelineTestAccess.h"
#include "SceneTestAccess.h"
#include "platform/Window.h"

using namespace lighting_test;
using namespace scene_test;

namespace {

// A white floor, seen from 100 above (1 off the vertical) through a narrow
// lens, so that the middle pixel looks at the floor's centre, where the
// light at the eye falls at a cosine within 1e-4 of 1. Ambient level 50 and
// diffuse level 20 keep the lit value below the clamp at 1.
class LightingRenderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    engine->InitializeRendererWindow(&window, nullptr);
    TEXTURE_LINK link;
    link.SetAmbientLevel(50);
    link.SetDiffuseLevel(20);
    link.SetSpecularLevel(0);
    Material(project.CreateMaterialRoot(0), "Floor")->SetTextureLink(&link);
    SCENE_GRAPH_NODE_INTERFACE* root = project.GetSceneGraph()->GetSceneGraphNode("Scene Graph Root");
    Group(root, "Floor", "Floor")->AddChildNode(QuadsNode("floor", {LevelSquare(100, 0)}));
    view->GetViewFileState()->SetCameraInfo({{0, -1, 100}, {0, 0, 0}, 5, 10, 0});
    Options().SetAntiAliasing(false);
  }
  void TearDown() override { engine->Release(); }

  MODE_RENDER_OPTIONS& Options() { return view->GetRenderOptions(); }
  // The linear colour of the middle pixel of a 9 x 9 frame.
  SCENE_VERTEX_XYZW RenderMiddle() {
    engine->UpdateFrame(&project, view, project.GetSceneGraph(), project.GetSceneLights(), nullptr, nullptr,
                        0, 1);
    engine->RenderFrame(&project, view, project.GetSceneGraph(), {0, 0, 9, 9}, false);
    return PipelineTestAccess(engine).FrameHDR()[4 * 9 + 4];
  }

  platform::RecordingWindow window{9, 9};
  RT_RENDER_ENGINE* engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
  ENVIRONMENT_3D_PROJECT project;
  ENVIRONMENT_3D_VIEW* view = project.GetView(0);
};

}  // namespace

TEST_F(LightingRenderTest, DefaultLightsLightTheFloor) {
  // Ambient 0.5 * 0.3, then diffuse 0.2 times: the light at the eye, 0.7
  // straight down, and the direct light from (-50, -50, 100), 2.0 at a
  // cosine of 100 / sqrt(15000).
  const SCENE_VERTEX_XYZW pixel = RenderMiddle();
  const double expected = 0.15 + 0.2 * (0.7 + 2.0 * 100.0 / std::sqrt(15000.0));
  EXPECT_NEAR(pixel.x, expected, 1e-4);
  EXPECT_NEAR(pixel.z, expected, 1e-4);
}

TEST_F(LightingRenderTest, CustomLightingWithTheHeadlightLightsTheFloor) {
  // No light of the project's own: only the headlight, level 10, at the eye.
  Options().SetCustomLighting(true);
  Options().SetHeadlight(true);
  Options().SetHeadlightLightLevel(10);
  const SCENE_VERTEX_XYZW pixel = RenderMiddle();
  EXPECT_NEAR(pixel.y, 0.5 * 0.3 + 0.2 * 1.0, 1e-4);
  Options().SetHeadlight(false);
  EXPECT_NEAR(RenderMiddle().y, 0.5 * 0.3, 1e-4);  // ambient alone
}

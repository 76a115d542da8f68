#include <gtest/gtest.h>

#include "EngineTestAccess.h"
#include "RenderScene.h"
#include "TestDoubles.h"
#include "host/brindlexutil.h"

TEST(EngineLifecycle, OneWorkerPerProcessorFromInitializeToShutDown) {
  // Reference counting destroys at zero, even without Initialize.
  RENDER_ENGINE_INTERFACE* unused = CreateRenderEngine();
  EXPECT_EQ(unused->AddRef(), 2u);
  EXPECT_EQ(unused->Release(), 1u);
  EXPECT_EQ(unused->Release(), 0u);  // ASan reports any leak
  auto* engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
  for (int start = 0; start < 2; ++start) {  // the engine starts again after ShutDown
    EXPECT_EQ(engine->GetProcessorCount(), 0u);
    engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(engine->GetProcessorCount(), ::GetProcessorCount());
    EXPECT_EQ(EngineTestAccess(engine).CoreTokens(),
              long(::GetProcessorCount()));  // each idle worker's token
    if (start == 1) break;
    engine->ShutDown();
    engine->ShutDown();  // twice does no harm
  }
  engine->Release();  // the destructor shuts down the running workers
}

TEST(EngineLifecycle, AModelNotificationMakesTheNextUpdateRebuild) {
  // Green ground seen from above; a blue roof is added to the host's graph
  // between the eye and the ground.
  SurfaceScene scene([](TEXTURE_LINK& l) { l.SetColor(0x0000FF00); });
  scene.Options().SetLighting(false);
  scene.Update();
  scene.Material("Roof", [](TEXTURE_LINK& l) { l.SetColor(0x00FF0000); });
  scene.Quad("Roof", {-20, -20, 3}, {-20, 20, 3}, {20, 20, 3}, {20, -20, 3});
  scene.UpdateAgain();  // the same frame tag and no notification: nothing is rebuilt
  ExpectColor(scene.Shade(), 0, 1, 0, 1);
  scene.engine->ModifyBackground();
  scene.UpdateAgain();
  ExpectColor(scene.Shade(), 0, 0, 1, 1);
  // Shutting the model down forgets the frame until the next render.
  scene.Render();
  EXPECT_EQ(scene.engine->QueryRenderer(6), 1);
  scene.engine->ShutDownModel();
  EXPECT_EQ(scene.engine->QueryRenderer(6), 0);
}

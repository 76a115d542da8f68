#include <gtest/gtest.h>

#include <string>

#include "EngineTestAccess.h"
#include "LogCapture.h"
#include "RenderScene.h"
#include "TestDoubles.h"
#include "host/brindlexutil.h"

TEST(EngineLifecycle, WorkersStartOnePerProcessorAndShutDownLogsEach) {
  // Reference counting destroys at zero, even without Initialize.
  RENDER_ENGINE_INTERFACE* unused = CreateRenderEngine();
  EXPECT_EQ(unused->AddRef(), 2u);
  EXPECT_EQ(unused->Release(), 1u);
  EXPECT_EQ(unused->Release(), 0u);  // ASan reports any leak
  auto* engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
  EXPECT_EQ(engine->GetProcessorCount(), 0u);  // no workers before Initialize
  const unsigned long processors = ::GetProcessorCount();
  std::vector<std::string> lines;
  {
    LogCapture log;
    engine->Initialize("t", nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(engine->GetProcessorCount(), processors);
    EXPECT_EQ(EngineTestAccess(engine).CoreTokens(), long(processors));  // each idle worker left its token
    engine->ShutDown();
    lines = log.Lines();
  }
  ASSERT_EQ(lines.size(), 2 * processors);
  for (unsigned long i = 0; i < processors; ++i) {
    const std::string prefix = std::to_string(i) + " - Software Raytrace Thread Identifier = ";
    ASSERT_EQ(lines[i].rfind(prefix, 0), 0u) << lines[i];
    EXPECT_EQ(lines[processors + i],
              std::to_string(i) +
                  " - Software Raytrace ShutDown Thread Identifier = " + lines[i].substr(prefix.size()));
  }
  EXPECT_EQ(engine->GetProcessorCount(), 0u);
  engine->ShutDown();                                                        // twice does no harm
  engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);  // and the engine starts again
  EXPECT_EQ(engine->GetProcessorCount(), processors);
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

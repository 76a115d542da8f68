#include <gtest/gtest.h>

#include "RenderScene.h"
#include "TestDoubles.h"

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

#include <gtest/gtest.h>

#include <string>

#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "EngineTestAccess.h"
#include "LogCapture.h"
#include "TestDoubles.h"
#include "host/brindlexutil.h"
#include "accel/KDTree.h"
#include "scene/LightTable.h"
#include "scene/SWMeshTable.h"
#include "shadows/SWShadowMap.h"

namespace {

RT_RENDER_ENGINE* NewEngine() {
  return static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
}

}  // namespace

TEST(EngineLifecycle, ReferenceCountingDestroysAtZeroEvenWithoutInitialize) {
  RENDER_ENGINE_INTERFACE* engine = CreateRenderEngine();
  ASSERT_NE(engine, nullptr);
  EXPECT_EQ(engine->AddRef(), 2u);
  EXPECT_EQ(engine->Release(), 1u);
  EXPECT_EQ(engine->Release(), 0u);  // destroyed here; ASan reports any leak
}

TEST(EngineLifecycle, InterfacesAreTheEnginesOwnSubobjects) {
  RENDER_ENGINE_INTERFACE* engine = CreateRenderEngine();
  RT_RENDER_ENGINE* concrete = static_cast<RT_RENDER_ENGINE*>(engine);
  EXPECT_EQ(engine->GetRendererSceneGraphInterface(), static_cast<RENDERER_SCENE_GRAPH_INTERFACE*>(concrete));
  EXPECT_EQ(engine->GetRenderToFileInterface(), static_cast<RENDER_TO_FILE_INTERFACE*>(concrete));
  EXPECT_EQ(engine->GetRendererHighlightInterface(), static_cast<RENDERER_HIGHLIGHT_INTERFACE*>(concrete));
  EXPECT_EQ(engine->GetRendererDeviceDriverInterface(), nullptr);
  EXPECT_EQ(engine->GetRendererLocateInterface(), nullptr);
  EXPECT_EQ(engine->GetRenderToAnotherWindowInterface(nullptr), nullptr);
  engine->Release();
}

TEST(EngineLifecycle, InitializeReplacesOnlyGivenFoldersAndAlwaysAsksForRebuild) {
  RT_RENDER_ENGINE* engine = NewEngine();
  EngineTestAccess access(engine);
  engine->SetTextureDirectory("textures");
  engine->Initialize(nullptr, "colour", nullptr, "mask", nullptr, "six");
  EXPECT_TRUE(access.Flags().IsSet(RebuildScene));
  const char* expected[] = {"textures", "colour", "", "mask", "", "six"};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(access.Folder(i), expected[i]) << i;

  access.Flags().Clear(RebuildScene);
  engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_TRUE(access.Flags().IsSet(RebuildScene));
  for (int i = 0; i < 6; ++i) EXPECT_EQ(access.Folder(i), expected[i]) << i;
  engine->SetTextureDirectory(nullptr);
  EXPECT_EQ(access.Folder(0), "textures");
  engine->Release();
}

TEST(EngineLifecycle, WorkersStartOnePerProcessorAndShutDownLogsEach) {
  RT_RENDER_ENGINE* engine = NewEngine();
  EngineTestAccess access(engine);
  EXPECT_EQ(engine->GetProcessorCount(), 0u);  // no workers before Initialize
  const unsigned long processors = ::GetProcessorCount();
  std::vector<std::string> startLines, stopLines;
  {
    LogCapture log;
    engine->Initialize("t", nullptr, nullptr, nullptr, nullptr, nullptr);
    startLines = log.Lines();
  }
  EXPECT_EQ(engine->GetProcessorCount(), processors);
  EXPECT_EQ(access.CoreTokens(), long(processors));  // each idle worker left its token
  EXPECT_EQ(access.WakeCount(), 0);
  ASSERT_EQ(startLines.size(), processors);
  {
    LogCapture log;
    engine->ShutDown();
    stopLines = log.Lines();
  }
  ASSERT_EQ(stopLines.size(), processors);
  for (unsigned long i = 0; i < processors; ++i) {
    const std::string prefix = std::to_string(i) + " - Software Raytrace Thread Identifier = ";
    ASSERT_EQ(startLines[i].rfind(prefix, 0), 0u) << startLines[i];
    const std::string id = startLines[i].substr(prefix.size());
    EXPECT_EQ(stopLines[i], std::to_string(i) + " - Software Raytrace ShutDown Thread Identifier = " + id);
  }
  EXPECT_EQ(engine->GetProcessorCount(), 0u);
  EXPECT_FALSE(access.HasTables());
  engine->ShutDown();                                                        // twice does no harm
  engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);  // and the engine starts again
  EXPECT_EQ(engine->GetProcessorCount(), processors);
  engine->Release();  // the destructor shuts down the running workers
}

TEST(EngineLifecycle, DistributedServerLimitsTheProcessorCount) {
  RT_RENDER_ENGINE* engine = NewEngine();
  ThreadCountServer server(1);
  engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  engine->SetRenderDistributedServerInterface(&server);
  EXPECT_EQ(engine->GetProcessorCount(), 1u);
  ThreadCountServer generous(1000);
  engine->SetRenderDistributedServerInterface(&generous);
  EXPECT_EQ(engine->GetProcessorCount(), ::GetProcessorCount());
  engine->SetRenderDistributedServerInterface(nullptr);
  engine->Release();
}

TEST(EngineLifecycle, DefaultMaterialAndHeadlightComeWithInitialize) {
  RT_RENDER_ENGINE* engine = NewEngine();
  EngineTestAccess access(engine);
  engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  ASSERT_EQ(access.MaterialRoots().count(0u), 1u);
  const MATERIAL_3D_NODE* material = access.MaterialRoots()[0];
  ASSERT_NE(material, nullptr);
  EXPECT_EQ(material->GetNodeThatControlsMaterial("*"), material);
  const RTRendererLight* headlight = access.Headlight();
  ASSERT_NE(headlight, nullptr);
  // Copies: the packed record's fields can't be bound to references.
  const SCENE_LIGHT_DEFINITION definition = headlight->definition;
  EXPECT_EQ(int(definition.type), 0);
  EXPECT_EQ(uint32_t(definition.color), 0xFFFFFFu);
  EXPECT_EQ(definition.flags & (LightDiffuse | LightCastsShadows | LightIsSymbol), int(LightDiffuse));

  access.Flags().Set(FrameReady | AutoHorizon | LightsSynced);
  engine->RemoveLightInstance(7);
  EXPECT_EQ(engine->QueryRenderer(6), 1);
  engine->ShutDownModel();
  EXPECT_EQ(engine->QueryRenderer(6), 0);
  EXPECT_FALSE(access.Flags().IsSet(AutoHorizon | LightsSynced));
  EXPECT_TRUE(access.Flags().IsSet(RebuildScene));
  EXPECT_TRUE(access.RemovedLights().empty());
  ASSERT_EQ(access.MaterialRoots().count(0u), 1u);  // the key stays, its node is gone
  EXPECT_EQ(access.MaterialRoots()[0], nullptr);
  engine->Release();
}

TEST(EngineLifecycle, QueriesAndNotifications) {
  RT_RENDER_ENGINE* engine = NewEngine();
  EngineTestAccess access(engine);
  for (int key : {0, 18, 20, 22}) EXPECT_EQ(engine->QueryRenderer(key), 1) << key;
  for (int key : {1, 6, 21, 99, -1}) EXPECT_EQ(engine->QueryRenderer(key), 0) << key;

  // Every model notification asks for a rebuild and nothing more.
  void (*notifications[])(RT_RENDER_ENGINE*) = {
      [](RT_RENDER_ENGINE* e) { e->ModifyAllMaterialTypes(); },
      [](RT_RENDER_ENGINE* e) { e->ModifyAutoHorizon(); },
      [](RT_RENDER_ENGINE* e) { e->ModifyBackground(); },
      [](RT_RENDER_ENGINE* e) { e->MaterialPointersInvalid(); },
      [](RT_RENDER_ENGINE* e) { e->ModifyMaterialType("brick"); },
      [](RT_RENDER_ENGINE* e) { e->ModifyMaterialVisibility("brick"); },
      [](RT_RENDER_ENGINE* e) { e->AttachNode(nullptr, nullptr); },
      [](RT_RENDER_ENGINE* e) { e->DetachNode(nullptr, true); },
      [](RT_RENDER_ENGINE* e) { e->SetModelTransform("node", nullptr); },
      [](RT_RENDER_ENGINE* e) { e->CreateSceneGraphNode(nullptr); },
  };
  for (auto notify : notifications) {
    access.Flags().Clear(RebuildScene);
    notify(engine);
    EXPECT_EQ(access.Flags().Value(), uint32_t(RebuildScene));
  }
  access.Flags().Clear(RebuildScene);
  engine->SetMaterialID("node", "brick");
  engine->ModifyLightVisibility();
  EXPECT_EQ(access.Flags().Value(), 0u);

  SCENE_LIGHT_INSTANCE light{};
  light.number = 12;
  engine->ModifyLightInstance(&light);
  engine->ModifyLightInstance(nullptr);
  engine->RemoveLightInstance(-3);
  EXPECT_EQ(access.ModifiedLights(), std::set<int32_t>{12});
  EXPECT_EQ(access.RemovedLights(), std::set<int32_t>{-3});
  engine->Release();
}

TEST(EngineLifecycle, RenderToFileSettings) {
  RT_RENDER_ENGINE* engine = NewEngine();
  EngineTestAccess access(engine);
  EXPECT_EQ(engine->QueryRenderToFile(0), 0);
  engine->SetRenderToFile(true);
  engine->SetRenderToFileCubeMap(true);
  engine->SetRenderToFileBackgroundAlpha(true);
  EXPECT_EQ(engine->QueryRenderToFile(0), 1);
  EXPECT_EQ(engine->QueryRenderToFile(1), 0);
  EXPECT_EQ(engine->QueryRenderToFile(2), 0);
  EXPECT_TRUE(access.Flags().IsSet(RenderToCubeMap | BackgroundAlpha));
  engine->SetRenderToFile(false);
  EXPECT_EQ(engine->QueryRenderToFile(0), 0);

  engine->SetRenderToFileName("out/view.png");
  EXPECT_STREQ(access.RenderToFileName(), "out/view.png");
  engine->SetRenderToFileName(nullptr);
  EXPECT_STREQ(access.RenderToFileName(), "out/view.png");
  const std::string longest(259, 'a'), tooLong(260, 'a');
  engine->SetRenderToFileName(longest.c_str());
  EXPECT_EQ(std::string(access.RenderToFileName()), longest);
  engine->SetRenderToFileName(tooLong.c_str());  // refused, not cut
  EXPECT_STREQ(access.RenderToFileName(), "");
  engine->Release();
}

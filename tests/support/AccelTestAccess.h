// Reaches the engine's kd-trees and mesh tables, which hosts never see.
#pragma once

#include "BrindlexViewRTRenderEngine.h"
#include "KDTree.h"
#include "LightTable.h"
#include "SWMeshTable.h"
#include "SWShadowMap.h"

class AccelTestAccess {
 public:
  explicit AccelTestAccess(RT_RENDER_ENGINE* engine) : engine(engine) {}

  KDTree* Trees() { return engine->kdTrees; }
  SWMeshTable* Tables() { return engine->meshTables; }
  // Builds kdTrees[row] over meshTables[row] on the engine's workers.
  void BuildTree(int row) {
    engine->kdTrees[row].Build(&engine->meshTables[row], engine->workQueue, engine->queueLock,
                               engine->renderThreads, engine->wakeSemaphore, engine->doneSemaphore, nullptr,
                               nullptr);
  }
  // Builds any tree over any table on the engine's workers, with an abort poll.
  void Build(KDTree& tree, const SWMeshTable& table, bool (*shouldAbort)(void*) = nullptr,
             void* abortContext = nullptr) {
    tree.Build(&table, engine->workQueue, engine->queueLock, engine->renderThreads, engine->wakeSemaphore,
               engine->doneSemaphore, shouldAbort, abortContext);
  }

 private:
  RT_RENDER_ENGINE* engine;
};

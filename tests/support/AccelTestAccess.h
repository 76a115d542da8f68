// An engine whose kd-trees and mesh tables tests set up and read. They are
// protected members of the engine, which a derived class reaches.
#pragma once

#include "engine/BrindlexViewRTRenderEngine.h"
#include "accel/KDTree.h"
#include "scene/LightTable.h"
#include "scene/SWMeshTable.h"
#include "shadows/SWShadowMap.h"

class AccelTestEngine : public RT_RENDER_ENGINE {
 public:
  KDTree* Trees() { return kdTrees; }
  SWMeshTable* Tables() { return meshTables; }
  // Builds kdTrees[row] over meshTables[row] on the engine's workers.
  void BuildTree(int row) { Build(kdTrees[row], meshTables[row]); }
  // Builds any tree over any table on the engine's workers, with an abort poll.
  void Build(KDTree& tree, const SWMeshTable& table, bool (*shouldAbort)(void*) = nullptr,
             void* abortContext = nullptr) {
    tree.Build(&table, workQueue, queueLock, renderThreads, wakeSemaphore, doneSemaphore, shouldAbort,
               abortContext);
  }
};

// Small stand-ins and checks that several engine tests share.
#pragma once

#include <gtest/gtest.h>

#include "host/BrindlexViewModel.h"

// A distributed server that deals out no tiles and only answers how many
// threads it allows.
class ThreadCountServer : public RENDER_DISTRIBUTED_SERVER_INTERFACE {
 public:
  explicit ThreadCountServer(unsigned int threads) : threads(threads) {}
  unsigned int GetDistributedThreadCount() override { return threads; }
  void BeginDistributedFrame(unsigned int, uint64_t) override {}
  void EndDistributedFrame() override {}
  void NotifyDistributedWorkerActive() override {}
  unsigned short GetDistributedPass() override { return 0; }
  void EndDistributedJob() override {}
  void BeginDistributedJob() override {}
  bool GetNextDistributedTile(unsigned int*, unsigned int*, unsigned short*, unsigned short*,
                              unsigned short*) override {
    return false;
  }
  void SubmitDistributedTile(SCENE_VERTEX_XYZW*, unsigned int, unsigned int, unsigned short, unsigned short,
                             unsigned short, unsigned int, unsigned int) override {}
  void SetDistributedTileTracing(bool) override {}

 private:
  unsigned int threads;
};

// A linear colour within `tolerance` of red, green, blue and alpha. The
// colour is copied first: it may sit in a packed record.
inline void ExpectColor(const SCENE_VERTEX_XYZW& actual, float r, float g, float b, float a,
                        float tolerance = 1e-6f) {
  const SCENE_VERTEX_XYZW c = actual;
  EXPECT_NEAR(c.x, r, tolerance);
  EXPECT_NEAR(c.y, g, tolerance);
  EXPECT_NEAR(c.z, b, tolerance);
  EXPECT_NEAR(c.w, a, tolerance);
}

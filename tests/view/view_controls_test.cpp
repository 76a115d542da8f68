#include <gtest/gtest.h>

#include <tuple>

#include "../apps/AppTestFiles.h"
#include "CameraControl.h"
#include "RenderLoop.h"
#include "ViewOptions.h"
#include "ViewStatus.h"

namespace {

TEST(ViewCamera, OrbitStopsShortOfThePolesPanFollowsTheMouseZoomKeepsADistance) {
  ExpectPoint(Orbit({{10, 0, 0}, {0, 0, 0}}, 90, 0).eye, 0, 10, 0);
  ExpectPoint(Orbit({{10, 0, 0}, {0, 0, 0}}, 0, 45).eye, 7.07107f, 0, 7.07107f);
  // 100 degrees up stops at 89: 10 cos 89, 10 sin 89.
  ExpectPoint(Orbit({{10, 0, 0}, {0, 0, 0}}, 0, 100).eye, 0.174524f, 0, 9.998477f);
  const OrbitCamera turned = Orbit({{1, -3, 3}, {1, 2, 3}}, -90, 0);
  ExpectPoint(turned.eye, -4, 2, 3);
  ExpectPoint(turned.target, 1, 2, 3);

  // Pan: 90 degrees over 200 pixels at distance 10 is 0.1 world units a
  // pixel, and the scene follows the mouse.
  const OrbitCamera right = Pan({{0, -10, 0}, {0, 0, 0}}, 10, 0, 90, 200);
  ExpectPoint(right.eye, -1, -10, 0);
  ExpectPoint(right.target, -1, 0, 0);
  const OrbitCamera down = Pan({{0, -10, 0}, {0, 0, 0}}, 0, 20, 90, 200);
  ExpectPoint(down.eye, 0, -10, 2);
  ExpectPoint(down.target, 0, 0, 2);

  // Zoom scales the distance, down to a minimum.
  ExpectPoint(Zoom({{3, 4, 0}, {0, 0, 0}}, 0.5).eye, 1.5f, 2, 0);
  ExpectPoint(Zoom({{3, 4, 0}, {0, 0, 0}}, 0.0).eye, 0.0006f, 0.0008f, 0);
}

TEST(ViewRequests, ChangesAddUpAndAFitForgetsEarlierMoves) {
  ViewChange change, later, fit;
  change.azimuth = 10, change.zoom = 0.5;
  later.azimuth = 5, later.panDown = 3, later.zoom = 0.5, later.modesChanged = true;
  later.modes = {true, false, true};
  change.Merge(later);
  EXPECT_EQ(std::tuple(change.azimuth, change.panDown, change.zoom), std::tuple(15, 3, 0.25));
  EXPECT_TRUE(change.modesChanged && change.modes.pathTracing && change.modes.softShadows);
  fit.azimuth = 3, fit.fit = true, fit.resized = true, fit.width = 64, fit.height = 48;
  change.Merge(fit);
  EXPECT_EQ(std::tuple(change.azimuth, change.panDown, change.zoom, change.width), std::tuple(3, 0, 1, 64));
  EXPECT_TRUE(change.fit && change.modesChanged && change.resized);
}

platform::PostedMessage Message(unsigned code, WPARAM w = 0, LPARAM l = 0) {
  return {code, w, l};
}

TEST(ViewTitle, FollowsBlocksFramesAndUpdates) {
  ViewStatus status;
  const RenderModes rays{false, false, true};
  status.Receive(Message(UpdateDoneMessage, CameraUpdate, 2400), 0.5);
  status.Receive(Message(FrameStartedMessage, 2, 4), 1.0);
  EXPECT_EQ(status.Receive(Message(PBM_STEPIT), 1.5), ViewStatus::Event::None);
  status.Receive(Message(PBM_STEPIT), 1.5);
  EXPECT_EQ(status.Title(rays), "ray tracing, soft shadows | rendering 50% | UpdateFrame 2 ms (camera move)");
  status.Receive(Message(PBM_STEPIT), 2.0);
  EXPECT_EQ(status.Receive(Message(PBM_STEPIT), 3.0), ViewStatus::Event::PassComplete);
  // A frame that a newer request replaced says nothing.
  EXPECT_EQ(status.Receive(Message(FrameDoneMessage, 1, 900000), 3.1), ViewStatus::Event::None);
  EXPECT_EQ(status.Receive(Message(FrameDoneMessage, 2, 1500000), 3.1), ViewStatus::Event::FrameComplete);
  EXPECT_EQ(status.Title({}), "ray tracing | frame 1.50 s | UpdateFrame 2 ms (camera move)");
}

TEST(ViewOptions, OwnOptionsBesideThoseOfTheRenderProgram) {
  ViewSettings settings;
  std::string error;
  ASSERT_TRUE(
      ParseViewOptions({"house.obj", "--screenshot", "a.png", "--log=-", "--width", "64"}, settings, error))
      << error;
  EXPECT_EQ(std::tuple(settings.render.model, settings.screenshot, settings.log, settings.render.width),
            std::tuple("house.obj", "a.png", "-", 64));

  const std::vector<std::pair<std::vector<std::string>, std::string>> bad = {
      {{"--cube-map"}, "option '--cube-map' is for brindlex render only"},
      {{"--screenshot"}, "option '--screenshot' needs a value"},
      {{"--exit-after-frame=1"}, "option '--exit-after-frame' takes no value"},
      {{"--nope"}, "unknown option '--nope'"},
  };
  for (const auto& [arguments, message] : bad) {
    ViewSettings ignored;
    EXPECT_FALSE(ParseViewOptions(arguments, ignored, error)) << arguments[0];
    EXPECT_EQ(error, message);
  }
}

TEST(ViewOptions, SavedPicturesAreNumberedBesideTheModel) {
  TestFolder folder;
  RenderSettings settings;
  settings.model = (folder.path / "house.obj").string();
  EXPECT_EQ(NextPictureName(settings), folder.path / "house-001.png");
  folder.Write("house-001.png", "x");
  folder.Write("house-003.png", "x");
  EXPECT_EQ(NextPictureName(settings), folder.path / "house-002.png");
  settings.output = (folder.path / "shots" / "view.jpg").string();
  EXPECT_EQ(NextPictureName(settings), folder.path / "shots" / "view-001.png");
}

}  // namespace

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <utility>

#include "pipeline/BlockOrder.h"
#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "pipeline/FrameSetUp.h"

namespace {

SCENE_VERTEX_XYZ_64 Cross(const SCENE_VERTEX_XYZ_64& a, const SCENE_VERTEX_XYZ_64& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

// How far `point` lies from the line of the ray, and whether it is ahead.
void ExpectRayThrough(const PixelRaySample& ray, SCENE_VERTEX_XYZ_64 point) {
  const SCENE_VERTEX_XYZ_64 origin = ray.origin, direction = ray.direction;
  const SCENE_VERTEX_XYZ_64 toPoint = {point.x - origin.x, point.y - origin.y, point.z - origin.z};
  const SCENE_VERTEX_XYZ_64 off = Cross(toPoint, direction);
  EXPECT_NEAR(std::sqrt(off.x * off.x + off.y * off.y + off.z * off.z), 0.0, 1e-6)
      << "through " << point.x << "," << point.y << "," << point.z;
  EXPECT_GT(toPoint.x * direction.x + toPoint.y * direction.y + toPoint.z * direction.z, 0.0);
}

void ExpectVector(SCENE_VERTEX_XYZ_64 actual, double x, double y, double z) {
  EXPECT_NEAR(actual.x, x, 1e-9);
  EXPECT_NEAR(actual.y, y, 1e-9);
  EXPECT_NEAR(actual.z, z, 1e-9);
}

struct CameraTest : ::testing::Test {
  void SetUp() override {
    // A box from -20 to 20 around the origin, as one triangle's corners.
    SCENE_GRAPH_NODE* box = new SCENE_GRAPH_NODE("box");
    const SCENE_VERTEX corners[3] = {{{-20, -20, -20}, {0, 0, 1}, 0, 0, {1, 0, 0}},
                                     {{20, 20, 20}, {0, 0, 1}, 0, 0, {1, 0, 0}},
                                     {{20, -20, 20}, {0, 0, 1}, 0, 0, {1, 0, 0}}};
    const unsigned int indices[3] = {0, 1, 2};
    box->CreateNodeMeshData()->SetMeshData(corners, 3, indices, 3);
    scene.GetRootNode()->AddChildNode(box);
    SetCamera({0, 10, 0}, {0, 0, 0});
  }
  // Eye and target in the camera record's coordinates, y negated.
  void SetCamera(SCENE_VERTEX_XYZ eye, SCENE_VERTEX_XYZ lookAt) {
    view.GetViewFileState()->SetCameraInfo({eye, lookAt, 90.0f, 10.0f, 0.0f});
  }
  SWRT_RENDER_THREAD_DATA Camera(RECT viewRect, SCENE_VERTEX_XYZ* cubeEye = nullptr, int face = 0) {
    SWRT_RENDER_THREAD_DATA frame;
    EXPECT_TRUE(SetUpFrameCamera(&view, &scene, viewRect, viewRect, &options, cubeEye, face, 40, 8,
                                 autoHorizon, frame));
    return frame;
  }
  PixelRaySet Rays(const SWRT_RENDER_THREAD_DATA& frame, unsigned x, unsigned y) {
    const SCENE_VERTEX_XYZ_64 planeOrigin = frame.planeOrigin;
    const SCENE_MATRIX_64 eyeToWorld = frame.eyeToWorld;
    PixelRaySet rays;
    RT_RENDER_ENGINE::BuildPixelRays(rays, x, y, 1, &planeOrigin, frame.stepX, frame.stepY, &eyeToWorld,
                                     view.GetProjectionType(), 2, 2, false);
    return rays;
  }

  bool autoHorizon = false;
  SCENE_GRAPH scene;
  ENVIRONMENT_3D_VIEW view;
  MODE_RENDER_OPTIONS options;
};

}  // namespace

TEST(PipelineRays, SampleTablesAndTheRaiseToTheNextTable) {
  // A parallel camera with the identity as eye-to-world, so the ray's
  // origin is the sample position with y turned up.
  const SCENE_VERTEX_XYZ_64 planeOrigin = {0.0, 0.0, -1.0};
  SCENE_MATRIX_64 identity = {{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}};
  const std::pair<unsigned, unsigned> counts[] = {{0, 1}, {1, 1}, {2, 2},  {3, 4},   {4, 4},   {5, 8},
                                                  {7, 8}, {8, 8}, {9, 16}, {15, 16}, {16, 16}, {400, 16}};
  PixelRaySet rays;
  for (auto [asked, given] : counts) {
    RT_RENDER_ENGINE::BuildPixelRays(rays, 3, 5, asked, &planeOrigin, 1.0, -1.0, &identity, 1, 640, 480,
                                     false);
    EXPECT_EQ(uint32_t(rays.count), given) << asked;
  }
  const double four[4][2] = {{-0.1, -0.4}, {0.4, -0.1}, {-0.4, 0.1}, {0.1, 0.4}};
  RT_RENDER_ENGINE::BuildPixelRays(rays, 3, 5, 3, &planeOrigin, 1.0, -1.0, &identity, 1, 640, 480, false);
  for (int i = 0; i < 4; ++i) {
    const PixelRaySample ray = rays.rays[i];
    EXPECT_EQ(double(ray.pixelX), 3.5 + four[i][0]);
    EXPECT_EQ(double(ray.pixelY), 5.5 + four[i][1]);
    ExpectVector(ray.origin, 3.5 + four[i][0], -(5.5 + four[i][1]), 0.0);
    ExpectVector(ray.direction, 0, 0, -1);
    ExpectVector(ray.xOrigin, 4.5 + four[i][0], -(5.5 + four[i][1]), 0.0);
    ExpectVector(ray.yDirection, 0, 0, -1);
    EXPECT_EQ(double(ray.inverseDirection.x), 1.7976931348623157e308);
    EXPECT_EQ(double(ray.inverseDirection.z), -1.0);
    EXPECT_EQ(uint16_t(ray.flags), PixelRayDifferentialsValid);
    EXPECT_EQ(float(ray.viewWidth), 640.0f);
    EXPECT_EQ(float(ray.viewHeight), 480.0f);
    EXPECT_EQ(float(ray.color.w), 0.0f);
  }
  // The raised counts take their own tables: rows 3 of 8 and 15 of 16.
  RT_RENDER_ENGINE::BuildPixelRays(rays, 0, 0, 6, &planeOrigin, 1.0, -1.0, &identity, 1, 1, 1, false);
  EXPECT_EQ(double(rays.rays[3].pixelX), 0.5 + 0.1);
  EXPECT_EQ(double(rays.rays[3].pixelY), 0.5 - 0.1);
  RT_RENDER_ENGINE::BuildPixelRays(rays, 0, 0, 12, &planeOrigin, 1.0, -1.0, &identity, 1, 1, 1, false);
  EXPECT_EQ(double(rays.rays[15].pixelX), 0.5 + 0.3);
  EXPECT_EQ(double(rays.rays[15].pixelY), 0.5 + 0.4);
  RT_RENDER_ENGINE::BuildPixelRays(rays, 0, 0, 2, &planeOrigin, 1.0, -1.0, &identity, 1, 1, 1, false);
  EXPECT_EQ(double(rays.rays[0].pixelX), 0.25);
  EXPECT_EQ(double(rays.rays[1].pixelY), 0.75);

  // Perspective: from one unit before the plane, away from the eye.
  const SCENE_VERTEX_XYZ_64 corner = {-1.0, 1.0, -1.0};
  RT_RENDER_ENGINE::BuildPixelRays(rays, 0, 0, 1, &corner, 0.5, -0.5, &identity, 0, 4, 4, false);
  const double length = std::sqrt(0.75 * 0.75 * 2 + 1.0);
  const PixelRaySample ray = rays.rays[0];
  ExpectVector(ray.direction, -0.75 / length, 0.75 / length, -1.0 / length);
  ExpectVector(ray.origin, -0.75 + 0.75 / length, 0.75 - 0.75 / length, -1.0 + 1.0 / length);
  ExpectVector(ray.xOrigin, 0, 0, 0);
  const double xLength = std::sqrt(0.25 * 0.25 + 0.75 * 0.75 + 1.0);
  ExpectVector(ray.xDirection, -0.25 / xLength, 0.75 / xLength, -1.0 / xLength);

  // Path tracing jitters one ray anywhere in its pixel, differently each time.
  PixelRaySet again;
  RT_RENDER_ENGINE::BuildPixelRays(rays, 7, 9, 1, &planeOrigin, 1.0, -1.0, &identity, 1, 1, 1, true);
  RT_RENDER_ENGINE::BuildPixelRays(again, 7, 9, 1, &planeOrigin, 1.0, -1.0, &identity, 1, 1, 1, true);
  EXPECT_EQ(uint32_t(rays.count), 1u);
  EXPECT_GE(double(rays.rays[0].pixelX), 7.0);
  EXPECT_LE(double(rays.rays[0].pixelX), 8.0);
  EXPECT_GE(double(rays.rays[0].pixelY), 9.0);
  EXPECT_LE(double(rays.rays[0].pixelY), 10.0);
  EXPECT_NE(double(rays.rays[0].pixelX), double(again.rays[0].pixelX));
}

TEST(PipelineBlocks, RingsRunClockwiseFromTheMiddleAndSkipTheOutside) {
  auto listed = [](uint32_t x, uint32_t y) {
    std::vector<std::pair<uint32_t, uint32_t>> order;
    for (BlockCoordinate block : BlocksFromTheMiddle(x, y)) order.push_back({block.column, block.row});
    return order;
  };
  using Order = std::vector<std::pair<uint32_t, uint32_t>>;
  EXPECT_EQ(listed(3, 3), (Order{{1, 1}, {0, 0}, {1, 0}, {2, 0}, {2, 1}, {2, 2}, {1, 2}, {0, 2}, {0, 1}}));
  EXPECT_EQ(listed(1, 5), (Order{{0, 2}, {0, 1}, {0, 3}, {0, 0}, {0, 4}}));
  EXPECT_EQ(listed(2, 1), (Order{{0, 0}, {1, 0}}));
  EXPECT_EQ(listed(4, 2).front(), std::make_pair(1u, 0u));  // even counts: left of the middle
  EXPECT_TRUE(listed(0, 3).empty());
  for (uint32_t x = 1; x <= 9; ++x) {
    for (uint32_t y = 1; y <= 9; ++y) {
      Order order = listed(x, y);
      std::set<std::pair<uint32_t, uint32_t>> unique(order.begin(), order.end());
      EXPECT_EQ(order.size(), size_t(x) * y);
      EXPECT_EQ(unique.size(), order.size());
    }
  }
}

TEST_F(CameraTest, BlocksAreCutAtTheTileAndPlacedInFrameAndView) {
  SWRT_RENDER_THREAD_DATA frame = Camera({0, 0, 40, 8});
  frame.passNumber = 3;
  std::vector<SWRT_RENDER_THREAD_DATA> blocks = FrameBlocks(frame, {5, 2, 38, 3}, 40, 8);
  ASSERT_EQ(blocks.size(), 2u);
  const uint32_t expected[2][6] = {{0, 0, 5, 2, 32, 1}, {32, 0, 37, 2, 1, 1}};  // frameX, frameY, x, y, w, h
  for (int i = 0; i < 2; ++i) {
    const SWRT_RENDER_THREAD_DATA& block = blocks[i];
    const uint32_t actual[6] = {block.frameX, block.frameY, block.x, block.y, block.width, block.height};
    for (int f = 0; f < 6; ++f) EXPECT_EQ(actual[f], expected[i][f]) << i << " field " << f;
    EXPECT_EQ(uint16_t(block.workKind), RT_WORK_RAYTRACE_BLOCK);
    EXPECT_EQ(uint64_t(block.passNumber), 3u);
    EXPECT_EQ(uint32_t(block.viewWidth), 40u);
    EXPECT_EQ(uint32_t(block.samples), 4u);  // antialiasing level 2
    EXPECT_EQ(static_cast<const MODE_RENDER_OPTIONS*>(block.options), &options);
  }
  EXPECT_EQ(FrameBlocks(frame, {0, 0, 40, 8}, 40, 8).size(), 2u);
  EXPECT_TRUE(FrameBlocks(frame, {3, 3, 3, 8}, 40, 8).empty());
}

TEST_F(CameraTest, SamplesAndRefusalsOfTheFrameCamera) {
  options.SetAntialiasingLevel(4);
  EXPECT_EQ(uint32_t(Camera({0, 0, 2, 2}).samples), 16u);
  options.SetPathTracing(true);  // one ray per pixel and pass, whatever the antialiasing
  EXPECT_EQ(uint32_t(Camera({0, 0, 2, 2}).samples), 1u);
  options.SetPathTracing(false);
  options.SetAntiAliasing(false);
  EXPECT_EQ(uint32_t(Camera({0, 0, 2, 2}).samples), 1u);

  SWRT_RENDER_THREAD_DATA frame;
  EXPECT_FALSE(SetUpFrameCamera(&view, &scene, {0, 0, 41, 8}, {0, 0, 41, 8}, &options, nullptr, 0, 40, 8,
                                autoHorizon, frame));
  EXPECT_FALSE(SetUpFrameCamera(&view, &scene, {0, 0, 40, 9}, {0, 0, 40, 9}, &options, nullptr, 0, 40, 8,
                                autoHorizon, frame));
  EXPECT_FALSE(SetUpFrameCamera(nullptr, &scene, {0, 0, 2, 2}, {0, 0, 2, 2}, &options, nullptr, 0, 40, 8,
                                autoHorizon, frame));
  EXPECT_FALSE(SetUpFrameCamera(&view, nullptr, {0, 0, 2, 2}, {0, 0, 2, 2}, &options, nullptr, 0, 40, 8,
                                autoHorizon, frame));
  EXPECT_FALSE(SetUpFrameCamera(&view, &scene, {0, 0, 2, 2}, {0, 0, 2, 2}, nullptr, nullptr, 0, 40, 8,
                                autoHorizon, frame));

  SetCamera({0, 500, 0}, {0, 0, 0});  // near is far above 1
  EXPECT_GT(float(Camera({0, 0, 2, 2}).nearDistance), 100.0f);
  autoHorizon = true;
  EXPECT_EQ(float(Camera({0, 0, 2, 2}).nearDistance), 1.0f);
}

TEST_F(CameraTest, PrimaryRaysPassWhereTheCameraLooks) {
  // The eye at world (0, -10, 0) looks along +y with +z up and +x right;
  // 90 degrees show 10 units either side of the middle at distance 10.
  SWRT_RENDER_THREAD_DATA frame = Camera({0, 0, 2, 2});
  ExpectRayThrough(Rays(frame, 0, 0).rays[0], {-5, 0, 5});
  ExpectRayThrough(Rays(frame, 1, 1).rays[0], {5, 0, -5});
  ExpectRayThrough(Rays(frame, 1, 0).rays[0], {5, 0, 5});
  ExpectRayThrough(Rays(frame, 0, 0).rays[0], {0, -10, 0});  // every ray comes from the eye

  // Parallel: 10 units high, so pixel centres lie 2.5 from the middle.
  view.SetProjectionType(ENVIRONMENT_3D_VIEW::ParallelProjection);
  frame = Camera({0, 0, 2, 2});
  const PixelRaySample ray = Rays(frame, 0, 1).rays[0];
  ExpectVector(ray.direction, 0, 1, 0);
  EXPECT_NEAR(ray.origin.x, -2.5, 1e-9);
  EXPECT_NEAR(ray.origin.z, -2.5, 1e-9);
  ExpectVector(ray.xDirection, 0, 1, 0);
  ExpectRayThrough(Rays(frame, 1, 0).rays[0], {2.5, 100, 2.5});

  // Cube faces look along +x, -x, +z, -z, +y, -y from the given eye.
  SCENE_VERTEX_XYZ eye = {1, 2, 3};
  const SCENE_VERTEX_XYZ_64 axes[6] = {{1, 0, 0}, {-1, 0, 0}, {0, 0, 1}, {0, 0, -1}, {0, 1, 0}, {0, -1, 0}};
  view.SetProjectionType(ENVIRONMENT_3D_VIEW::PerspectiveProjection);
  for (int face = 0; face < 6; ++face) {
    frame = Camera({0, 0, 1, 1}, &eye, face);
    const PixelRaySample centre = Rays(frame, 0, 0).rays[0];
    ExpectVector(centre.direction, axes[face].x, axes[face].y, axes[face].z);
    ExpectRayThrough(centre, {1 + 7 * axes[face].x, 2 + 7 * axes[face].y, 3 + 7 * axes[face].z});
  }
  // A quarter turn on a square: the top left pixel of face 0 is half way
  // to the left (+y) and half way up (+z).
  frame = Camera({0, 0, 2, 2}, &eye, 0);
  ExpectRayThrough(Rays(frame, 0, 0).rays[0], {1 + 2, 2 + 1, 3 + 1});
}

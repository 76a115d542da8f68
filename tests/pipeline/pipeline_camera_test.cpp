#include <gtest/gtest.h>

#include <cmath>

#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "pipeline/FrameSetUp.h"

namespace {

// Where the ray meets the plane y = `y` (it must go forward, along +y).
SCENE_VERTEX_XYZ_64 Meet(const PixelRaySample& ray, double y) {
  const SCENE_VERTEX_XYZ_64 o = ray.origin, d = ray.direction;
  EXPECT_GT(d.y, 0.0);
  const double t = (y - o.y) / d.y;
  return {o.x + t * d.x, y, o.z + t * d.z};
}
void ExpectPoint(SCENE_VERTEX_XYZ_64 p, double x, double y, double z) {
  EXPECT_TRUE(std::abs(p.x - x) < 1e-6 && std::abs(p.y - y) < 1e-6 && std::abs(p.z - z) < 1e-6)
      << p.x << " " << p.y << " " << p.z;
}

// The eye at world (0, -10, 0) looks at the origin along +y, with +z up
// and +x right; 90 degrees show 10 units either side of the middle at the
// origin. The scene is one triangle spanning -20..20 on every axis.
struct CameraTest : ::testing::Test {
  void SetUp() override {
    view.GetViewFileState()->SetCameraInfo({{0, 10, 0}, {0, 0, 0}, 90.0f, 10.0f, 0.0f});  // y kept negated
    SCENE_GRAPH_NODE* box = new SCENE_GRAPH_NODE("box");
    const SCENE_VERTEX corners[3] = {
        {{-20, -20, -20}, {}, 0, 0, {}}, {{20, 20, 20}, {}, 0, 0, {}}, {{20, -20, 20}, {}, 0, 0, {}}};
    const unsigned int indices[3] = {0, 1, 2};
    box->CreateNodeMeshData()->SetMeshData(corners, 3, indices, 3);
    scene.GetRootNode()->AddChildNode(box);
  }
  SWRT_RENDER_THREAD_DATA Camera(RECT viewRect, SCENE_VERTEX_XYZ* cubeEye = nullptr, int face = 0) {
    SWRT_RENDER_THREAD_DATA frame;
    EXPECT_TRUE(
        SetUpFrameCamera(&view, &scene, viewRect, viewRect, &options, cubeEye, face, 40, 8, false, frame));
    return frame;
  }
  PixelRaySet Rays(const SWRT_RENDER_THREAD_DATA& frame, unsigned x, unsigned y, unsigned samples = 1) {
    const SCENE_VERTEX_XYZ_64 planeOrigin = frame.planeOrigin;
    const SCENE_MATRIX_64 eyeToWorld = frame.eyeToWorld;
    PixelRaySet rays;
    RT_RENDER_ENGINE::BuildPixelRays(rays, x, y, samples, &planeOrigin, frame.stepX, frame.stepY, &eyeToWorld,
                                     view.GetProjectionType(), 3, 3, options.DoPathTracing());
    return rays;
  }

  SCENE_GRAPH scene;
  ENVIRONMENT_3D_VIEW view;
  MODE_RENDER_OPTIONS options;
};

}  // namespace

TEST_F(CameraTest, PrimaryRaysLeaveTheEyeThroughTheirPixels) {
  // A 3 x 3 view: pixel centres lie 20/3 apart on the plane of the origin.
  SWRT_RENDER_THREAD_DATA frame = Camera({0, 0, 3, 3});
  const double third = 20.0 / 3;
  ExpectPoint(Meet(Rays(frame, 1, 1).rays[0], 0), 0, 0, 0);  // the middle pixel looks along the view
  ExpectPoint(Meet(Rays(frame, 0, 0).rays[0], 0), -third, 0, third);
  ExpectPoint(Meet(Rays(frame, 2, 2).rays[0], -10), 0, -10, 0);  // every ray comes from the eye
  // Four rays at the offsets of their table from the pixel's centre.
  const double four[4][2] = {{-0.1, -0.4}, {0.4, -0.1}, {-0.4, 0.1}, {0.1, 0.4}};
  const PixelRaySet rays = Rays(frame, 1, 1, 4);
  for (int i = 0; i < 4; ++i) ExpectPoint(Meet(rays.rays[i], 0), four[i][0] * third, 0, -four[i][1] * third);
  // Path tracing: one ray somewhere in the pixel, another one each time.
  options.SetPathTracing(true);
  const SCENE_VERTEX_XYZ_64 a = Meet(Rays(frame, 1, 1).rays[0], 0), b = Meet(Rays(frame, 1, 1).rays[0], 0);
  EXPECT_TRUE(std::fabs(a.x) <= third / 2 && std::fabs(a.z) <= third / 2 && a.x != b.x) << a.x << " " << b.x;
  options.SetPathTracing(false);

  // Parallel: 10 units high, all rays along +y.
  view.SetProjectionType(ENVIRONMENT_3D_VIEW::ParallelProjection);
  frame = Camera({0, 0, 2, 2});
  const PixelRaySample ray = Rays(frame, 0, 1).rays[0];
  ExpectPoint(ray.direction, 0, 1, 0);
  ExpectPoint(Meet(ray, 100), -2.5, 100, -2.5);

  // Cube faces look along +x, -x, +z, -z, +y, -y from the given eye.
  SCENE_VERTEX_XYZ eye = {1, 2, 3};
  const SCENE_VERTEX_XYZ_64 axes[6] = {{1, 0, 0}, {-1, 0, 0}, {0, 0, 1}, {0, 0, -1}, {0, 1, 0}, {0, -1, 0}};
  view.SetProjectionType(ENVIRONMENT_3D_VIEW::PerspectiveProjection);
  for (int face = 0; face < 6; ++face) {
    const PixelRaySample centre = Rays(Camera({0, 0, 1, 1}, &eye, face), 0, 0).rays[0];
    ExpectPoint(centre.direction, axes[face].x, axes[face].y, axes[face].z);
    const SCENE_VERTEX_XYZ_64 o = centre.origin;
    const double t = (o.x - 1) * axes[face].x + (o.y - 2) * axes[face].y + (o.z - 3) * axes[face].z;
    ExpectPoint(o, 1 + t * axes[face].x, 2 + t * axes[face].y, 3 + t * axes[face].z);  // on the axis
  }
}

// One pixel: its rays are built and intersected, then shaded in groups
// that hit the same triangle, or each along its own path, and averaged into
// the pixel's colour.
#include <new>

#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "pipeline/PixelRayGroups.h"
#include "pipeline/RandomNumberGenerator.h"

namespace {
// An unweighted box average; alpha is averaged with the colour, so a pixel
// on the model's edge against the background is partly covered.
SCENE_VERTEX_XYZW AverageColor(const PixelRaySet& rays) {
  if (rays.count == 1) return rays.rays[0].color;
  SCENE_VERTEX_XYZW sum = {0.0f, 0.0f, 0.0f, 0.0f};
  for (unsigned int i = 0; i < rays.count; ++i) {
    const SCENE_VERTEX_XYZW color = rays.rays[i].color;
    sum = {sum.x + color.x, sum.y + color.y, sum.z + color.z, sum.w + color.w};
  }
  const float scale = static_cast<float>(1.0 / rays.count);
  return {sum.x * scale, sum.y * scale, sum.z * scale, sum.w * scale};
}
}  // namespace

bool RT_RENDER_ENGINE::RaytracePixel(SWRT_RENDER_THREAD_DATA* data, unsigned int index,
                                     SCENE_VERTEX_XYZW& color, std::atomic<bool>& abort) {
  if (!data || !data->view || !data->options || data->height == 0) return false;
  const unsigned int x = index / data->height + data->x;
  const unsigned int y = index % data->height + data->y;
  const bool pathTracing = data->options->DoPathTracing();
  // BuildPixelRays writes `count` and every record it counts, and nothing
  // reads past `count`: the set's 3.4 KB are left uncleared rather than
  // zeroed for every pixel. A byte array's storage holds the set as an
  // implicitly created object.
  unsigned char raySetBytes[sizeof(PixelRaySet)];
  PixelRaySet& rays = *std::launder(reinterpret_cast<PixelRaySet*>(raySetBytes));
  BuildPixelRays(rays, x, y, data->samples, &data->planeOrigin, data->stepX, data->stepY, &data->eyeToWorld,
                 data->view->GetProjectionType(), data->viewWidth, data->viewHeight, pathTracing);
  PixelRayHit hits[MaximumPixelRays] = {};
  for (unsigned int i = 0; i < rays.count && !abort; ++i) {
    const PixelRaySample& ray = rays.rays[i];
    hits[i].sampleIndex = i;
    hits[i].hit = IntersectSWGeometry(ray.origin, ray.direction, ray.inverseDirection, hits[i].result);
    if (ShouldAbort()) abort = true;
  }
  if (abort) return false;

  if (!pathTracing) {
    const auto shade = [&](PixelRayGroup& group, bool hit) {
      bool stop = abort;
      ShadePixel(data->view, data->options, hit, group.results, group.samples, group.count,
                 data->nearDistance, data->farDistance, 0, 0, stop);
      if (stop) abort = true;
    };
    ShadeRayGroups(hits, rays.count, rays, abort, shade, [this] { return ShouldAbort(); });
  } else {
    // Each ray follows its own path; one generator serves the pixel.
    RT_RANDOM_NUMBER_GENERATOR generator(true, 0);
    for (unsigned int i = 0; i < rays.count && !abort; ++i) {
      bool stop = abort;
      rays.rays[i].color = PathTrace(data->view, data->options, hits[i].hit, hits[i].result, rays.rays[i],
                                     generator, data->nearDistance, data->farDistance, 0, 0, stop);
      if (ShouldAbort() || stop) abort = true;
    }
  }
  if (abort) return false;
  color = AverageColor(rays);
  return true;
}

// One worker's share of photon shooting: pick a light, make a photon, trace
// it, and hand the surface it meets to ProcessPhotonIntersectionThread,
// until both lists are full.
#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "scene/LightTable.h"
#include "photons/PhotonEmission.h"
#include "photons/PhotonProgress.h"
#include "pipeline/RandomNumberGenerator.h"
#include "photons/ShootPhotonsThreadData.h"

namespace {
// Rounds after which a job gives up on a scene that gives back too few
// photons, and how few that is.
constexpr uint64_t PatientRounds = 1000000;
constexpr uint64_t FewPhotons = 1000;
// The emitter's factor on a photon that reached a surface: 100 + 10 x the
// photon energy option for the project's lights, fixed for default lighting.
constexpr double DefaultLightingPhotonFactor = 500.0;

bool PayloadIsComplete(const SWRT_SHOOT_PHOTONS_THREAD_DATA& data) {
  return data.view && data.options && data.directCount && data.indirectCount && data.shotCount &&
         data.lightIndices && data.generator;
}

// Every listed light is equally likely, whatever its intensity.
const RTRendererLight* PickListedLight(const SWRT_SHOOT_PHOTONS_THREAD_DATA& data,
                                       const RTLightTable& table) {
  const std::vector<uint32_t>& rows = *data.lightIndices;
  uint32_t row = data.generator->RandomIndex(static_cast<uint32_t>(rows.size()));
  if (row >= rows.size()) row = 0;
  if (row >= rows.size() || rows[row] >= table.lights.size()) return nullptr;
  return table.lights[rows[row]];
}
}  // namespace

void RT_RENDER_ENGINE::ShootSWPhotonsThread(SWRT_SHOOT_PHOTONS_THREAD_DATA& data, bool& abort) {
  if (!PayloadIsComplete(data) || !data.options->DoLighting()) return;
  const MODE_RENDER_OPTIONS& options = *data.options;
  const bool custom = options.DoCustomLighting();
  const double emitterFactor =
      custom ? 100.0 + 10.0 * options.GetPhotonEnergy() : DefaultLightingPhotonFactor;
  PhotonProgress progress(cubeMapProgressBar, data.directLimit, data.indirectLimit);

  for (uint64_t attempts = 0;; ++attempts) {
    if (abort) return;
    // An abort ends the job after this round.
    if (ShouldAbort()) abort = true;
    const RTRendererLight* light = custom ? (lightTable ? PickListedLight(data, *lightTable) : nullptr)
                                          : (defaultLights ? &defaultLights[0] : nullptr);
    if (light) {
      PhotonRay photon = EmitPhoton(light->definition, sceneMin, sceneMax, *data.generator);
      SCENE_VERTEX_XYZ_64 inverseDirection = InverseDirection(photon.direction);
      SWRayIntersectionResult result{};
      // A photon that misses everything is not counted: the energy is
      // shared among the photons that reached a surface.
      if (IntersectSWGeometry(photon.origin, photon.direction, inverseDirection, result)) {
        photon.energy = {photon.energy.x * emitterFactor, photon.energy.y * emitterFactor,
                         photon.energy.z * emitterFactor};
        data.shotCount->fetch_add(1);
        ProcessPhotonIntersectionThread(data, true, result, photon.origin, photon.direction, inverseDirection,
                                        photon.energy, 0);
      }
    }
    const uint64_t direct = data.directCount->load(), indirect = data.indirectCount->load();
    if (direct >= data.directLimit && indirect >= data.indirectLimit) return;
    if (attempts > PatientRounds && (direct < FewPhotons || indirect < FewPhotons)) return;
    progress.Report(direct, indirect);
  }
}

// Filling the two photon lists on the workers and building the maps over
// them. The lists are allocated once at full size before the jobs start, so
// that storing a photon costs one atomic add and no lock.
#include <unistd.h>

#include <new>
#include <stdexcept>

#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "scene/LightTable.h"
#include "photons/PhotonProgress.h"
#include "pipeline/RandomNumberGenerator.h"
#include "photons/ShootPhotonsThreadData.h"

namespace {
// Photons per list with the default lights, and per photon level with the
// project's lights.
constexpr uint32_t DefaultPhotonLimit = 1000000;
constexpr uint64_t PhotonsPerLevel = 100000;

// Levels from 42950 on would pass 2^32 rows; they ask for as many photons as
// a list can hold, and a list that large is never had.
uint32_t PhotonLimit(const MODE_RENDER_OPTIONS& options) {
  if (!options.DoCustomLighting()) return DefaultPhotonLimit;
  const uint64_t wanted = uint64_t{options.GetPhotonLevel()} * PhotonsPerLevel;
  return wanted > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<uint32_t>(wanted);
}

// Whether both lists, and the maps built over them, fit in the machine's
// memory. Lists larger than that are not attempted: the system would hand
// out the pages of a huge list and kill the program once they are touched,
// where a list that can't be had should only leave the frame without
// photons.
bool PhotonListsFit(uint32_t limit) {
  const long pages = sysconf(_SC_PHYS_PAGES), pageSize = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || pageSize <= 0) return true;  // unknown: the allocation decides
  const double perRow = sizeof(SWPhoton) + sizeof(SWPhotonEntry) + sizeof(SWPhotonNode);
  return 2.0 * limit * perRow <= static_cast<double>(pages) * static_cast<double>(pageSize);
}

// Rows of `lights` that emit photons: enabled, and not a symbol light that
// the options switch off. The headlight never emits.
std::vector<uint32_t> EmittingLights(const RTLightTable& table, const MODE_RENDER_OPTIONS& options) {
  std::vector<uint32_t> rows;
  for (uint32_t row = 0; row < table.lights.size(); ++row) {
    const RTRendererLight* light = table.lights[row];
    if (!light || !(light->definition.flags & LightEnabled)) continue;
    if ((light->definition.flags & LightIsSymbol) && options.DisableSymbolLights()) continue;
    rows.push_back(row);
  }
  return rows;
}

// Gives the memory of both lists back and leaves both maps empty.
void DropPhotons(std::vector<SWPhoton>& direct, std::vector<SWPhoton>& indirect, SWPhotonMap& directMap,
                 SWPhotonMap& indirectMap) {
  std::vector<SWPhoton>().swap(direct);
  std::vector<SWPhoton>().swap(indirect);
  directMap.Clear();
  indirectMap.Clear();
}

void ScaleEnergy(std::vector<SWPhoton>& photons, double scale) {
  for (SWPhoton& photon : photons) {
    SCENE_VERTEX_XYZ_64 energy = photon.energy;
    energy = {energy.x * scale, energy.y * scale, energy.z * scale};
    photon.energy = energy;
  }
}
}  // namespace

void RT_RENDER_ENGINE::GenerateSWPhotonMap(ENVIRONMENT_3D_VIEW* view, const MODE_RENDER_OPTIONS* options) {
  directPhotons.clear();
  indirectPhotons.clear();
  if (!view || !options || !kdTrees || !meshTables || !lightTable || !defaultLights) return;
  if (!directPhotonMap || !indirectPhotonMap || !options->DoLighting()) return;

  std::vector<uint32_t> lightIndices;
  if (options->DoCustomLighting()) {
    lightIndices = EmittingLights(*lightTable, *options);
    if (lightIndices.empty()) return;
  }
  const uint32_t limit = PhotonLimit(*options);
  PhotonCounter directCount{0}, indirectCount{0}, shotCount{0};
  // Not enough memory for the lists: no photons this time. The frame still
  // renders, with the direct light and without photon light.
  if (!PhotonListsFit(limit)) {
    DropPhotons(directPhotons, indirectPhotons, *directPhotonMap, *indirectPhotonMap);
    return;
  }
  try {
    directPhotons.resize(limit);
    indirectPhotons.resize(limit);
  } catch (const std::exception&) {
    DropPhotons(directPhotons, indirectPhotons, *directPhotonMap, *indirectPhotonMap);
    return;
  }

  // Seeded and on one worker when a distributed server deals the tiles, so
  // that every machine of the farm shoots the same photons.
  const bool repeatable = distributedServer != nullptr;
  const unsigned int jobs = repeatable ? 1 : GetProcessorCount();
  RT_RANDOM_NUMBER_GENERATOR generator(!repeatable, 0);
  if (cubeMapProgressBar) {
    PostMessageA(cubeMapProgressBar, PBM_SETRANGE32, 0, static_cast<LPARAM>(uint64_t{limit} * 2));
    PostMessageA(cubeMapProgressBar, PBM_SETPOS, 0, 0);
  }
  {
    platform::CriticalSectionGuard guard(queueLock);
    for (unsigned int job = 0; job < jobs; ++job) {
      auto* data = new (std::nothrow) SWRT_SHOOT_PHOTONS_THREAD_DATA{
          view, options, &directCount, &indirectCount, limit, limit, &shotCount, &lightIndices, &generator};
      if (data) workQueue.push_back({RT_JOB_SHOOT_PHOTONS, data});
    }
  }
  WaitForCompletion();
  if (cubeMapProgressBar)
    PostMessageA(cubeMapProgressBar, PBM_SETPOS, StoredPhotons(directCount, indirectCount, limit, limit), 0);

  // With no photon shot the lists hold nothing but zero rows, and 1 / 0
  // would turn their energy into not-a-number: they stay zero, and every
  // gather on them gives 0.
  const uint64_t shots = shotCount.load();
  if (shots > 0) {
    const double scale = 1.0 / static_cast<double>(shots);
    ScaleEnergy(directPhotons, scale);
    ScaleEnergy(indirectPhotons, scale);
  }
  try {
    directPhotonMap->Build(directPhotons);
    indirectPhotonMap->Build(indirectPhotons);
  } catch (const std::exception&) {
    DropPhotons(directPhotons, indirectPhotons, *directPhotonMap, *indirectPhotonMap);
  }
}

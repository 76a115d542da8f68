#include "SceneAssembly.h"

#include <optional>
#include <vector>

#include "DemoScene.h"
#include "ModelImport.h"
#include "PhotonSettings.h"
#include "SceneFile.h"

namespace {

// Where the view looks from, as far as anyone said.
struct CameraChoice {
  std::optional<SCENE_VERTEX_XYZ> eye, target;  // world
  std::optional<float> fieldOfView;
};

bool LoadModels(const std::vector<SceneModel>& models, HostScene& host, CameraChoice& camera,
                std::string& error) {
  host.SetTextureDirectory(models.front().file.parent_path());
  for (const SceneModel& model : models) {
    ImportedModel imported;
    if (!ImportModel(model.file, model.placement, host, imported, error)) {
      error = model.file.string() + ": " + error;
      return false;
    }
    if (imported.lights > 0) host.Options().SetCustomLighting(true);
    if (imported.camera && !camera.eye) {
      camera.eye = imported.camera->eye;
      camera.target = imported.camera->target;
      camera.fieldOfView = imported.camera->fieldOfView;
    }
  }
  return true;
}

// The command line wins over the scene file, which wins over the model.
void Override(const std::optional<SCENE_VERTEX_XYZ>& filePoint, const HostScene& host,
              std::optional<SCENE_VERTEX_XYZ>& world) {
  if (filePoint) world = host.FileToWorldPoint(*filePoint);
}

void PlaceCamera(const RenderSettings& settings, const SceneCamera& scene, CameraChoice camera,
                 HostScene& host, double aspect) {
  Override(scene.eye, host, camera.eye);
  Override(scene.target, host, camera.target);
  Override(settings.eye, host, camera.eye);
  Override(settings.target, host, camera.target);
  if (scene.fieldOfView) camera.fieldOfView = scene.fieldOfView;
  if (settings.fieldOfView) camera.fieldOfView = settings.fieldOfView;
  const SCENE_CAMERA_INFO* info = host.View().GetViewFileState()->GetCameraInfo();
  const float fieldOfView = camera.fieldOfView.value_or(info->fieldOfView);
  host.SetCamera(host.CameraEye(), host.CameraTarget(), fieldOfView);
  // What nobody gave comes from a zoom to fit: the whole model in view.
  if (!camera.eye || !camera.target) host.FrameAll(aspect);
  host.SetCamera(camera.eye.value_or(host.CameraEye()), camera.target.value_or(host.CameraTarget()),
                 fieldOfView);
}

}  // namespace

bool AssembleScene(const RenderSettings& settings, double aspect, HostScene& host, std::string& error) {
  SceneDescription scene;
  if (!settings.sceneFile.empty() && !ReadSceneFile(settings.sceneFile, scene, error)) {
    error = settings.sceneFile + ": " + error;
    return false;
  }
  std::vector<SceneModel> models = scene.models;
  if (!settings.model.empty()) models.insert(models.begin(), SceneModel{settings.model, {}});
  CameraChoice camera;
  if (models.empty()) {
    BuildDemoScene(host);
    camera = {host.CameraEye(), host.CameraTarget(),
              host.View().GetViewFileState()->GetCameraInfo()->fieldOfView};
  } else if (!LoadModels(models, host, camera, error)) {
    return false;
  }
  if (settings.photons) UseInteriorPhotonMapping(host);
  // Hard shadow rays unless the scene file or --soft-shadows asks for more.
  host.Options().SetRayTracedSoftShadows(false);
  if (!ApplyScene(scene, host, error)) {
    error = settings.sceneFile + ": " + error;
    return false;
  }
  PlaceCamera(settings, scene.camera, camera, host, aspect);
  if (settings.pathTracing) host.Options().SetPathTracing(true);
  if (settings.photons) host.Options().SetPhotonMapping(true);
  if (settings.softShadows) host.Options().SetRayTracedSoftShadows(true);
  if (settings.antialias) {
    host.Options().SetAntiAliasing(*settings.antialias > 0);
    host.Options().SetAntialiasingLevel(*settings.antialias);
  }
  return true;
}

bool TakeSceneRenderLimits(RenderSettings& settings, std::string& error) {
  if (!settings.sceneFile.empty()) {
    SceneDescription scene;
    if (!ReadSceneFile(settings.sceneFile, scene, error)) {
      error = settings.sceneFile + ": " + error;
      return false;
    }
    if (!settings.passes) settings.passes = scene.passes;
    if (!settings.timeLimit) settings.timeLimit = scene.timeLimit;
  }
  if (settings.timeLimit && settings.cubeMap) {
    error = "a time limit does not work with --cube-map";
    return false;
  }
  return true;
}

RenderJob MakeJob(const RenderSettings& settings) {
  RenderJob job;
  job.output = OutputName(settings);
  job.width = settings.width.value_or(DefaultWidth);
  job.height = settings.height.value_or(DefaultHeight);
  if (settings.cubeMap && settings.width.has_value() != settings.height.has_value())
    job.width = job.height = settings.width.value_or(settings.height.value_or(0));  // faces are square
  else if (settings.cubeMap && !settings.width)
    job.width = job.height = DefaultHeight;
  job.passes = settings.passes.value_or(settings.timeLimit ? UnlimitedPasses : DefaultPasses);
  job.timeLimit = settings.timeLimit.value_or(0.0);
  job.checkpoints = settings.checkpoints;
  job.alpha = settings.alpha;
  job.cubeMap = settings.cubeMap;
  job.cubeMapNames = CubeMapNames(job.output);
  return job;
}

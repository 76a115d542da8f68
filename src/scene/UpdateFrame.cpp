// Bringing the engine's tables up to date with the host's scene. A change
// notification or a new frame tag rebuilds everything in a fixed order:
// lights, materials, geometry and both trees, textures, default lighting.
// Otherwise only the lights and the camera-bound state follow the host.
#include "host/BrindlexViewMath.h"
#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "accel/KDTree.h"
#include "scene/LightTable.h"
#include "scene/CameraPosition.h"
#include "scene/DefaultLights.h"
#include "scene/LightSets.h"
#include "scene/MaterialTables.h"
#include "photons/PhotonMapWanted.h"
#include "scene/SceneGraphTraversal.h"
#include "host/brindlexutil.h"

void RT_RENDER_ENGINE::UpdateFrame(ENVIRONMENT_3D_PROJECT* project, ENVIRONMENT_3D_VIEW* view,
                                   SCENE_GRAPH* sceneGraph, SCENE_LIGHTS* lights,
                                   const SCENE_GRAPH_NODE_INTERFACE* horizonNode,
                                   const char* horizonMaterialID, unsigned int materialOption,
                                   int64_t frameTag) {
  const uint32_t startTick = platform::GetTickCount();
  VIEW_FILE_STATE* fileState = view ? view->GetViewFileState() : nullptr;
  const SCENE_CAMERA_INFO* cameraInfo = fileState ? fileState->GetCameraInfo() : nullptr;
  SCENE_GRAPH_NODE_INTERFACE* root = sceneGraph ? sceneGraph->GetSceneGraphNode("Scene Graph Root") : nullptr;
  // Every later step needs the camera as well, so a view without one ends
  // the call here too.
  if (project && cameraInfo && root && kdTrees && meshTables) {
    const SCENE_CAMERA_INFO camera = *cameraInfo;
    bool aborted = false;
    // CameraUnderCover follows every setting or move of the default lights.
    auto testCover = [&] {
      engineFlags.Assign(CameraUnderCover, TestCameraUnderCover(*this, defaultLights[0].definition.position));
    };

    // Lights: offer every host light once per tag, then drain the sets.
    if (!(engineFlags.IsSet(LightsSynced) && lastFrameTag == frameTag)) {
      if (lights)
        for (int i = 0; i < lights->GetNumberOfLightInstances(); ++i)
          ModifyLightInstance(lights->GetLightInstance(i));
      engineFlags.Set(LightsSynced);
    }
    if (lastFrameTag != frameTag) NoteLostLights(lightTable, lights, removedLights);
    DrainRemovedLights(lightTable, removedLights, dirtyShadowLights);
    DrainModifiedLights(lightTable, lights, modifiedLights, dirtyShadowLights);
    ApplyAlternateLight(lightTable, alternateLight, engineFlags.IsSet(AlternateLightActive),
                        dirtyShadowLights);

    MODE_RENDER_OPTIONS options;
    view->GetCurrentRenderOptions(project, options);
    bool rotateStale = true;
    bool photonsShot = false;  // for the default lights at this camera
    SCENE_MATRIX viewMatrix;
    CalculateModelViewMatrix(&viewMatrix, &camera);

    if (engineFlags.IsSet(RebuildScene) || lastFrameTag != frameTag) {
      rotateStale = false;
      kdTrees[0].Clear();
      meshTables[0].Clear();
      kdTrees[1].Clear();
      meshTables[1].Clear();
      ResetSceneBounds(sceneMin, sceneMax);
      ReplaceMaterialRoots(materialRoots, project, view, materialOption);

      PROJECT_HORIZON* horizon = project->GetProjectHorizon();
      engineFlags.Assign(AutoHorizon, horizon && horizon->RenderAutoHorizon());
      project->ReleaseProjectHorizon();
      swMaterials.clear();
      materialIndexByNode.clear();
      if (!horizonNode || !horizonMaterialID) engineFlags.Clear(AutoHorizon);

      BuildGeometryPass(0, view, root, horizonNode, horizonMaterialID, nullptr);
      BuildGeometryPass(1, view, root, nullptr, nullptr, &viewMatrix);
      aborted = ShouldAbort() || aborted;
      UpdateTextures(options, aborted);

      if (options.DoLighting() && !options.DoCustomLighting() && defaultLights && !aborted) {
        SetDefaultLights(defaultLights, camera);
        testCover();
      }
      // The default lights shoot only under a roof, where they alone leave
      // the rooms dark.
      const bool coverPhotons = !options.DoCustomLighting() && engineFlags.IsSet(CameraUnderCover);
      if ((!aborted && CustomLightPhotonsWanted(options)) || coverPhotons) {
        GenerateSWPhotonMap(view, &options);
        photonsShot = coverPhotons;
      } else {
        directPhotons.clear();
        indirectPhotons.clear();
      }
      if (defaultLights) {
        dirtyShadowLights.insert(int32_t{defaultLights[0].number});
        dirtyShadowLights.insert(int32_t{defaultLights[1].number});
      }
      if (lightTable)
        for (const RTRendererLight* light : lightTable->lights)
          if (light) dirtyShadowLights.insert(int32_t{light->number});
      aborted = ShouldAbort() || aborted;
      if (!aborted) engineFlags.Clear(RebuildScene);
    }

    if (!aborted && options.DoLighting() && !options.DoCustomLighting() && defaultLights) {
      if (FollowCameraWithDefaultLight(defaultLights, camera)) testCover();
      // The lights of a full rebuild stand at the camera already: the maps
      // it shot for them are fresh.
      if (!engineFlags.IsSet(CameraUnderCover)) {
        directPhotons.clear();
        indirectPhotons.clear();
      } else if (!photonsShot) {
        GenerateSWPhotonMap(view, &options);
      }
      aborted = ShouldAbort() || aborted;
    }
    if (!aborted && options.DoLighting() && options.DoCustomLighting() && headlight) {
      SetHeadlight(*headlight, options, camera);
      aborted = ShouldAbort() || aborted;
    }
    if (UpdateShadowMaps(view, sceneGraph, options, camera, aborted)) rotateStale = true;

    if (rotateStale) {
      kdTrees[1].Clear();
      meshTables[1].Clear();
      BuildGeometryPass(1, view, root, nullptr, nullptr, &viewMatrix);
    }
    lastFrameTag = frameTag;
  }
  debugOS << "UpdateFrame Time = " << (platform::GetTickCount() - startTick) / 1000.0 << " seconds"
          << std::endl;
}

void RT_RENDER_ENGINE::BuildGeometryPass(int pass, ENVIRONMENT_3D_VIEW* view,
                                         SCENE_GRAPH_NODE_INTERFACE* root,
                                         const SCENE_GRAPH_NODE_INTERFACE* horizonNode,
                                         const char* horizonMaterialID, const SCENE_MATRIX* viewMatrix,
                                         const int* lightProjectionType) {
  // A light's pass turns the geometry towards the light's camera and
  // leaves the scene box alone.
  const bool lightPass = lightProjectionType != nullptr;
  SceneGraphTraversalInitializeSWMeshes traversal(
      &meshTables[pass], &materialRoots, &swMaterials, &materialIndexByNode, horizonNode, horizonMaterialID,
      pass == 1, viewMatrix, lightPass ? *lightProjectionType : view->GetProjectionType(),
      lightPass ? nullptr : &sceneMin, lightPass ? nullptr : &sceneMax, root);
  TraverseSceneGraph(root, &traversal);
  kdTrees[pass].Build(&meshTables[pass], workQueue, queueLock, renderThreads, wakeSemaphore, doneSemaphore,
                      shouldAbortFunction, shouldAbortContext);
}

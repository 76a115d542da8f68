// The software ray-tracing render engine: the one class behind the factory.
// Its operations live in the folders of the subsystems that own them.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/CriticalSection.h"
#include "pipeline/PixelRays.h"
#include "accel/RayIntersection.h"
#include "engine/RenderEngineBase.h"
#include "scene/SWMaterialEntry.h"
#include "photons/SWPhotonMap.h"
#include "platform/Semaphore.h"
#include "engine/WorkQueue.h"

// Held by pointer only; the files that use them include their headers.
class KDTree;
class MATERIAL_3D_NODE;
class RTLightTable;
class RT_RANDOM_NUMBER_GENERATOR;
struct RTRendererLight;
struct SWCubeShadowMap;
struct SWHitSurface;
struct SWMeshTable;
struct SWRT_SHOOT_PHOTONS_THREAD_DATA;
struct SWShadowMap;
struct SWTexture;
struct SW_PIXEL_G64R64F;
enum class SWHitSurfaceStatus : uint8_t;

class RT_RENDER_ENGINE : public RT_RENDER_ENGINE_BASE, public RENDER_PROGRESS_INTERFACE {
 public:
  RT_RENDER_ENGINE();
  ~RT_RENDER_ENGINE() override;

  // Lifecycle and queries.
  void Initialize(const char* textureDirectory, const char* colorMapFolder, const char* bumpMapFolder,
                  const char* maskMapFolder, const char* fifthFolder, const char* sixthFolder) override;
  void ShutDown() override;
  void ShutDownModel() override;
  int QueryRenderer(int key) const override;
  unsigned int GetProcessorCount() override;

  // Scene update and frames.
  void UpdateFrame(ENVIRONMENT_3D_PROJECT* project, ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* scene,
                   SCENE_LIGHTS* lights, const SCENE_GRAPH_NODE_INTERFACE* horizonNode,
                   const char* horizonMaterialID, unsigned int flags, int64_t frameTag) override;
  unsigned int RenderFrame(ENVIRONMENT_3D_PROJECT* project, ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* scene,
                           const RECT& rect, bool forceScreen) override;
  void SetAlternateLightInstance(SCENE_LIGHT_INSTANCE* instance) override;

  // RENDER_PROGRESS_INTERFACE
  void DisplayBeginProgress(unsigned long color, unsigned int x, unsigned int y, unsigned int frameX,
                            unsigned int frameY, unsigned int width, unsigned int height) override;
  bool DisplayEndProgress(Gdiplus::Bitmap* bitmap, unsigned int x, unsigned int y, unsigned int frameX,
                          unsigned int frameY, unsigned int width, unsigned int height) override;

  // Worker threads and the work queue.
  static unsigned long InitializeSoftwareRaytraceThread(void* engine);
  unsigned long SoftwareRaytraceThread();
  static unsigned long RaytraceBlockThread(void* data);
  void WaitForCompletion();
  void ClearWorkToDo();

  // Scene update (src/scene/Update*.cpp)
  // The ordinary or the rotate-to-camera walk into its mesh table, then the
  // build of its tree on the workers. `lightProjectionType` given: the
  // rotate pass of a light's camera, of that projection type.
  void BuildGeometryPass(int pass, ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH_NODE_INTERFACE* root,
                         const SCENE_GRAPH_NODE_INTERFACE* horizonNode, const char* horizonMaterialID,
                         const SCENE_MATRIX* viewMatrix, const int* lightProjectionType = nullptr);
  // Brings the texture table in line with the materials: keeps what is still
  // used, loads what is new, frees the rest. Polls abort into `aborted`.
  void UpdateTextures(const MODE_RENDER_OPTIONS& options, bool& aborted);
  // Decides which lights keep shadow maps, marks the others dirty and draws
  // the dirty ones. Returns whether shadow work turned the rotate-to-camera
  // pair away.
  bool UpdateShadowMaps(ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* sceneGraph, const MODE_RENDER_OPTIONS& options,
                        const SCENE_CAMERA_INFO& camera, bool& aborted);

  // Ray queries and photon store (src/accel, src/photons)
  // The nearest hit of both trees; true if any triangle was hit.
  // With `reach`, only hits within that distance are sure to be found.
  bool IntersectSWGeometry(const SCENE_VERTEX_XYZ_64& origin, const SCENE_VERTEX_XYZ_64& direction,
                           const SCENE_VERTEX_XYZ_64& inverseDirection, SWRayIntersectionResult& result,
                           const double* reach = nullptr) const;

  // Photon shooting (src/photons)
  // Fills directPhotons and indirectPhotons on the workers and builds both
  // photon maps from them; blocks until the shooting is done or aborted.
  void GenerateSWPhotonMap(ENVIRONMENT_3D_VIEW* view, const MODE_RENDER_OPTIONS* options);
  // One worker's share: shoots photons until both lists are full, the scene
  // gives back too few, or `abort` is set (which an abort poll here sets).
  void ShootSWPhotonsThread(SWRT_SHOOT_PHOTONS_THREAD_DATA& data, bool& abort);
  // Follows one photon that met `result` from surface to surface, storing a
  // record at each surface that takes it.
  void ProcessPhotonIntersectionThread(SWRT_SHOOT_PHOTONS_THREAD_DATA& data, bool hit,
                                       SWRayIntersectionResult result, SCENE_VERTEX_XYZ_64& origin,
                                       SCENE_VERTEX_XYZ_64& direction, SCENE_VERTEX_XYZ_64& inverseDirection,
                                       SCENE_VERTEX_XYZ_64& energy, uint32_t bounce);

  // Textures (src/textures)
  // One filtered colour of row `textureId` of `textures` at (u, v); the
  // four derivatives are the change of u and v across the pixel, all zero
  // for level 0. `color` is left alone for a row without an image.
  void SampleSWTexture(unsigned int textureId, float u, float v, float dudx, float dvdx, float dudy,
                       float dvdy, SCENE_VERTEX_XYZW& color) const;

 private:
  // Loads a picture, or its cached compressed pyramid, into row `slot`;
  // true when the row holds a usable texture.
  bool LoadSWTexture(unsigned int slot, const char* path, bool transparent, const char* maskPath);
  // Makes a normal map from the height picture, else from the colour
  // picture, into row `slot`, named `colorPath`.
  bool LoadSWNormalHeightMapTexture(unsigned int slot, const char* colorPath, const char* heightPath);
  // Takes the cached compressed pyramid of `path` if there is one made
  // from the picture as it is now on disk.
  bool ReadCompressedTextureCache(SWTexture& record, const char* path, bool transparent);

 public:
  // Shadows and lighting (src/shadows, src/lighting)
  // True when a surface that casts a shadow lies between `point` and
  // `target`; `depth` counts the surfaces already stepped through.
  bool IsPointInShadow(const SCENE_VERTEX_XYZ_64& target, const SCENE_VERTEX_XYZ_64& point,
                       uint32_t depth) const;
  // The same along the unit `direction` from `point` towards a light with
  // no position, where any blocker counts however far.
  bool IsPointInDirectShadow(const SCENE_VERTEX_XYZ_64& direction, const SCENE_VERTEX_XYZ_64& point,
                             uint32_t depth) const;
  // How much of `light` reaches `point`, from 0.0 (shadowed) to 1.0 (lit).
  // `distance` is the caller's and is not read.
  double GetLightVisibilityThroughShadow(const RTRendererLight* light, const MODE_RENDER_OPTIONS* options,
                                         RT_RANDOM_NUMBER_GENERATOR* generator,
                                         const SCENE_VERTEX_XYZ_64& lightPoint,
                                         const SCENE_VERTEX_XYZ_64& point, uint32_t depth,
                                         double distance) const;
  double GetDirectLightVisibilityThroughShadow(const RTRendererLight* light,
                                               const MODE_RENDER_OPTIONS* options,
                                               RT_RANDOM_NUMBER_GENERATOR* generator,
                                               const SCENE_VERTEX_XYZ_64& lightDirection,
                                               const SCENE_VERTEX_XYZ_64& point, uint32_t depth,
                                               double distance) const;

  // Adds the diffuse and specular energy of one light at a surface point to
  // the two sums; a light that does not reach the point leaves them alone.
  void AddLightContributionToPixel(const RTRendererLight* light, const MODE_RENDER_OPTIONS* options,
                                   RT_RANDOM_NUMBER_GENERATOR* generator, const SCENE_VERTEX_XYZ_64& point,
                                   const SCENE_VERTEX_XYZ_64& normal, const SCENE_VERTEX_XYZ_64& rayDirection,
                                   const SCENE_VERTEX_XYZ& diffuseColor,
                                   const SCENE_VERTEX_XYZ& specularColor, uint32_t depth,
                                   SCENE_VERTEX_XYZ& diffuseSum, SCENE_VERTEX_XYZ& specularSum) const;
  void AddPointLightContributionToPixel(const RTRendererLight* light, const MODE_RENDER_OPTIONS* options,
                                        RT_RANDOM_NUMBER_GENERATOR* generator,
                                        const SCENE_VERTEX_XYZ_64& point, const SCENE_VERTEX_XYZ_64& normal,
                                        const SCENE_VERTEX_XYZ_64& rayDirection,
                                        const SCENE_VERTEX_XYZ& diffuseColor,
                                        const SCENE_VERTEX_XYZ& specularColor, uint32_t depth,
                                        SCENE_VERTEX_XYZ& diffuseSum, SCENE_VERTEX_XYZ& specularSum) const;
  void AddSpotLightContributionToPixel(const RTRendererLight* light, const MODE_RENDER_OPTIONS* options,
                                       RT_RANDOM_NUMBER_GENERATOR* generator,
                                       const SCENE_VERTEX_XYZ_64& point, const SCENE_VERTEX_XYZ_64& normal,
                                       const SCENE_VERTEX_XYZ_64& rayDirection,
                                       const SCENE_VERTEX_XYZ& diffuseColor,
                                       const SCENE_VERTEX_XYZ& specularColor, uint32_t depth,
                                       SCENE_VERTEX_XYZ& diffuseSum, SCENE_VERTEX_XYZ& specularSum) const;
  void AddDirectLightContributionToPixel(const RTRendererLight* light, const MODE_RENDER_OPTIONS* options,
                                         RT_RANDOM_NUMBER_GENERATOR* generator,
                                         const SCENE_VERTEX_XYZ_64& point, const SCENE_VERTEX_XYZ_64& normal,
                                         const SCENE_VERTEX_XYZ_64& rayDirection,
                                         const SCENE_VERTEX_XYZ& diffuseColor,
                                         const SCENE_VERTEX_XYZ& specularColor, uint32_t depth,
                                         SCENE_VERTEX_XYZ& diffuseSum, SCENE_VERTEX_XYZ& specularSum) const;
  void AddAreaLightContributionToPixel(const RTRendererLight* light, const MODE_RENDER_OPTIONS* options,
                                       RT_RANDOM_NUMBER_GENERATOR* generator,
                                       const SCENE_VERTEX_XYZ_64& point, const SCENE_VERTEX_XYZ_64& normal,
                                       const SCENE_VERTEX_XYZ_64& rayDirection,
                                       const SCENE_VERTEX_XYZ& diffuseColor,
                                       const SCENE_VERTEX_XYZ& specularColor, uint32_t depth,
                                       SCENE_VERTEX_XYZ& diffuseSum, SCENE_VERTEX_XYZ& specularSum) const;

  // How open the hemisphere over `normal` at `point` is: 1.0 with nothing
  // within reach, towards 0.0 where geometry lies close.
  double GetAmbientOcclusionFactor(const SCENE_VERTEX_XYZ_64& point, const SCENE_VERTEX_XYZ_64& normal) const;
  // The openness along one ray; `travelled` is the distance covered before
  // `origin`.
  double GetAmbientOcclusionFactorForRay(const SCENE_VERTEX_XYZ_64& origin,
                                         const SCENE_VERTEX_XYZ_64& direction,
                                         const SCENE_VERTEX_XYZ_64& inverseDirection, double travelled) const;

  // Shadow maps (src/shadows)
  // Draws the map of a dirty light and takes it out of dirtyShadowLights;
  // on an abort the light stays dirty. Blocks until the map is finished.
  void GenerateSWShadowmap(int lightNumber, ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* sceneGraph,
                           const MODE_RENDER_OPTIONS* options);
  // The value of one map pixel from its ray: the depth halfway between the
  // first two surfaces that block the light, and its square.
  void ProcessShadowmapPixel(bool hit, const SWRayIntersectionResult& result, PixelRaySample& sample,
                             SW_PIXEL_G64R64F& pixel, bool haveFirstDepth, double firstDepth,
                             const RTRendererLight* light, uint32_t level, uint32_t reserved) const;

 private:
  // One light's map by its type: a camera at the light, the rotate-to-camera
  // geometry turned towards it, the tiles, the filter.
  void RenderSWPointShadowmap(int lightNumber, ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* sceneGraph,
                              const MODE_RENDER_OPTIONS* options);
  void RenderSWSpotShadowmap(int lightNumber, ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* sceneGraph,
                             const MODE_RENDER_OPTIONS* options);
  void RenderSWDirectShadowmap(int lightNumber, ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* sceneGraph,
                               const MODE_RENDER_OPTIONS* options);
  void RenderSWAreaShadowmap(int lightNumber, ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* sceneGraph,
                             const MODE_RENDER_OPTIONS* options);
  // The flat maps' one procedure after their framing.
  void RenderSWFlatShadowmap(int lightNumber, ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* sceneGraph,
                             const MODE_RENDER_OPTIONS* options, int lightType);
  // Turns the rotate-to-camera geometry towards the light's view, queues
  // the tiles of `kind` over the map of `tile` and waits for them.
  void TraceShadowMapView(SCENE_GRAPH_NODE_INTERFACE* root, const SCENE_MATRIX_64& lightView,
                          const SCENE_MATRIX_64& lightProjection, int projectionType,
                          SWRT_RENDER_THREAD_DATA tile);

 public:
  // Render to file (src/pipeline)
 protected:
  // Writes `bitmap` to `name` with the encoder that the name's extension
  // chooses and returns renderToFileStatus: a failure sets it, a success
  // leaves it as it was.
  int SaveToFile(const char* name, Gdiplus::Bitmap& bitmap);

 private:
  // The full-size picture of a render to file and what its tiles need.
  struct FileRenderTarget;
  // The file path of RenderFrame: every face and pass, tile by tile, saved
  // after each pass; reports through renderToFileStatus and
  // RenderToFileComplete.
  void RenderToPictureFile(ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* scene, const MODE_RENDER_OPTIONS& options);
  // The passes of one face; `aborted` stays set for the faces after it.
  void RenderFileFace(FileRenderTarget& target, int face, bool& aborted);
  // One pass of one face over every tile, rows of tiles outermost; a tile
  // cut short by an abort is not stored back.
  void TraceFileTiles(FileRenderTarget& target, int face, uint64_t pass, bool& aborted);
  // Copies a tile between the picture and the top left corner of the frame
  // buffer, under the frame-buffer lock.
  void CopyFileTile(FileRenderTarget& target, const RECT& tile, bool intoFrameBuffer);

 public:
  // Surface shading (src/shading)
  // The ordinary ray tracer's shader. Shades `count` rays of one pixel
  // that all hit the triangle of results[0], or all missed (`hit` false),
  // into the `color` of each sample, alpha included. The surface is
  // evaluated once, for the first ray; transparency and reflection rays are
  // traced per ray and come back here as groups of one. `depth` and
  // `reflectionDepth` are 0 for camera rays. Sets `abort` when the abort
  // function asks for it, and never clears it.
  void ShadePixel(ENVIRONMENT_3D_VIEW* view, const MODE_RENDER_OPTIONS* options, bool hit,
                  const SWRayIntersectionResult* const* results, PixelRaySample* const* samples,
                  uint32_t count, float nearDistance, float farDistance, uint32_t depth,
                  uint32_t reflectionDepth, bool& abort);
  // The normal to shade a hit with: the interpolated vertex normal, tilted
  // by the relief map `reliefTextureId` when `doBump` and `reliefDepth` ask
  // for it, and turned round when the ray met the back of the triangle.
  void CalculateIntersectionNormal(const SCENE_VERTEX& v0, const SCENE_VERTEX& v1, const SCENE_VERTEX& v2,
                                   double weightB, double weightC, double hitWeight,
                                   const SCENE_VERTEX_XYZ_64& rayDirection,
                                   const SCENE_VERTEX_XYZ_64& geometricNormal, bool doBump,
                                   double reliefDepth, uint32_t reliefTextureId, double u, double v,
                                   double dudx, double dvdx, double dudy, double dvdy,
                                   SCENE_VERTEX_XYZ_64& normal) const;
  // The path tracer's shader: follows the one ray of `sample`, which met
  // `result` when `hit`, choosing at random at each hit whether it passes
  // through, mirrors or is shaded with one diffuse bounce, and returns its
  // colour, alpha included. `generator` draws every choice of the path;
  // `bounceCount` and `depth` are 0 for a camera ray. Sets `abort` when
  // the abort function asks for it, and never clears it.
  SCENE_VERTEX_XYZW PathTrace(ENVIRONMENT_3D_VIEW* view, const MODE_RENDER_OPTIONS* options, bool hit,
                              const SWRayIntersectionResult& result, const PixelRaySample& sample,
                              RT_RANDOM_NUMBER_GENERATOR& generator, float nearDistance, float farDistance,
                              uint32_t bounceCount, uint32_t depth, bool& abort);

 public:
  // Frame pipeline (src/pipeline)
  // Traces `tileRect` of the picture that the camera projects onto
  // `viewRect`: blocks from the middle outward, or the distributed server's
  // tiles. `cubeEye` null means the view's own camera; otherwise the eye of
  // cube face `cubeFace` in world coordinates. Returns when all is done or
  // aborted.
  void TraceRays(ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* scene, const RECT& viewRect, const RECT& tileRect,
                 const MODE_RENDER_OPTIONS* options, uint64_t pass, SCENE_VERTEX_XYZ* cubeEye, int cubeFace);
  // The rays of pixel (x, y), with their differentials; touches only its
  // arguments, so any thread may call it.
  static void BuildPixelRays(PixelRaySet& rays, unsigned int x, unsigned int y, unsigned int samples,
                             const SCENE_VERTEX_XYZ_64* planeOrigin, double stepX, double stepY,
                             const SCENE_MATRIX_64* eyeToWorld, int projectionType, unsigned int viewWidth,
                             unsigned int viewHeight, bool randomize);
  // Traces one block and finishes it into the frame buffer. `buffer` null:
  // the block uses one of its own. True when the block reached the frame
  // buffer and the progress interface was content.
  bool RaytraceBlock(SWRT_RENDER_THREAD_DATA* data, SCENE_VERTEX_XYZW* buffer, unsigned int bufferCount);
  // Traces pixel `index` (column order) of a block into `color`; false on
  // an abort, when `color` is not written. `abort` is the block's flag.
  bool RaytracePixel(SWRT_RENDER_THREAD_DATA* data, unsigned int index, SCENE_VERTEX_XYZW& color,
                     std::atomic<bool>& abort);

 private:
  // The screen path of RenderFrame: one pass, or path-traced passes until
  // an abort, each shown when it completes.
  void RenderToScreen(ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* scene, const RECT& rect,
                      const MODE_RENDER_OPTIONS& options);

 public:
 private:
  friend class EngineTestAccess;
  friend class ShadingTestAccess;
  friend class TextureTestAccess;
  friend class PipelineTestAccess;

  void StartWorkerThreads();
  void StopWorkerThreads();
  void RunWorkItem(const WorkItem& item, bool& abort);
  void RunRenderJob(SWRT_RENDER_THREAD_DATA& data, bool& abort);

 protected:
  KDTree* kdTrees = nullptr;  // two: ordinary and rotate-to-camera geometry
  SWPhotonMap* directPhotonMap = nullptr;
  SWPhotonMap* indirectPhotonMap = nullptr;
  std::map<uint32_t, MATERIAL_3D_NODE*> materialRoots;
  SWMeshTable* meshTables = nullptr;  // two, as kdTrees
  SCENE_VERTEX_XYZ_64 sceneMin;
  SCENE_VERTEX_XYZ_64 sceneMax;
  RTLightTable* lightTable = nullptr;
  RTRendererLight* defaultLights = nullptr;  // two
  RTRendererLight* headlight = nullptr;
  RTRendererLight* alternateLight = nullptr;
  uint32_t maximumRayDepth = 8;
  uint32_t maximumReflectionDepth = 4;
  std::vector<SWTexture*> textures;
  std::map<std::string, uint32_t> opaqueTextureIndex;
  std::map<std::string, uint32_t> transparentTextureIndex;
  std::map<std::string, uint32_t> normalMapTextureIndex;
  uint32_t backgroundTexture = 0xFFFFFFFF;
  std::vector<SWMaterialEntry> swMaterials;
  std::map<const MATERIAL_3D_NODE*, uint32_t> materialIndexByNode;
  std::deque<WorkItem> workQueue;
  platform::CriticalSection queueLock;
  std::vector<RenderThreadRecord> renderThreads;
  platform::Semaphore* wakeSemaphore = nullptr;
  platform::Semaphore* doneSemaphore = nullptr;
  platform::Semaphore* coreTokenSemaphore = nullptr;
  // A hint that a token may be there; stale values only cost a chance.
  std::atomic<bool> idleCoreAvailable{true};
  std::vector<SWShadowMap*> shadowMapsSingle;
  std::vector<SWCubeShadowMap*> shadowMapsCube;
  std::map<int32_t, int32_t> shadowMapIndexSingle;
  std::map<int32_t, int32_t> shadowMapIndexCube;
  std::vector<SWPhoton> directPhotons;
  std::vector<SWPhoton> indirectPhotons;
  std::set<int32_t> dirtyShadowLights;
  int64_t lastFrameTag = 0;
};

#include "HostScene.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>

#include "host/BrindlexViewMath.h"

SCENE_MATRIX IdentityMatrix() {
  SCENE_MATRIX m;
  GetIdentityMatrix(&m);
  return m;
}

SCENE_MATRIX Multiply(const SCENE_MATRIX& a, const SCENE_MATRIX& b) {
  SCENE_MATRIX product = b;
  MatrixMultiply(&a, &product);
  return product;
}

unsigned long PackColor(float red, float green, float blue) {
  auto byte = [](float channel) {
    return static_cast<unsigned long>(std::lround(std::clamp(channel, 0.0f, 1.0f) * 255.0f));
  };
  return byte(red) | byte(green) << 8 | byte(blue) << 16;
}

std::filesystem::path CacheFolder() {
  if (const char* cache = std::getenv("XDG_CACHE_HOME"); cache && *cache)
    return std::filesystem::path(cache) / "brindlex-render";
  if (const char* home = std::getenv("HOME"); home && *home)
    return std::filesystem::path(home) / ".cache" / "brindlex-render";
  return std::filesystem::temp_directory_path() / "brindlex-render";
}

HostScene::HostScene() : fileToWorld(IdentityMatrix()) {
  Materials();
  SCENE_CAMERA_INFO camera{};
  camera.fieldOfView = DefaultFieldOfView;
  camera.parallelHeight = 10.0f;
  View().GetViewFileState()->SetCameraInfo(camera);
  View().SetViewMaterialSet(0);
}

MATERIAL_3D_NODE* HostScene::AddMaterial(MATERIAL_3D_NODE* parent, const std::string& name,
                                         const TEXTURE_LINK& link) {
  if (!parent) parent = &Materials();
  std::string base = name.empty() ? "Material" : name;
  std::replace(base.begin(), base.end(), ':', '_');
  std::string id = base;
  for (int n = 2; parent->FindChildNode(id); ++n) id = base + "_" + std::to_string(n);
  auto* node = new MATERIAL_3D_NODE(parent, ':');  // owned by `parent`
  node->SetThisNodesID(id.c_str());
  node->SetTextureLink(&link);
  return node;
}

std::string HostScene::MaterialID(const MATERIAL_3D_NODE& material) {
  // Ids resolve below the root, so the root's own "*" is left out.
  const std::string full = material.GetFullID();
  const size_t rootEnd = full.find(':');
  return material.GetParentNode() && rootEnd != std::string::npos ? full.substr(rootEnd + 1) : full;
}

std::vector<MATERIAL_3D_NODE*> HostScene::FindMaterials(const std::string& name) {
  std::vector<MATERIAL_3D_NODE*> found;
  auto visit = [&](auto& self, STRING_TREE_NODE* node) -> void {
    auto* material = static_cast<MATERIAL_3D_NODE*>(node);
    if (node->GetParentNode() && (name == node->GetThisNodesID() || name == MaterialID(*material)))
      found.push_back(material);
    for (unsigned i = 0; i < node->GetNumberOfChildNodes(); ++i) self(self, node->GetChildNode(i));
  };
  visit(visit, &Materials());
  return found;
}

int HostScene::AddLight(SCENE_LIGHT_DEFINITION definition) {
  // The matrix carries position and target into the world; the falloff
  // distances are plain numbers and take the unit here.
  definition.falloffStart *= worldPerFileUnit;
  definition.falloffEnd *= worldPerFileUnit;
  return AddWorldLight(definition, fileToWorld);
}

int HostScene::AddWorldLight(const SCENE_LIGHT_DEFINITION& definition, const SCENE_MATRIX& toWorld) {
  SCENE_LIGHT_DEFINITION world = definition;
  // The engine moves position and target by the instance's matrix but takes
  // the area light's axes as they stand, so they are turned here.
  SCENE_MATRIX turn = toWorld;
  turn.m[12] = turn.m[13] = turn.m[14] = 0.0f;
  SCENE_VERTEX_XYZ axisU = definition.axisU, axisV = definition.axisV;
  TransformPoint3D(&turn, &axisU, &axisU);
  TransformPoint3D(&turn, &axisV, &axisV);
  world.axisU = axisU;
  world.axisV = axisV;
  const int index = Lights().AddLightDefinition(world);
  return Lights().AddLightInstance(index, &toWorld);
}

void HostScene::SetTextureDirectory(const std::filesystem::path& folder) {
  // A model named without a folder lies in the current one.
  const auto absolute = folder.empty() ? std::filesystem::current_path() : std::filesystem::absolute(folder);
  textureDirectory = absolute.lexically_normal();
}

std::string HostScene::TextureName(const std::filesystem::path& file) const {
  if (file.empty()) return {};
  const auto absolute = std::filesystem::absolute(file).lexically_normal();
  if (textureDirectory.empty()) return absolute.string();
  return absolute.lexically_relative(textureDirectory).string();
}

SCENE_VERTEX_XYZ HostScene::FileToWorldPoint(const SCENE_VERTEX_XYZ& point) const {
  SCENE_VERTEX_XYZ world;
  TransformPoint3D(&fileToWorld, &point, &world);
  return world;
}

bool HostScene::WorldBounds(SCENE_VERTEX_XYZ& min, SCENE_VERTEX_XYZ& max) {
  return Root()->GetNodeBounds(&min, &max, true);
}

unsigned long HostScene::TriangleCount() {
  struct Counter : TRAVERSE_SCENE_GRAPH {
    unsigned long triangles = 0;
    bool TraversalEnterNode(SCENE_GRAPH_NODE_INTERFACE* node) override { return node->IsNodeActive(); }
    void TraversalVisitMesh(SCENE_GRAPH_NODE_INTERFACE* node) override {
      triangles += node->GetNodeMeshData()->GetMeshTriangleCount();
    }
  } counter;
  TraverseSceneGraph(Root(), &counter);
  return counter.triangles;
}

void HostScene::SetCamera(const SCENE_VERTEX_XYZ& eye, const SCENE_VERTEX_XYZ& target, float fieldOfView) {
  SCENE_CAMERA_INFO camera = *View().GetViewFileState()->GetCameraInfo();
  camera.eye = {eye.x, -eye.y, eye.z};
  camera.lookAt = {target.x, -target.y, target.z};
  camera.fieldOfView = fieldOfView;
  View().GetViewFileState()->SetCameraInfo(camera);
}

SCENE_VERTEX_XYZ HostScene::CameraEye() {
  const SCENE_VERTEX_XYZ eye = View().GetViewFileState()->GetCameraInfo()->eye;
  return {eye.x, -eye.y, eye.z};
}

SCENE_VERTEX_XYZ HostScene::CameraTarget() {
  const SCENE_VERTEX_XYZ target = View().GetViewFileState()->GetCameraInfo()->lookAt;
  return {target.x, -target.y, target.z};
}

bool HostScene::FrameAll(double aspect) {
  SCENE_VERTEX_XYZ min, max;
  if (!WorldBounds(min, max)) return false;
  const SCENE_VERTEX_XYZ centre = {(min.x + max.x) / 2, (min.y + max.y) / 2, (min.z + max.z) / 2};
  const SCENE_VERTEX_XYZ half = {(max.x - min.x) / 2, (max.y - min.y) / 2, (max.z - min.z) / 2};
  const double radius = std::max(static_cast<double>(Magnitude(&half)), 1e-3);
  const float fieldOfView = View().GetViewFileState()->GetCameraInfo()->fieldOfView;
  // The narrower of the two angles decides: a sphere around the box fits
  // both when it fits that one.
  // A tenth of each half is left free around the model.
  constexpr double Margin = 0.9;
  const double halfHeight = std::atan(std::tan(fieldOfView * std::numbers::pi / 360.0) * Margin);
  const double halfWidth = std::atan(std::tan(halfHeight) * std::max(aspect, 1e-3));
  const double distance = radius / std::sin(std::min(halfHeight, halfWidth));
  // In front of the model (world -y, the front of a y-up file), to its
  // right and above: azimuth 45 degrees, elevation about 30.
  SCENE_VERTEX_XYZ direction = {1.0f, -1.0f, 0.8f};
  GetUnitVector(&direction, &direction);
  const SCENE_VERTEX_XYZ eye = {centre.x + static_cast<float>(direction.x * distance),
                                centre.y + static_cast<float>(direction.y * distance),
                                centre.z + static_cast<float>(direction.z * distance)};
  SetCamera(eye, centre, fieldOfView);
  return true;
}

void HostScene::SetHorizon(const std::string& materialID, float height, float size) {
  PROJECT_HORIZON* horizon = project.CreateProjectHorizon();
  horizon->SetRenderAutoHorizon(true);
  horizon->SetHorizonMaterialID(materialID.c_str());
  SCENE_VERTEX_XYZ min{}, max{};
  WorldBounds(min, max);
  const float cx = (min.x + max.x) / 2, cy = (min.y + max.y) / 2, h = size / 2;
  // The horizon's mesh is in host coordinates: y negated. Texture
  // coordinates run one picture per world unit.
  SCENE_VERTEX corners[4] = {};
  const float xs[4] = {cx - h, cx + h, cx + h, cx - h}, ys[4] = {cy - h, cy - h, cy + h, cy + h};
  for (int i = 0; i < 4; ++i) {
    corners[i].position = {xs[i], -ys[i], height};
    corners[i].normal = {0.0f, 0.0f, 1.0f};
    corners[i].u = xs[i];
    corners[i].v = ys[i];
    corners[i].tangent = {1.0f, 0.0f, 0.0f};
  }
  const unsigned int indices[6] = {0, 1, 2, 0, 2, 3};
  horizon->GetHorizonNode()->CreateNodeMeshData()->SetMeshData(corners, 4, indices, 6);
}

SCENE_GRAPH_NODE_INTERFACE* HostScene::HorizonNode() {
  PROJECT_HORIZON* horizon = project.GetProjectHorizon();
  project.ReleaseProjectHorizon();
  return horizon ? horizon->GetHorizonNode() : nullptr;
}

const char* HostScene::HorizonMaterialID() {
  PROJECT_HORIZON* horizon = project.GetProjectHorizon();
  project.ReleaseProjectHorizon();
  return horizon ? horizon->GetHorizonMaterialID() : nullptr;
}

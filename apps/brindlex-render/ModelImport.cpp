#include "ModelImport.h"

#include <assimp/GltfMaterial.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <assimp/Importer.hpp>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <map>
#include <memory>
#include <vector>
#include <numbers>

#include "host/BrindlexTexture.h"
#include "host/BrindlexViewMath.h"
#include "TextureFiles.h"
#include "Units.h"

namespace fs = std::filesystem;

namespace {

// Everything the engine needs arrives as indexed triangles with normals;
// tangents follow the texture coordinates, so only meshes that have some
// get them. Lines and points have no surface and are dropped.
constexpr unsigned int ImportSteps = aiProcess_Triangulate | aiProcess_GenSmoothNormals |
                                     aiProcess_CalcTangentSpace | aiProcess_JoinIdenticalVertices |
                                     aiProcess_SortByPType | aiProcess_GenUVCoords |
                                     aiProcess_TransformUVCoords | aiProcess_ValidateDataStructure;
// Faces meeting at more than this keep a hard edge when normals are made:
// the right angles of buildings stay sharp, curved surfaces turn smooth.
constexpr float SmoothingAngle = 80.0f;

SCENE_MATRIX FromAssimp(const aiMatrix4x4& a) {
  SCENE_MATRIX m;
  for (int row = 0; row < 4; ++row)
    for (int column = 0; column < 4; ++column) m.m[column * 4 + row] = a[row][column];
  return m;
}

// The product of the node matrices from the file's root down to `node`.
aiMatrix4x4 NodeToFile(const aiNode* node) {
  aiMatrix4x4 m;
  for (; node; node = node->mParent) m = node->mTransformation * m;
  return m;
}

SCENE_MATRIX UpConversion(const ImportFacts& facts, UpAxis up) {
  int upAxis = facts.upAxis, upSign = facts.upSign, right = facts.rightAxis, rightSign = facts.rightSign;
  if (up != UpAxis::FromFile) upAxis = static_cast<int>(up) - 1, upSign = 1, right = 0, rightSign = 1;
  if (upAxis < 0 || upAxis > 2) upAxis = 1;
  if (right < 0 || right > 2 || right == upAxis) right = upAxis == 0 ? 1 : 0, rightSign = 1;
  return AxisConversion(upAxis, upSign < 0 ? -1 : 1, right, rightSign < 0 ? -1 : 1);
}

SCENE_MATRIX Scaling(double factor) {
  SCENE_MATRIX m = IdentityMatrix();
  m.m[0] = m.m[5] = m.m[10] = static_cast<float>(factor);
  return m;
}

SCENE_MATRIX Placement(const ModelPlacement& placement) {
  SCENE_MATRIX m = IdentityMatrix();
  m.m[0] = m.m[5] = m.m[10] = placement.scale;
  m.m[12] = placement.translate.x, m.m[13] = placement.translate.y, m.m[14] = placement.translate.z;
  return m;
}

bool CheckReadable(const fs::path& file, std::string& error) {
  std::error_code code;
  if (!fs::exists(file, code)) {
    error = "no such file";
    return false;
  }
  if (fs::is_directory(file, code)) {
    error = "is a folder, not a model file";
    return false;
  }
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    error = std::string("cannot read: ") + std::strerror(errno);
    return false;
  }
  return true;
}

class SceneBuilder {
 public:
  SceneBuilder(const aiScene* scene, const ImportFacts& facts, const fs::path& file, HostScene& host,
               std::vector<std::string>& warnings)
      : scene(scene),
        facts(facts),
        file(file),
        folder(fs::absolute(file).parent_path()),
        host(host),
        warnings(warnings),
        pictures(warnings) {}

  SCENE_GRAPH_NODE* Build(const SCENE_MATRIX& rootMatrix, ImportedModel& result);

 private:
  void BuildMaterials();
  TEXTURE_LINK MaterialLink(const aiMaterial& material);
  std::string TextureFile(const aiMaterial& material);
  std::string EmbeddedTextureFile(const char* reference);
  void BuildMeshes();
  SCENE_GRAPH_NODE* BuildNode(const aiNode& node);
  void AddLights(const SCENE_MATRIX& rootMatrix, ImportedModel& result);
  void FindCamera(const SCENE_MATRIX& rootMatrix, ImportedModel& result);

  const aiScene* scene;
  const ImportFacts& facts;
  fs::path file, folder;
  HostScene& host;
  std::vector<std::string>& warnings;
  TexturePictures pictures;
  std::vector<std::string> materialIDs;
  std::vector<std::unique_ptr<SCENE_GRAPH_NODE>> meshNodes;  // until placed
};

SCENE_GRAPH_NODE* SceneBuilder::Build(const SCENE_MATRIX& rootMatrix, ImportedModel& result) {
  BuildMaterials();
  BuildMeshes();
  auto root = std::make_unique<SCENE_GRAPH_NODE>(file.stem().string().c_str());
  SCENE_GRAPH_GROUP_DATA_INTERFACE* group = root->CreateNodeGroupData();
  group->SetGroupMatrix(&rootMatrix);
  // Geometry below takes its material from its own mesh node; this one
  // stands for anything a file leaves without.
  group->SetGroupMaterialID(materialIDs.back().c_str());
  root->AddChildNode(BuildNode(*scene->mRootNode));
  // Meshes no node placed are dropped; placed ones belong to their parents.
  for (auto& mesh : meshNodes)
    if (mesh && mesh->GetNumberOfParentNodes() > 0) mesh.release();
  AddLights(rootMatrix, result);
  FindCamera(rootMatrix, result);
  host.Root()->AddChildNode(root.get());
  return root.release();
}

void SceneBuilder::BuildMaterials() {
  MATERIAL_3D_NODE* group = host.AddMaterial(nullptr, file.stem().string(), TEXTURE_LINK());
  for (unsigned int i = 0; i < scene->mNumMaterials; ++i) {
    const aiMaterial& material = *scene->mMaterials[i];
    MATERIAL_3D_NODE* node = host.AddMaterial(group, material.GetName().C_Str(), MaterialLink(material));
    materialIDs.push_back(HostScene::MaterialID(*node));
  }
  materialIDs.push_back(HostScene::MaterialID(*group));
}

float Brightest(const aiColor3D& c) {
  return std::max({c.r, c.g, c.b});
}

TEXTURE_LINK SceneBuilder::MaterialLink(const aiMaterial& material) {
  TEXTURE_LINK link;
  aiColor4D colour(1.0f, 1.0f, 1.0f, 1.0f);
  if (material.Get(AI_MATKEY_BASE_COLOR, colour) != AI_SUCCESS) material.Get(AI_MATKEY_COLOR_DIFFUSE, colour);
  link.SetColor(PackColor(colour.r, colour.g, colour.b));

  float opacity = 1.0f;
  aiString alphaMode;
  const bool hasOpacity = material.Get(AI_MATKEY_OPACITY, opacity) == AI_SUCCESS;
  // Assimp reads Collada's <transparency> by the letter of the format: in
  // A_ONE mode alpha times transparency is the opacity, in RGB_ZERO mode
  // one minus luminance times transparency. A material that would vanish
  // altogether is the other common reading (the FBX Collada exporter
  // writes 0 for "not transparent"), and that is what such a file means.
  if (hasOpacity && opacity <= 0.0f && facts.collada) opacity = 1.0f;
  if (!hasOpacity && material.Get(AI_MATKEY_GLTF_ALPHAMODE, alphaMode) == AI_SUCCESS &&
      alphaMode == aiString("BLEND"))
    opacity = colour.a;
  float transmission = 0.0f;
  if (material.Get(AI_MATKEY_TRANSMISSION_FACTOR, transmission) == AI_SUCCESS)
    opacity = std::min(opacity, 1.0f - transmission);
  const bool alphaTexture = material.GetTextureCount(aiTextureType_OPACITY) > 0 ||
                            (alphaMode.length > 0 && alphaMode != aiString("OPAQUE"));
  link.SetOpacityLevel(opacity * 100.0f);
  link.SetTransparent(opacity < 1.0f || alphaTexture);

  float reflectivity = 0.0f, metallic = 0.0f, roughness = 1.0f;
  aiColor3D reflective(1.0f, 1.0f, 1.0f);
  if (material.Get(AI_MATKEY_REFLECTIVITY, reflectivity) == AI_SUCCESS) {
    // The reflected light is the reflective colour times the factor:
    // exporters write factor 1 with a black colour for "no mirror".
    if (material.Get(AI_MATKEY_COLOR_REFLECTIVE, reflective) == AI_SUCCESS)
      reflectivity *= Brightest(reflective);
    reflectivity = std::clamp(reflectivity, 0.0f, 1.0f);
  } else if (material.Get(AI_MATKEY_METALLIC_FACTOR, metallic) == AI_SUCCESS) {
    // A smooth metal is a mirror; a rough one or a dielectric is not.
    material.Get(AI_MATKEY_ROUGHNESS_FACTOR, roughness);
    reflectivity = metallic * (1.0f - roughness);
  }
  link.SetReflectivityLevel(reflectivity * 100.0f);
  link.SetReflecting(reflectivity > 0.0f);

  aiColor3D emissive(0.0f, 0.0f, 0.0f), specular(0.0f, 0.0f, 0.0f);
  float emissiveIntensity = 1.0f;
  material.Get(AI_MATKEY_EMISSIVE_INTENSITY, emissiveIntensity);
  if (material.Get(AI_MATKEY_COLOR_EMISSIVE, emissive) == AI_SUCCESS)
    link.SetEmissiveLevel(Brightest(emissive) * emissiveIntensity * 100.0f);
  if (material.Get(AI_MATKEY_COLOR_SPECULAR, specular) == AI_SUCCESS)
    link.SetSpecularLevel(Brightest(specular) * 100.0f);

  const std::string texture = TextureFile(material);
  if (!texture.empty()) {
    link.SetTextureLinkFullFileName(texture.c_str());
    link.SetTextureMappingType(TEXTURE_LINK::SV_MESH_UV_MAPPING);
    link.SetScaled(true);
    // The engine takes the relief from a height picture named like the
    // colour picture in the bump folder, or from the colour picture itself.
    const bool bump = material.GetTextureCount(aiTextureType_HEIGHT) > 0 ||
                      material.GetTextureCount(aiTextureType_NORMALS) > 0 ||
                      material.GetTextureCount(aiTextureType_DISPLACEMENT) > 0;
    float scaling = 1.0f;
    material.Get(AI_MATKEY_BUMPSCALING, scaling);
    if (bump) link.SetReliefDepthLevel(std::clamp(scaling, 0.0f, 10.0f) * 10.0f);
  }
  return link;
}

std::string SceneBuilder::TextureFile(const aiMaterial& material) {
  aiString name;
  if (material.GetTexture(aiTextureType_BASE_COLOR, 0, &name) != AI_SUCCESS &&
      material.GetTexture(aiTextureType_DIFFUSE, 0, &name) != AI_SUCCESS)
    return {};
  if (scene->GetEmbeddedTexture(name.C_Str())) return EmbeddedTextureFile(name.C_Str());
  std::string reference = name.C_Str();
  std::replace(reference.begin(), reference.end(), '\\', '/');
  fs::path path =
      (fs::path(reference).is_absolute() ? fs::path(reference) : folder / reference).lexically_normal();
  // Files moved from another machine often keep that machine's folders;
  // the picture then usually lies beside the model.
  std::error_code code;
  if (!fs::exists(path, code) && fs::exists(folder / path.filename(), code)) path = folder / path.filename();
  return host.TextureName(pictures.Usable(path));
}

std::string SceneBuilder::EmbeddedTextureFile(const char* reference) {
  const aiTexture* texture = scene->GetEmbeddedTexture(reference);
  const fs::path cache = WritableCacheFolder("embedded", warnings);
  const std::string stem = file.stem().string() + "-" +
                           std::to_string(std::hash<std::string>()(fs::absolute(file).string())) + "-" +
                           std::string(reference).substr(reference[0] == '*' ? 1 : 0);
  fs::path path;
  if (texture->mHeight == 0) {  // a picture file kept whole inside the model
    const std::string hint = texture->achFormatHint[0] ? texture->achFormatHint : "png";
    path = cache / (stem + "." + hint);
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(texture->pcData), texture->mWidth);
    if (!out) {
      warnings.push_back("embedded texture " + std::string(reference) + " cannot be written to " +
                         cache.string());
      return {};
    }
    return host.TextureName(pictures.Usable(path));
  } else {  // texels, blue, green, red, alpha: the order of a 32-bit surface
    path = cache / (stem + ".png");
    platform::PixelSurface pixels;
    pixels.width = static_cast<int>(texture->mWidth);
    pixels.height = static_cast<int>(texture->mHeight);
    pixels.bitsPerPixel = 32;
    pixels.firstRow = reinterpret_cast<uint8_t*>(texture->pcData);
    pixels.pitch = 4 * static_cast<ptrdiff_t>(texture->mWidth);
    if (!SavePictureFile(path.string().c_str(), pixels, PictureFileFormat::Png)) {
      warnings.push_back("embedded texture " + std::string(reference) + " cannot be written to " +
                         cache.string());
      return {};
    }
  }
  return host.TextureName(path);
}

SCENE_VERTEX ToVertex(const aiMesh& mesh, unsigned int i) {
  constexpr float None = std::numeric_limits<float>::quiet_NaN();
  SCENE_VERTEX v;
  v.position = {mesh.mVertices[i].x, mesh.mVertices[i].y, mesh.mVertices[i].z};
  v.normal = mesh.mNormals ? SCENE_VERTEX_XYZ{mesh.mNormals[i].x, mesh.mNormals[i].y, mesh.mNormals[i].z}
                           : SCENE_VERTEX_XYZ{0.0f, 0.0f, 1.0f};
  v.u = mesh.mTextureCoords[0] ? mesh.mTextureCoords[0][i].x : 0.0f;
  v.v = mesh.mTextureCoords[0] ? mesh.mTextureCoords[0][i].y : 0.0f;
  // A mesh without tangents carries not-a-number, which tells the engine
  // to leave out its relief.
  v.tangent = mesh.mTangents ? SCENE_VERTEX_XYZ{mesh.mTangents[i].x, mesh.mTangents[i].y, mesh.mTangents[i].z}
                             : SCENE_VERTEX_XYZ{None, None, None};
  return v;
}

void SceneBuilder::BuildMeshes() {
  meshNodes.resize(scene->mNumMeshes);
  std::vector<SCENE_VERTEX> vertices;
  std::vector<unsigned int> indices;
  for (unsigned int m = 0; m < scene->mNumMeshes; ++m) {
    const aiMesh& mesh = *scene->mMeshes[m];
    vertices.clear();
    indices.clear();
    for (unsigned int i = 0; i < mesh.mNumVertices; ++i) vertices.push_back(ToVertex(mesh, i));
    for (unsigned int f = 0; f < mesh.mNumFaces; ++f)
      if (mesh.mFaces[f].mNumIndices == 3)
        indices.insert(indices.end(), mesh.mFaces[f].mIndices, mesh.mFaces[f].mIndices + 3);
    if (indices.empty()) continue;
    const std::string name = mesh.mName.length ? mesh.mName.C_Str() : "Mesh " + std::to_string(m);
    auto node = std::make_unique<SCENE_GRAPH_NODE>(name.c_str());
    if (!node->CreateNodeMeshData()->SetMeshData(vertices.data(), static_cast<unsigned int>(vertices.size()),
                                                 indices.data(), static_cast<unsigned int>(indices.size())))
      continue;
    const unsigned int material = std::min<unsigned int>(mesh.mMaterialIndex, materialIDs.size() - 1);
    node->CreateNodeGroupData()->SetGroupMaterialID(materialIDs[material].c_str());
    meshNodes[m] = std::move(node);
  }
}

SCENE_GRAPH_NODE* SceneBuilder::BuildNode(const aiNode& source) {
  auto* node = new SCENE_GRAPH_NODE(source.mName.C_Str());
  const SCENE_MATRIX matrix = FromAssimp(source.mTransformation);
  node->CreateNodeGroupData()->SetGroupMatrix(&matrix);
  for (unsigned int i = 0; i < source.mNumMeshes; ++i)
    if (source.mMeshes[i] < meshNodes.size() && meshNodes[source.mMeshes[i]])
      node->AddChildNode(meshNodes[source.mMeshes[i]].get());
  for (unsigned int i = 0; i < source.mNumChildren; ++i) node->AddChildNode(BuildNode(*source.mChildren[i]));
  return node;
}

SCENE_VERTEX_XYZ ToPoint(const aiVector3D& v) {
  return {v.x, v.y, v.z};
}

void SceneBuilder::AddLights(const SCENE_MATRIX& rootMatrix, ImportedModel& result) {
  for (unsigned int i = 0; i < scene->mNumLights; ++i) {
    const aiLight& light = *scene->mLights[i];
    SCENE_LIGHT_DEFINITION d{};
    switch (light.mType) {
      case aiLightSource_POINT:
        d.type = 0;
        break;
      case aiLightSource_SPOT:
        d.type = 1;
        break;
      case aiLightSource_DIRECTIONAL:
        d.type = 2;
        break;
      case aiLightSource_AREA:
        d.type = 3;
        break;
      default:
        continue;  // ambient light has no place in a ray tracer
    }
    const aiNode* node = scene->mRootNode->FindNode(light.mName);
    const SCENE_MATRIX toWorld = Multiply(rootMatrix, FromAssimp(node ? NodeToFile(node) : aiMatrix4x4()));
    d.position = ToPoint(light.mPosition);
    d.target = ToPoint(light.mPosition + light.mDirection);
    // Files give light as a colour that may pass 1: the brightest channel
    // is the intensity, capped at 10 so that photometric units stay sane.
    const float brightest = Brightest(light.mColorDiffuse);
    const float scale = brightest > 0.0f ? 1.0f / brightest : 1.0f;
    d.color = PackColor(light.mColorDiffuse.r * scale, light.mColorDiffuse.g * scale,
                        light.mColorDiffuse.b * scale);
    d.intensity = static_cast<int16_t>(std::lround(std::min(brightest, 10.0f) * 10.0f));
    // Assimp gives the whole cone; the engine wants the half-angle.
    const double outer = std::clamp(light.mAngleOuterCone * 90.0 / std::numbers::pi, 1.0, 89.0);
    d.angle = light.mType == aiLightSource_AREA ? 89.0 : outer;
    d.flags = LightEnabled | LightCastsShadows | LightDiffuse | LightSpecular;
    if (light.mType == aiLightSource_SPOT && light.mAngleInnerCone < light.mAngleOuterCone)
      d.flags |= LightSoftEdge;
    if (light.mType == aiLightSource_AREA) {
      aiVector3D across = light.mUp ^ light.mDirection;
      across.NormalizeSafe();
      d.axisU = ToPoint(across * (light.mSize.x / 2));
      d.axisV = ToPoint(aiVector3D(light.mUp).NormalizeSafe() * (light.mSize.y / 2));
    }
    host.AddWorldLight(d, toWorld);
    ++result.lights;
  }
}

void SceneBuilder::FindCamera(const SCENE_MATRIX& rootMatrix, ImportedModel& result) {
  if (scene->mNumCameras == 0) return;
  const aiCamera& camera = *scene->mCameras[0];
  const aiNode* node = scene->mRootNode->FindNode(camera.mName);
  const SCENE_MATRIX toWorld = Multiply(rootMatrix, FromAssimp(node ? NodeToFile(node) : aiMatrix4x4()));
  // Assimp's glTF reader copies the node's translation into the camera as
  // well as leaving it in the node, and gives yfov times the aspect as the
  // horizontal angle. Other readers give the whole horizontal angle, not
  // the half that Assimp's documentation speaks of.
  const bool gltf = facts.gltf;
  const aiVector3D position = gltf && node ? aiVector3D() : camera.mPosition;
  ModelCamera found;
  const SCENE_VERTEX_XYZ eye = ToPoint(position), target = ToPoint(position + camera.mLookAt);
  TransformPoint3D(&toWorld, &eye, &found.eye);
  TransformPoint3D(&toWorld, &target, &found.target);
  const double aspect = camera.mAspect > 0.0f ? camera.mAspect : 4.0 / 3.0;
  const double vertical =
      gltf ? camera.mHorizontalFOV / aspect : 2.0 * std::atan(std::tan(camera.mHorizontalFOV / 2.0) / aspect);
  // An angle of under a degree stays as it is: the scene's assembly then
  // prefers a zoom to fit.
  found.fieldOfView = static_cast<float>(std::clamp(vertical * 180.0 / std::numbers::pi, 0.0, 179.0));
  result.camera = found;
}

}  // namespace

SCENE_MATRIX AxisConversion(int up, int upSign, int right, int rightSign) {
  float x[3] = {}, z[3] = {}, y[3];
  x[right] = static_cast<float>(rightSign);
  z[up] = static_cast<float>(upSign);
  // World y completes a right-handed frame: y = z cross x.
  y[0] = z[1] * x[2] - z[2] * x[1];
  y[1] = z[2] * x[0] - z[0] * x[2];
  y[2] = z[0] * x[1] - z[1] * x[0];
  SCENE_MATRIX m = IdentityMatrix();
  for (int column = 0; column < 3; ++column) {
    m.m[column * 4 + 0] = x[column];
    m.m[column * 4 + 1] = y[column];
    m.m[column * 4 + 2] = z[column];
  }
  return m;
}

// Assimp's properties for every read.
void Configure(Assimp::Importer& importer) {
  importer.SetPropertyInteger(AI_CONFIG_PP_SBP_REMOVE, aiPrimitiveType_POINT | aiPrimitiveType_LINE);
  importer.SetPropertyFloat(AI_CONFIG_PP_GSN_MAX_SMOOTHING_ANGLE, SmoothingAngle);
}

void NoteRepairs(const ImportFacts& facts, ImportedModel& result) {
  if (facts.badVertices > 0)
    result.warnings.push_back(std::to_string(facts.badVertices) +
                              " vertices are not finite numbers; they and " +
                              std::to_string(facts.droppedTriangles) + " triangles using them are left out");
  if (!facts.readerErrors.empty())
    result.warnings.push_back("the model reader reported errors, the model may be incomplete: " +
                              facts.readerErrors.front());
}

bool ImportModel(const fs::path& file, const ModelPlacement& placement, HostScene& scene,
                 ImportedModel& result, std::string& error, const ImportLimits& limits) {
  if (!CheckReadable(file, error)) return false;
  ReadModel read;
  if (!ReadModelGuarded(file, Configure, ImportSteps, limits, read, error)) return false;
  const aiScene* model = read.scene;
  result.triangles = 0;
  for (unsigned int m = 0; m < model->mNumMeshes; ++m)
    for (unsigned int f = 0; f < model->mMeshes[m]->mNumFaces; ++f)
      result.triangles += model->mMeshes[m]->mFaces[f].mNumIndices == 3;
  if (result.triangles == 0) {
    error = "holds no triangles";
    return false;
  }
  NoteRepairs(read.facts, result);
  const bool first = scene.Root()->GetNumberOfChildNodes() == 0;
  result.worldPerFileUnit = WorldUnitsPerFileUnit(placement.metresPerUnit, read.facts.metresPerUnit);
  result.fileToWorld = Multiply(Scaling(result.worldPerFileUnit), UpConversion(read.facts, placement.up));
  if (first) scene.SetFileToWorld(result.fileToWorld, result.worldPerFileUnit);
  // Placement happens in the scene's file coordinates: out of this file's
  // into them, then placed, then into the world.
  SCENE_MATRIX fromScene;
  GetInverseMatrix(&scene.FileToWorld(), &fromScene);
  const SCENE_MATRIX rootMatrix =
      Multiply(scene.FileToWorld(), Multiply(Placement(placement), Multiply(fromScene, result.fileToWorld)));
  SceneBuilder builder(model, read.facts, file, scene, result.warnings);
  result.root = builder.Build(rootMatrix, result);
  return true;
}

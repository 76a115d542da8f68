// Scenes and rays shared by the traversal benchmarks: a generated town of a
// chosen triangle count, a model read from a file, camera rays and random
// incoherent rays.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "AccelTestAccess.h"
#include "host/BrindlexViewMath.h"

#ifdef BRINDLEX_BENCH_ASSIMP
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <assimp/Importer.hpp>
#endif

namespace bench {

struct Ray {
  SCENE_VERTEX_XYZ_64 origin, direction, inverse;
};

inline Ray MakeRay(const SCENE_VERTEX_XYZ_64& origin, SCENE_VERTEX_XYZ_64 direction) {
  GetUnitVector(&direction, &direction);
  const auto inv = [](double c) { return std::fabs(c) > 1e-7 ? 1.0 / c : 1.7976931348623157e308; };
  return {origin, direction, {inv(direction.x), inv(direction.y), inv(direction.z)}};
}

inline SCENE_VERTEX Vertex(float x, float y, float z) {
  SCENE_VERTEX v{};
  v.position = {x, y, z};
  return v;
}

// A rolling ground of quads with boxes on it, like a building model: about
// a quarter of the triangles in the ground, the rest in boxes of 12. One
// shared box mesh is placed by transforms for a tenth of the boxes.
inline void GenerateTown(size_t triangles, SWMeshTable& table) {
  std::mt19937 random(2024);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  const uint32_t side = uint32_t(std::sqrt(double(triangles) / 8.0)) + 1;
  const float size = 100.0f;
  SWMesh ground, boxes, shared;
  for (uint32_t y = 0; y <= side; ++y)
    for (uint32_t x = 0; x <= side; ++x)
      ground.vertices.push_back(
          Vertex(size * x / side, size * y / side, std::sin(x * 0.3f) * std::cos(y * 0.2f)));
  for (uint32_t y = 0; y < side; ++y)
    for (uint32_t x = 0; x < side; ++x) {
      const uint32_t a = y * (side + 1) + x, b = a + 1, c = a + side + 1, d = c + 1;
      ground.indices.insert(ground.indices.end(), {a, b, d, a, d, c});
    }
  const auto addBox = [](SWMesh& mesh, float x0, float y0, float z0, float x1, float y1, float z1) {
    const uint32_t base = uint32_t(mesh.vertices.size());
    for (int i = 0; i < 8; ++i)
      mesh.vertices.push_back(Vertex(i & 1 ? x1 : x0, i & 2 ? y1 : y0, i & 4 ? z1 : z0));
    const uint32_t faces[6][4] = {{0, 1, 3, 2}, {4, 6, 7, 5}, {0, 4, 5, 1},
                                  {2, 3, 7, 6}, {0, 2, 6, 4}, {1, 5, 7, 3}};
    for (const auto& f : faces)
      for (uint32_t k : {f[0], f[1], f[2], f[0], f[2], f[3]}) mesh.indices.push_back(base + k);
  };
  addBox(shared, -0.5f, -0.5f, 0.0f, 0.5f, 0.5f, 1.0f);
  table.meshes.push_back(ground);
  table.instances.push_back({0, 0, 0});
  const size_t boxCount = (triangles - ground.indices.size() / 3) / 12;
  for (size_t i = 0; i < boxCount; ++i) {
    const float x = unit(random) * size, y = unit(random) * size, w = 0.2f + unit(random) * 1.5f,
                h = 0.5f + unit(random) * unit(random) * 12.0f;
    if (i % 10 == 0) {
      SCENE_MATRIX m{};
      m.m[0] = m.m[5] = w;
      m.m[10] = h;
      m.m[12] = x;
      m.m[13] = y;
      m.m[14] = 0.5f;
      m.m[15] = 1.0f;
      table.transforms.push_back(m);
      table.instances.push_back({2, uint32_t(table.transforms.size() - 1), 0});
    } else {
      addBox(boxes, x, y, 0.5f, x + w, y + w * (0.5f + unit(random)), 0.5f + h);
    }
  }
  table.meshes.push_back(boxes);
  table.meshes.push_back(shared);
  table.instances.push_back({1, 0, 0});
}

// Every mesh of a model file, placed as it stands. False if it can't be read.
// A `scale` other than 0 places the meshes by their nodes' transforms first
// and then scales the world by it, as brindlex-render does with a building
// in its own unit; 0 keeps each mesh in its own coordinates.
inline bool LoadModel(const std::string& path, SWMeshTable& table, float scale = 0.0f) {
#ifdef BRINDLEX_BENCH_ASSIMP
  Assimp::Importer importer;
  const unsigned int steps = aiProcess_Triangulate | aiProcess_JoinIdenticalVertices |
                             (scale != 0.0f ? aiProcess_PreTransformVertices : 0u);
  const aiScene* scene = importer.ReadFile(path, steps);
  if (!scene) return false;
  const float factor = scale != 0.0f ? scale : 1.0f;
  for (unsigned int m = 0; m < scene->mNumMeshes; ++m) {
    const aiMesh* source = scene->mMeshes[m];
    SWMesh mesh;
    for (unsigned int v = 0; v < source->mNumVertices; ++v)
      mesh.vertices.push_back(Vertex(factor * source->mVertices[v].x, factor * source->mVertices[v].y,
                                     factor * source->mVertices[v].z));
    for (unsigned int f = 0; f < source->mNumFaces; ++f)
      if (source->mFaces[f].mNumIndices == 3)
        mesh.indices.insert(mesh.indices.end(), source->mFaces[f].mIndices, source->mFaces[f].mIndices + 3);
    table.meshes.push_back(mesh);
    table.instances.push_back({m, 0, 0});
  }
  return scene->mNumMeshes > 0;
#else
  (void)path;
  (void)table;
  (void)scale;
  return false;
#endif
}

// A scene named on a command line: a triangle count for a generated town,
// or a model file, optionally followed by "@" and the scale of its world
// ("AC14-FZK-Haus.ifc@100": metres read as centimetres).
inline bool LoadScene(const std::string& name, SWMeshTable& table) {
  if (!name.empty() && name.find_first_not_of("0123456789") == std::string::npos) {
    GenerateTown(std::stoul(name), table);
    return true;
  }
  const size_t at = name.rfind('@');
  if (at == std::string::npos) return LoadModel(name, table);
  const float scale = std::strtof(name.c_str() + at + 1, nullptr);
  return scale > 0.0f && LoadModel(name.substr(0, at), table, scale);
}

// A pinhole camera outside the tree's box, looking at its middle from above
// and aside, one ray per pixel, row by row.
inline std::vector<Ray> CameraRays(const KDTree& tree, int width, int height) {
  const double lo[3] = {tree.boundsMin.x, tree.boundsMin.y, tree.boundsMin.z};
  const double hi[3] = {tree.boundsMax.x, tree.boundsMax.y, tree.boundsMax.z};
  const double extent = std::max({hi[0] - lo[0], hi[1] - lo[1], hi[2] - lo[2]});
  const SCENE_VERTEX_XYZ_64 target = {(lo[0] + hi[0]) / 2, (lo[1] + hi[1]) / 2, (lo[2] + hi[2]) / 2};
  const SCENE_VERTEX_XYZ_64 eye = {target.x - 0.6 * extent, target.y - 0.8 * extent, target.z + 0.5 * extent};
  SCENE_VERTEX_XYZ_64 forward = {target.x - eye.x, target.y - eye.y, target.z - eye.z}, up = {0, 0, 1}, right,
                      down;
  GetUnitVector(&forward, &forward);
  CrossProduct(&forward, &up, &right);
  GetUnitVector(&right, &right);
  CrossProduct(&forward, &right, &down);
  const double scale = std::tan(0.5) / (height / 2.0);
  std::vector<Ray> rays;
  rays.reserve(size_t(width) * height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const double px = (x + 0.5 - width / 2.0) * scale, py = (y + 0.5 - height / 2.0) * scale;
      rays.push_back(
          MakeRay(eye, {forward.x + px * right.x + py * down.x, forward.y + px * right.y + py * down.y,
                        forward.z + px * right.z + py * down.z}));
    }
  return rays;
}

// Rays from anywhere in the box in any direction: no two alike.
inline std::vector<Ray> RandomRays(const KDTree& tree, size_t count) {
  std::mt19937 random(77);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const double lo[3] = {tree.boundsMin.x, tree.boundsMin.y, tree.boundsMin.z};
  const double hi[3] = {tree.boundsMax.x, tree.boundsMax.y, tree.boundsMax.z};
  std::vector<Ray> rays;
  rays.reserve(count);
  while (rays.size() < count) {
    const SCENE_VERTEX_XYZ_64 d = {unit(random) * 2 - 1, unit(random) * 2 - 1, unit(random) * 2 - 1};
    if (d.x * d.x + d.y * d.y + d.z * d.z > 1.0 || d.x * d.x + d.y * d.y + d.z * d.z < 0.01) continue;
    rays.push_back(MakeRay({lo[0] + unit(random) * (hi[0] - lo[0]), lo[1] + unit(random) * (hi[1] - lo[1]),
                            lo[2] + unit(random) * (hi[2] - lo[2])},
                           d));
  }
  return rays;
}

}  // namespace bench

// The lights and small scenes that the shadow tests build.
#pragma once

#include <initializer_list>
#include <vector>

#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "accel/KDTree.h"
#include "scene/LightTable.h"
#include "scene/SWMeshTable.h"
#include "shadows/SWShadowMap.h"

namespace lighting_test {

inline SCENE_VERTEX_XYZ_64 P(double x, double y, double z) {
  return {x, y, z};
}

// A light of `type` with the switches that every test wants: on, diffuse,
// white, intensity 1.0.
inline RTRendererLight MakeLight(uint16_t type, SCENE_VERTEX_XYZ position,
                                 SCENE_VERTEX_XYZ target = {0, 0, 0}, uint16_t extraFlags = 0) {
  RTRendererLight light{};
  light.definition.type = type;
  light.definition.position = position;
  light.definition.target = target;
  light.definition.color = 0x00FFFFFF;
  light.definition.flags = LightEnabled | LightDiffuse | extraFlags;
  light.definition.intensity = 10;
  return light;
}

// A node of quads, each given by its four corners in order; every quad is
// two triangles.
inline SCENE_GRAPH_NODE* QuadsNode(const char* name,
                                   std::initializer_list<std::vector<SCENE_VERTEX_XYZ>> quads) {
  std::vector<SCENE_VERTEX> vertices;
  std::vector<unsigned int> indices;
  for (const std::vector<SCENE_VERTEX_XYZ>& quad : quads) {
    const unsigned int first = static_cast<unsigned int>(vertices.size());
    for (const SCENE_VERTEX_XYZ& corner : quad) {
      SCENE_VERTEX vertex{};
      vertex.position = corner;
      vertex.normal = {0, 0, 1};
      vertices.push_back(vertex);
    }
    for (unsigned int i : {0u, 1u, 2u, 0u, 2u, 3u}) indices.push_back(first + i);
  }
  auto* node = new SCENE_GRAPH_NODE(name);
  node->CreateNodeMeshData()->SetMeshData(vertices.data(), static_cast<unsigned int>(vertices.size()),
                                          indices.data(), static_cast<unsigned int>(indices.size()));
  return node;
}

// A level square of half-size `half` at height `z`.
inline std::vector<SCENE_VERTEX_XYZ> LevelSquare(float half, float z) {
  return {{-half, -half, z}, {half, -half, z}, {half, half, z}, {-half, half, z}};
}

// The six faces of the box from `low` to `high`.
inline SCENE_GRAPH_NODE* BoxNode(const char* name, SCENE_VERTEX_XYZ low, SCENE_VERTEX_XYZ high) {
  const float x0 = low.x, y0 = low.y, z0 = low.z, x1 = high.x, y1 = high.y, z1 = high.z;
  return QuadsNode(name, {{{x0, y0, z0}, {x1, y0, z0}, {x1, y1, z0}, {x0, y1, z0}},
                          {{x0, y0, z1}, {x1, y0, z1}, {x1, y1, z1}, {x0, y1, z1}},
                          {{x0, y0, z0}, {x1, y0, z0}, {x1, y0, z1}, {x0, y0, z1}},
                          {{x0, y1, z0}, {x1, y1, z0}, {x1, y1, z1}, {x0, y1, z1}},
                          {{x0, y0, z0}, {x0, y1, z0}, {x0, y1, z1}, {x0, y0, z1}},
                          {{x1, y0, z0}, {x1, y1, z0}, {x1, y1, z1}, {x1, y0, z1}}});
}

}  // namespace lighting_test

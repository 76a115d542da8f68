// The engine's copies of the host's lights, with position and target in
// world space, so that rendering never touches host light objects.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "SceneRecords.h"

#pragma pack(push, 1)
struct RTRendererLight {
  int32_t number = 0;
  SCENE_LIGHT_DEFINITION definition{};
  double shadowNear = 0.0;
  double shadowFar = 0.0;
  SCENE_MATRIX_64 shadowView{};
  SCENE_MATRIX_64 shadowProjection{};
};
#pragma pack(pop)

class RTLightTable {
 public:
  RTLightTable() = default;
  ~RTLightTable() { Clear(); }
  RTLightTable(const RTLightTable&) = delete;
  RTLightTable& operator=(const RTLightTable&) = delete;

  // Deletes every record.
  void Clear();

  std::vector<RTRendererLight*> lights;                // order of shading and shadow choice
  std::map<int32_t, RTRendererLight*> lightsByNumber;  // owns the records
};

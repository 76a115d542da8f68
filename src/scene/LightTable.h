// The engine's copies of the host's lights, with position and target in
// world space, so that rendering never touches host light objects.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "host/SceneRecords.h"

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

// Copies the instance's number and the 86 bytes of its definition into
// `light`, with position and target carried through the instance's matrix;
// axisU and axisV stay as the host gave them. Nothing else of `light` is
// touched. False, with `light` untouched, without an instance or definition.
bool CopyLightInstance(const SCENE_LIGHT_INSTANCE* instance, RTRendererLight& light);

class RTLightTable {
 public:
  RTLightTable() = default;
  ~RTLightTable() { Clear(); }
  RTLightTable(const RTLightTable&) = delete;
  RTLightTable& operator=(const RTLightTable&) = delete;

  // Deletes every record.
  void Clear();

  // A fresh record from the instance; its shadow fields start at zero. A
  // number already held keeps its record (and so its address), which takes
  // the new values.
  void InsertOrUpdateLight(const SCENE_LIGHT_INSTANCE* instance);
  // The same with a finished record, copied as it stands.
  void InsertOrUpdateLight(const RTRendererLight* light);
  // Deletes the record of `number`, if held. `lights` is then rebuilt from
  // `lightsByNumber`, so it is in ascending number order from the first
  // removal on, and in insertion order before it.
  void RemoveLight(int32_t number);
  // Null for a number not held.
  RTRendererLight* FindLight(int32_t number) const;
  // Null for a row out of range.
  RTRendererLight* GetLight(size_t row) const;

  std::vector<RTRendererLight*> lights;                // order of shading and shadow choice
  std::map<int32_t, RTRendererLight*> lightsByNumber;  // owns the records
};

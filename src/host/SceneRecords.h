// Plain records that cross between the host libraries and the render engine.
// All of them are byte-packed: their layout is part of the contract, and the
// static_asserts below pin sizes and offsets.
#pragma once

#include <cstddef>
#include <cstdint>

#pragma pack(push, 1)

struct SCENE_VERTEX_XYZ {
  float x, y, z;
};

struct SCENE_VERTEX_XYZ_64 {
  double x, y, z;
};

// As a colour: red, green, blue, alpha, each nominally 0 to 1.
struct SCENE_VERTEX_XYZW {
  float x, y, z, w;
};

struct SCENE_VERTEX_XYZW_64 {
  double x, y, z, w;
};

// Column-major 4 x 4 matrices: element (row r, column c) is m[c * 4 + r], so a
// point p maps to M p with the translation in elements 12, 13 and 14.
struct SCENE_MATRIX {
  float m[16];
};

struct SCENE_MATRIX_64 {
  double m[16];
};

struct SCENE_VERTEX {
  SCENE_VERTEX_XYZ position;
  SCENE_VERTEX_XYZ normal;
  float u, v;
  SCENE_VERTEX_XYZ tangent;
};

// The camera of a view. Its eye and target are in host coordinates, which
// differ from the engine's world in the sign of y.
struct SCENE_CAMERA_INFO {
  SCENE_VERTEX_XYZ eye;
  SCENE_VERTEX_XYZ lookAt;
  // Read only by the camera mathematics (BrindlexViewMath.h says how).
  float fieldOfView;     // vertical field of view in degrees, perspective
  float parallelHeight;  // world height that a parallel view shows
  float roll;            // turn about the view direction in degrees
};

struct SCENE_LIGHT_DEFINITION {
  uint32_t definitionNumber;
  uint16_t type;  // 0 point, 1 spot, 2 direct, 3 area
  SCENE_VERTEX_XYZ position;
  SCENE_VERTEX_XYZ target;
  uint32_t color;  // red in bits 0 to 7, green 8 to 15, blue 16 to 23
  uint16_t flags;
  int16_t intensity;  // tenths: 10 is 1.0
  double angle;       // degrees
  double falloffStart;
  double falloffEnd;
  SCENE_VERTEX_XYZ axisU;  // area light half-width vector
  SCENE_VERTEX_XYZ axisV;  // area light half-height vector
};

enum SCENE_LIGHT_FLAGS : uint16_t {
  LightEnabled = 0x01,
  LightCastsShadows = 0x02,
  LightDiffuse = 0x04,
  LightSpecular = 0x08,
  LightSoftEdge = 0x10,
  LightIsSymbol = 0x20,
  LightHasFalloff = 0x40,
};

struct SCENE_LIGHT_INSTANCE {
  int32_t number;
  SCENE_LIGHT_DEFINITION* definition;  // null: the instance is ignored
  SCENE_MATRIX matrix;                 // applied to position and target
};

// Never read by the engine; only a parameter type.
struct SCENE_INDIRECT_LIGHT_INSTANCE {
  int32_t number;
};

#pragma pack(pop)

static_assert(sizeof(SCENE_VERTEX_XYZ) == 12);
static_assert(sizeof(SCENE_VERTEX_XYZ_64) == 24);
static_assert(sizeof(SCENE_VERTEX_XYZW) == 16);
static_assert(sizeof(SCENE_VERTEX_XYZW_64) == 32);
static_assert(sizeof(SCENE_MATRIX) == 64);
static_assert(sizeof(SCENE_MATRIX_64) == 128);
static_assert(sizeof(SCENE_VERTEX) == 44);
static_assert(offsetof(SCENE_VERTEX, normal) == 12);
static_assert(offsetof(SCENE_VERTEX, u) == 24);
static_assert(offsetof(SCENE_VERTEX, tangent) == 32);
static_assert(offsetof(SCENE_CAMERA_INFO, lookAt) == 12);
static_assert(offsetof(SCENE_CAMERA_INFO, fieldOfView) == 24);
static_assert(sizeof(SCENE_CAMERA_INFO) == 36);
static_assert(sizeof(SCENE_LIGHT_DEFINITION) == 86);
static_assert(offsetof(SCENE_LIGHT_DEFINITION, type) == 4);
static_assert(offsetof(SCENE_LIGHT_DEFINITION, position) == 6);
static_assert(offsetof(SCENE_LIGHT_DEFINITION, target) == 18);
static_assert(offsetof(SCENE_LIGHT_DEFINITION, color) == 30);
static_assert(offsetof(SCENE_LIGHT_DEFINITION, flags) == 34);
static_assert(offsetof(SCENE_LIGHT_DEFINITION, intensity) == 36);
static_assert(offsetof(SCENE_LIGHT_DEFINITION, angle) == 38);
static_assert(offsetof(SCENE_LIGHT_DEFINITION, falloffStart) == 46);
static_assert(offsetof(SCENE_LIGHT_DEFINITION, falloffEnd) == 54);
static_assert(offsetof(SCENE_LIGHT_DEFINITION, axisU) == 62);
static_assert(offsetof(SCENE_LIGHT_DEFINITION, axisV) == 74);
static_assert(offsetof(SCENE_LIGHT_INSTANCE, definition) == 4);
static_assert(offsetof(SCENE_LIGHT_INSTANCE, matrix) == 12);

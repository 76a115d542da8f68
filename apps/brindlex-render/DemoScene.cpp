#include "DemoScene.h"

#include <cmath>
#include <cstdint>
#include <vector>
#include <numbers>

#include "host/BrindlexTexture.h"
#include "host/BrindlexViewMath.h"

namespace {

// A small integer hash: repeatable "randomness" for the planks.
uint32_t Hash(uint32_t x) {
  x ^= x >> 16, x *= 0x7feb352dU, x ^= x >> 15, x *= 0x846ca68bU, x ^= x >> 16;
  return x;
}

bool SavePicture(const std::filesystem::path& path, int width, int height,
                 void (*shade)(int x, int y, int width, int height, uint8_t* bgr)) {
  std::error_code code;
  if (std::filesystem::exists(path, code)) return true;
  std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 3);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      shade(x, y, width, height, &pixels[(static_cast<size_t>(y) * width + x) * 3]);
  platform::PixelSurface surface{width, height, 24, pixels.data(), static_cast<ptrdiff_t>(width) * 3};
  return SavePictureFile(path.string().c_str(), surface, PictureFileFormat::Png);
}

// Planks along x, eight across the picture, each of its own shade, with
// fine grain and a dark joint between them.
void WoodPixel(int x, int y, int, int height, uint8_t* bgr) {
  const int plankWidth = height / 8, plank = y / plankWidth, across = y % plankWidth;
  const float tone = 0.8f + 0.2f * static_cast<float>(Hash(plank) % 1000) / 1000.0f;
  const float grain = 0.92f + 0.08f * std::sin(y * 0.9f + 2.5f * std::sin(x * 0.05f + plank * 1.7f));
  const float joint = across == 0 ? 0.45f : 1.0f;
  const float shade = tone * grain * joint;
  bgr[0] = static_cast<uint8_t>(60 * shade), bgr[1] = static_cast<uint8_t>(110 * shade);
  bgr[2] = static_cast<uint8_t>(170 * shade);
}

// Deep blue at the top of the picture to a pale haze at the horizon.
void SkyPixel(int, int y, int, int height, uint8_t* bgr) {
  const float t = static_cast<float>(y) / static_cast<float>(height - 1);  // 0 at the top
  bgr[0] = static_cast<uint8_t>(205 + 40 * t), bgr[1] = static_cast<uint8_t>(120 + 110 * t);
  bgr[2] = static_cast<uint8_t>(60 + 170 * t);
}

// Adds geometry to the node's mesh data.
class MeshBuilder {
 public:
  // A box from `min` to `max`; textures repeat every `tile` units.
  void Box(SCENE_VERTEX_XYZ min, SCENE_VERTEX_XYZ max, float tile = 1.0f);
  void Sphere(SCENE_VERTEX_XYZ centre, float radius);
  void Into(SCENE_GRAPH_NODE& node) const {
    node.CreateNodeMeshData()->SetMeshData(vertices.data(), static_cast<unsigned>(vertices.size()),
                                           indices.data(), static_cast<unsigned>(indices.size()));
  }

 private:
  std::vector<SCENE_VERTEX> vertices;
  std::vector<unsigned> indices;
};

float Axis(const SCENE_VERTEX_XYZ& v, int a) {
  return a == 0 ? v.x : a == 1 ? v.y : v.z;
}
void SetAxis(SCENE_VERTEX_XYZ& v, int a, float value) {
  (a == 0 ? v.x : a == 1 ? v.y : v.z) = value;
}

void MeshBuilder::Box(SCENE_VERTEX_XYZ min, SCENE_VERTEX_XYZ max, float tile) {
  for (int axis = 0; axis < 3; ++axis) {
    for (int sign = -1; sign <= 1; sign += 2) {
      // u, v and the normal are a right-handed frame for every face, so
      // corners taken counter-clockwise in u, v face outward.
      const int ua = (axis + 1) % 3, va = (axis + 2) % 3;
      const unsigned first = static_cast<unsigned>(vertices.size());
      const float du[4] = {0, 1, 1, 0}, dv[4] = {0, 0, 1, 1};
      for (int c = 0; c < 4; ++c) {
        SCENE_VERTEX v{};
        SetAxis(v.position, axis, Axis(sign > 0 ? max : min, axis));
        SetAxis(v.position, ua, du[c] ? Axis(max, ua) : Axis(min, ua));
        const bool high = sign > 0 ? dv[c] : !dv[c];
        SetAxis(v.position, va, high ? Axis(max, va) : Axis(min, va));
        SetAxis(v.normal, axis, static_cast<float>(sign));
        SetAxis(v.tangent, ua, 1.0f);
        v.u = Axis(v.position, ua) / tile;
        v.v = sign * Axis(v.position, va) / tile;
        vertices.push_back(v);
      }
      for (unsigned i : {0u, 1u, 2u, 0u, 2u, 3u}) indices.push_back(first + i);
    }
  }
}

void MeshBuilder::Sphere(SCENE_VERTEX_XYZ centre, float radius) {
  constexpr int Around = 32, Up = 16;
  const unsigned first = static_cast<unsigned>(vertices.size());
  for (int j = 0; j <= Up; ++j) {
    const float theta = std::numbers::pi_v<float> * j / Up;
    for (int i = 0; i <= Around; ++i) {
      const float phi = 2 * std::numbers::pi_v<float> * i / Around;
      SCENE_VERTEX v;
      v.normal = {std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi), -std::cos(theta)};
      v.position = {centre.x + radius * v.normal.x, centre.y + radius * v.normal.y,
                    centre.z + radius * v.normal.z};
      v.u = static_cast<float>(i) / Around;
      v.v = static_cast<float>(j) / Up;
      v.tangent = {-std::sin(phi), std::cos(phi), 0.0f};
      vertices.push_back(v);
    }
  }
  for (int j = 0; j < Up; ++j)
    for (int i = 0; i < Around; ++i) {
      const unsigned a = first + j * (Around + 1) + i, b = a + 1, c = a + Around + 1, d = c + 1;
      for (unsigned k : {a, b, d, a, d, c}) indices.push_back(k);
    }
}

TEXTURE_LINK Surface(unsigned long rgb, float specular) {
  TEXTURE_LINK link;
  link.SetColor(rgb);
  link.SetSpecularLevel(specular);
  link.SetTextureMappingType(TEXTURE_LINK::SV_MESH_UV_MAPPING);
  return link;
}

struct DemoMaterials {
  std::string floor, wall, roof, glass, mirror, table, ball, lamp, ground;
};

DemoMaterials AddMaterials(HostScene& host) {
  MATERIAL_3D_NODE* group = host.AddMaterial(nullptr, "Demo", Surface(0xFFFFFF, 20));
  auto add = [&](const char* name, TEXTURE_LINK link) {
    return HostScene::MaterialID(*host.AddMaterial(group, name, link));
  };
  DemoMaterials m;
  TEXTURE_LINK wood = Surface(0x3A6EA8, 40);
  wood.SetTextureLinkFullFileName(DemoFloorPicture);
  wood.SetReflectivityLevel(8), wood.SetReflecting(true);
  m.floor = add("Floor", wood);
  m.wall = add("Plaster", Surface(0xE6EEF2, 5));
  m.roof = add("Roof", Surface(0x8C8C8C, 10));
  TEXTURE_LINK glass = Surface(0xF2F0E0, 90);
  glass.SetOpacityLevel(20), glass.SetTransparent(true);
  glass.SetReflectivityLevel(10), glass.SetReflecting(true);
  m.glass = add("Glass", glass);
  TEXTURE_LINK mirror = Surface(0xF0F0F0, 100);
  mirror.SetReflectivityLevel(90), mirror.SetReflecting(true);
  m.mirror = add("Mirror", mirror);
  m.table = add("Table", Surface(0x1E3250, 30));
  m.ball = add("Ball", Surface(0x2020D0, 80));
  TEXTURE_LINK lamp = Surface(0xD0F0FF, 0);
  lamp.SetEmissiveLevel(100);
  m.lamp = add("Lamp", lamp);
  TEXTURE_LINK ground = Surface(0x3C8C46, 0);
  m.ground = add("Lawn", ground);
  return m;
}

void AddObject(SCENE_GRAPH_NODE& parent, const char* name, const std::string& material,
               const MeshBuilder& mesh) {
  auto* node = new SCENE_GRAPH_NODE(name);
  node->CreateNodeGroupData()->SetGroupMaterialID(material.c_str());
  mesh.Into(*node);
  parent.AddChildNode(node);
}

MeshBuilder OneBox(SCENE_VERTEX_XYZ min, SCENE_VERTEX_XYZ max, float tile = 1.0f) {
  MeshBuilder mesh;
  mesh.Box(min, max, tile);
  return mesh;
}

// The table: a group placed by its matrix, so the demo has a transform.
void AddTable(SCENE_GRAPH_NODE& parent, const DemoMaterials& m) {
  auto* table = new SCENE_GRAPH_NODE("Table");
  SCENE_MATRIX place = IdentityMatrix();
  place.m[12] = 3.0f, place.m[13] = 2.75f;
  table->CreateNodeGroupData()->SetGroupMatrix(&place);
  MeshBuilder wood;
  wood.Box({-1.0f, -0.6f, 0.72f}, {1.0f, 0.6f, 0.78f});
  for (float x : {-0.9f, 0.84f})
    for (float y : {-0.5f, 0.44f}) wood.Box({x, y, 0.0f}, {x + 0.06f, y + 0.06f, 0.72f});
  AddObject(*table, "Table top and legs", m.table, wood);
  MeshBuilder ball;
  ball.Sphere({0.3f, 0.0f, 1.08f}, 0.3f);
  AddObject(*table, "Ball", m.ball, ball);
  parent.AddChildNode(table);
}

void AddBuilding(SCENE_GRAPH_NODE& house, const DemoMaterials& m) {
  AddObject(house, "Floor", m.floor, OneBox({0, 0, -0.15f}, {8, 6, 0}, 2.0f));
  MeshBuilder walls;
  walls.Box({-0.2f, 0, -0.15f}, {0, 6.2f, 3});  // left
  walls.Box({-0.2f, 6, -0.15f}, {8, 6.2f, 3});  // back
  AddObject(house, "Walls", m.wall, walls);
  MeshBuilder roof;
  roof.Box({-0.3f, -0.3f, 3}, {8.3f, 6.3f, 3.2f});
  roof.Box({7.8f, -0.2f, 0}, {8, 0, 3});  // the one corner post
  AddObject(house, "Roof", m.roof, roof);
  AddObject(house, "Glass partition", m.glass, OneBox({5.5f, 1.0f, 0}, {5.54f, 4.5f, 2.4f}));
  MeshBuilder mirror;
  mirror.Box({1.0f, 5.94f, 0.4f}, {2.6f, 6.0f, 2.4f});
  AddObject(house, "Mirror", m.mirror, mirror);
  AddObject(house, "Lamp", m.lamp, OneBox({1.85f, 3.35f, 2.85f}, {2.15f, 3.65f, 3.0f}));
  AddTable(house, m);
}

SCENE_LIGHT_DEFINITION Light(uint16_t type, SCENE_VERTEX_XYZ position, SCENE_VERTEX_XYZ target,
                             unsigned long rgb, int16_t intensity) {
  SCENE_LIGHT_DEFINITION d{};
  d.type = type;
  d.position = position;
  d.target = target;
  d.color = static_cast<uint32_t>(rgb);
  d.intensity = intensity;
  d.flags = LightEnabled | LightCastsShadows | LightDiffuse | LightSpecular;
  return d;
}

void AddLights(HostScene& host) {
  host.AddLight(Light(2, {40, -60, 80}, {0, 0, 0}, 0xE6F5FF, 12));  // sun, slightly warm
  SCENE_LIGHT_DEFINITION lamp = Light(0, {2, 3.5f, 2.7f}, {2, 3.5f, 0}, 0xB0E0FF, 6);
  lamp.flags |= LightHasFalloff;
  lamp.falloffStart = 1.0, lamp.falloffEnd = 9.0;
  host.AddLight(lamp);
  SCENE_LIGHT_DEFINITION spot = Light(1, {3.3f, 1.2f, 2.9f}, {3.3f, 2.75f, 0.8f}, 0xFFFFFF, 10);
  spot.angle = 25.0;
  spot.flags |= LightSoftEdge;
  host.AddLight(spot);
  SCENE_LIGHT_DEFINITION panel = Light(3, {6, 4.5f, 2.95f}, {6, 4.5f, 0}, 0xFFF0F0, 6);
  panel.angle = 80.0;
  panel.axisU = {0.5f, 0, 0}, panel.axisV = {0, 0.5f, 0};
  panel.flags |= LightSoftEdge;
  host.AddLight(panel);
}

void SetSky(HostScene& host) {
  MODE_RENDER_OPTIONS& options = host.Options();
  options.SetCustomLighting(true);
  options.SetBackgroundColor(0xEBCE87);  // sky blue, should the picture be missing
  options.SetBackgroundTextureName((host.TextureDirectory() / DemoSkyPicture).string().c_str());
  options.SetUseBackgroundTexture(true);
}

}  // namespace

bool WriteDemoPictures(const std::filesystem::path& folder) {
  std::error_code code;
  std::filesystem::create_directories(folder, code);
  const bool floor = SavePicture(folder / DemoFloorPicture, 256, 256, WoodPixel);
  const bool sky = SavePicture(folder / DemoSkyPicture, 16, 256, SkyPixel);
  return floor && sky;
}

void BuildDemoScene(HostScene& host) {
  const std::filesystem::path folder = CacheFolder() / "demo";
  WriteDemoPictures(folder);
  host.SetTextureDirectory(folder);
  const DemoMaterials materials = AddMaterials(host);
  auto* house = new SCENE_GRAPH_NODE("Demo pavilion");
  SCENE_MATRIX identity = IdentityMatrix();
  house->CreateNodeGroupData()->SetGroupMatrix(&identity);
  house->GetNodeGroupData()->SetGroupMaterialID(materials.wall.c_str());
  AddBuilding(*house, materials);
  host.Root()->AddChildNode(house);
  AddLights(host);
  SetSky(host);
  const MATERIAL_3D_NODE* lawn = host.FindMaterials(materials.ground).front();
  host.SetHorizon(HostScene::MaterialID(*lawn), -0.15f, 400.0f);
  host.SetCamera({11.5f, -7.0f, 4.0f}, {3.5f, 3.0f, 1.1f}, 50.0f);
}

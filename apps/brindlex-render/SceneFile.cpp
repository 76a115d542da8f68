#include "SceneFile.h"

#include "Units.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;
using json = nlohmann::json;

namespace {

struct SceneFileError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Reads one JSON object, remembering which keys were asked for, so that
// Finish can name a key nobody knows.
class ObjectReader {
 public:
  ObjectReader(const json& value, std::string path) : value(value), path(std::move(path)) {
    if (!value.is_object())
      throw SceneFileError((this->path.empty() ? "the scene" : "'" + this->path + "'") +
                           " must be an object");
  }

  [[noreturn]] static void Fail(const std::string& key, const std::string& what) {
    throw SceneFileError("'" + key + "' " + what);
  }
  std::string Key(const std::string& key) const { return path.empty() ? key : path + "." + key; }

  const json* Get(const char* key) {
    used.insert(key);
    const auto found = value.find(key);
    return found == value.end() ? nullptr : &*found;
  }

  std::optional<bool> Bool(const char* key) {
    const json* v = Get(key);
    if (v && !v->is_boolean()) Fail(Key(key), "must be true or false");
    return v ? std::optional<bool>(v->get<bool>()) : std::nullopt;
  }

  std::optional<double> Number(const char* key, double low = -HUGE_VAL, double high = HUGE_VAL) {
    const json* v = Get(key);
    if (!v) return std::nullopt;
    if (!v->is_number()) Fail(Key(key), "must be a number");
    const double number = v->get<double>();
    if (number >= low && number <= high) return number;
    if (high == HUGE_VAL) Fail(Key(key), "must be at least " + Text(low));
    if (low == -HUGE_VAL) Fail(Key(key), "must be at most " + Text(high));
    Fail(Key(key), "must be from " + Text(low) + " to " + Text(high));
  }

  std::optional<int> Integer(const char* key, int low, int high) {
    const json* v = Get(key);
    if (v && !v->is_number_integer()) Fail(Key(key), "must be a whole number");
    return v ? std::optional<int>(static_cast<int>(*Number(key, low, high))) : std::nullopt;
  }

  std::optional<float> Float(const char* key, double low = -HUGE_VAL, double high = HUGE_VAL) {
    const auto number = Number(key, low, high);
    return number ? std::optional<float>(static_cast<float>(*number)) : std::nullopt;
  }

  std::optional<std::string> String(const char* key) {
    const json* v = Get(key);
    if (v && !v->is_string()) Fail(Key(key), "must be a string");
    return v ? std::optional<std::string>(v->get<std::string>()) : std::nullopt;
  }

  std::optional<SCENE_VERTEX_XYZ> Point(const char* key) {
    const json* v = Get(key);
    if (!v) return std::nullopt;
    if (!v->is_array() || v->size() != 3 || !(*v)[0].is_number() || !(*v)[1].is_number() ||
        !(*v)[2].is_number())
      Fail(Key(key), "must be an array of three numbers");
    return SCENE_VERTEX_XYZ{(*v)[0].get<float>(), (*v)[1].get<float>(), (*v)[2].get<float>()};
  }

  // "#RRGGBB", packed with red in the low byte.
  std::optional<unsigned long> Color(const char* key) {
    const auto text = String(key);
    if (!text) return std::nullopt;
    unsigned long rgb = 0;
    size_t end = 0;
    try {
      // stoul alone would take a sign or blanks.
      const bool hex = std::all_of(text->begin() + std::min<size_t>(text->size(), 1), text->end(),
                                   [](unsigned char c) { return std::isxdigit(c); });
      if (text->size() == 7 && (*text)[0] == '#' && hex) rgb = std::stoul(text->substr(1), &end, 16);
    } catch (const std::exception&) {
      end = 0;
    }
    if (end != 6) Fail(Key(key), "must be a colour \"#RRGGBB\"");
    return (rgb >> 16 & 0xFF) | (rgb & 0xFF00) | (rgb & 0xFF) << 16;
  }

  std::optional<std::string> Choice(const char* key, const std::set<std::string>& allowed) {
    const auto text = String(key);
    if (text && !allowed.count(*text)) {
      std::string list;
      for (const auto& a : allowed) list += (list.empty() ? "" : ", ") + a;
      Fail(Key(key), "must be one of " + list);
    }
    return text;
  }

  void Finish() const {
    for (const auto& item : value.items())
      if (!used.count(item.key())) throw SceneFileError("unknown key '" + Key(item.key()) + "'");
  }

 private:
  // As people write numbers in JSON: "1e30" and "1e-9", not "1e+30" and
  // "1e-09".
  static std::string Text(double number) {
    std::ostringstream out;
    out << number;
    std::string text = out.str();
    const size_t e = text.find('e');
    if (e == std::string::npos) return text;
    size_t digits = e + 1;
    if (text[digits] == '+')
      text.erase(digits, 1);
    else if (text[digits] == '-')
      ++digits;
    while (digits + 1 < text.size() && text[digits] == '0') text.erase(digits, 1);
    return text;
  }

  const json& value;
  std::string path;
  std::set<std::string> used;
};

template <typename T>
void Assign(std::optional<T>& field, const std::optional<T>& value) {
  if (value) field = value;
}

// Parses the sections of one scene file.
class SceneParser {
 public:
  SceneParser(fs::path folder, SceneDescription& scene) : folder(std::move(folder)), scene(scene) {}
  void Parse(const json& document);

 private:
  fs::path File(const std::string& name) const { return folder / name; }
  void Models(const json& value);
  void Camera(const json& value);
  void Light(const json& value, const std::string& key);
  void Options(const json& value);
  void Background(const json& value);
  void Horizon(const json& value);
  MaterialSettings Material(const json& value, const std::string& key);

  fs::path folder;
  SceneDescription& scene;
};

void SceneParser::Parse(const json& document) {
  ObjectReader top(document, "");
  if (const json* v = top.Get("models")) Models(*v);
  if (const json* v = top.Get("camera")) Camera(*v);
  if (const json* v = top.Get("lights")) {
    if (!v->is_array()) ObjectReader::Fail("lights", "must be an array");
    for (size_t i = 0; i < v->size(); ++i) Light((*v)[i], "lights[" + std::to_string(i) + "]");
  }
  if (const json* v = top.Get("renderOptions")) Options(*v);
  if (const json* v = top.Get("background")) Background(*v);
  if (const json* v = top.Get("horizon")) Horizon(*v);
  if (const json* v = top.Get("rotateToCamera")) {
    if (!v->is_array()) ObjectReader::Fail("rotateToCamera", "must be an array of node names");
    for (const json& name : *v) {
      if (!name.is_string()) ObjectReader::Fail("rotateToCamera", "must be an array of node names");
      scene.rotateToCamera.push_back(name.get<std::string>());
    }
  }
  if (const json* v = top.Get("materials")) {
    if (!v->is_object()) ObjectReader::Fail("materials", "must be an object of material names");
    for (const auto& item : v->items())
      scene.materials.emplace_back(item.key(), Material(item.value(), "materials." + item.key()));
  }
  scene.passes = top.Integer("passes", 1, 1000000);
  scene.timeLimit = top.Number("time");
  if (scene.timeLimit && !(*scene.timeLimit > 0.0)) ObjectReader::Fail("time", "must be above 0");
  top.Finish();
}

void SceneParser::Models(const json& value) {
  if (!value.is_array()) ObjectReader::Fail("models", "must be an array");
  for (size_t i = 0; i < value.size(); ++i) {
    const std::string key = "models[" + std::to_string(i) + "]";
    SceneModel model;
    if (value[i].is_string()) {
      model.file = File(value[i].get<std::string>());
    } else {
      ObjectReader r(value[i], key);
      const auto file = r.String("file");
      if (!file) ObjectReader::Fail(r.Key("file"), "is missing");
      model.file = File(*file);
      static const std::map<std::string, UpAxis> axes = {
          {"x", UpAxis::X}, {"y", UpAxis::Y}, {"z", UpAxis::Z}};
      if (const auto up = r.Choice("up", {"x", "y", "z"})) model.placement.up = axes.at(*up);
      if (const auto t = r.Point("translate")) model.placement.translate = *t;
      if (const auto s = r.Float("scale", 1e-9)) model.placement.scale = *s;
      if (const auto unit = r.Choice("unit", {"mm", "cm", "m", "km", "in", "ft", "yd"}))
        model.placement.metresPerUnit = MetresPerUnitNamed(*unit);
      r.Finish();
    }
    scene.models.push_back(model);
  }
}

void SceneParser::Camera(const json& value) {
  ObjectReader r(value, "camera");
  SceneCamera& camera = scene.camera;
  camera.eye = r.Point("eye");
  camera.target = r.Point("target");
  camera.fieldOfView = r.Float("fov", 0.1, 179.0);
  if (const auto p = r.Choice("projection", {"perspective", "parallel"}))
    camera.projection = *p == "parallel" ? ENVIRONMENT_3D_VIEW::ParallelProjection
                                         : ENVIRONMENT_3D_VIEW::PerspectiveProjection;
  camera.parallelHeight = r.Float("parallelHeight", 1e-9);
  camera.roll = r.Float("roll");
  r.Finish();
}

void SceneParser::Light(const json& value, const std::string& key) {
  ObjectReader r(value, key);
  static const std::map<std::string, uint16_t> types = {
      {"point", 0}, {"spot", 1}, {"direct", 2}, {"area", 3}};
  const auto type = r.Choice("type", {"point", "spot", "direct", "area"});
  if (!type) ObjectReader::Fail(r.Key("type"), "is missing");
  SCENE_LIGHT_DEFINITION d{};
  d.definitionNumber = static_cast<uint32_t>(
      r.Integer("definitionNumber", 0, INT32_MAX).value_or(static_cast<int>(scene.lights.size())));
  d.type = types.at(*type);
  const auto position = r.Point("position");
  if (!position) ObjectReader::Fail(r.Key("position"), "is missing");
  d.position = *position;
  const auto target = r.Point("target");
  if (!target && d.type != 0) ObjectReader::Fail(r.Key("target"), "is needed for a " + *type + " light");
  d.target = target.value_or(*position);
  d.color = r.Color("color").value_or(0xFFFFFF);
  // Intensity 1.0 is the engine's 10 tenths.
  d.intensity = static_cast<int16_t>(std::lround(r.Number("intensity", 0.0, 3276.7).value_or(1.0) * 10.0));
  d.angle = r.Number("angle", 0.0, 90.0).value_or(45.0);
  d.falloffStart = r.Number("falloffStart", 0.0).value_or(0.0);
  d.falloffEnd = r.Number("falloffEnd", 0.0).value_or(0.0);
  d.axisU = r.Point("axisU").value_or(SCENE_VERTEX_XYZ{0, 0, 0});
  d.axisV = r.Point("axisV").value_or(SCENE_VERTEX_XYZ{0, 0, 0});
  const std::pair<const char*, std::pair<uint16_t, bool>> flags[] = {
      {"enabled", {LightEnabled, true}},       {"castsShadows", {LightCastsShadows, true}},
      {"diffuse", {LightDiffuse, true}},       {"specular", {LightSpecular, true}},
      {"softEdge", {LightSoftEdge, false}},    {"isSymbol", {LightIsSymbol, false}},
      {"hasFalloff", {LightHasFalloff, false}}};
  for (const auto& [name, flag] : flags)
    if (r.Bool(name).value_or(flag.second)) d.flags |= flag.first;
  r.Finish();
  scene.lights.push_back(d);
}

using OptionSetter = std::function<void(ObjectReader&, const char*, SceneDescription&)>;
using Options = MODE_RENDER_OPTIONS;

template <typename T>
OptionSetter BoolOption(void (Options::*set)(T)) {
  return [set](ObjectReader& r, const char* key, SceneDescription& s) {
    const bool on = *r.Bool(key);
    s.options.push_back([set, on](Options& o) { (o.*set)(on); });
  };
}

template <typename T>
OptionSetter NumberOption(void (Options::*set)(T), double low, double high) {
  return [=](ObjectReader& r, const char* key, SceneDescription& s) {
    const T value = std::is_integral_v<T>
                        ? static_cast<T>(*r.Integer(key, static_cast<int>(low), static_cast<int>(high)))
                        : static_cast<T>(*r.Number(key, low, high));
    s.options.push_back([set, value](Options& o) { (o.*set)(value); });
  };
}

// A distance: kept in the file's units until the world's are known.
OptionSetter LengthOption(void (Options::*set)(float), double low, double high) {
  return [=](ObjectReader& r, const char* key, SceneDescription& s) {
    const double value = *r.Number(key, low, high);
    s.lengthOptions.push_back([set, value](Options& o, double worldPerUnit) {
      (o.*set)(static_cast<float>(value * worldPerUnit));
    });
  };
}

OptionSetter ColorOption(void (Options::*set)(unsigned long)) {
  return [set](ObjectReader& r, const char* key, SceneDescription& s) {
    const unsigned long rgb = *r.Color(key);
    s.options.push_back([set, rgb](Options& o) { (o.*set)(rgb); });
  };
}

void SetBackgroundX(Options& o, short x) {
  o.SetBackgroundImageOffset(x, o.GetBackgroundImageYOffset());
}
void SetBackgroundY(Options& o, short y) {
  o.SetBackgroundImageOffset(o.GetBackgroundImageXOffset(), y);
}

OptionSetter OffsetOption(void (*set)(Options&, short)) {
  return [set](ObjectReader& r, const char* key, SceneDescription& s) {
    const short value = static_cast<short>(*r.Integer(key, -32768, 32767));
    s.options.push_back([set, value](Options& o) { set(o, value); });
  };
}

// Every render option: its key in the scene file, the name of the getter
// that the engine reads, which files may use as well, and how it is set.
struct RenderOptionKey {
  const char* key;
  const char* getter;
  OptionSetter set;
};

const std::vector<RenderOptionKey>& RenderOptionKeys() {
  constexpr double Percent = 100.0, Big = 1e30;
  static const std::vector<RenderOptionKey> keys = {
      {"pathTracing", "DoPathTracing", BoolOption(&Options::SetPathTracing)},
      {"customLighting", "DoCustomLighting", BoolOption(&Options::SetCustomLighting)},
      {"lighting", "DoLighting", BoolOption(&Options::SetLighting)},
      {"photonMapping", "DoPhotonMapping", BoolOption(&Options::SetPhotonMapping)},
      {"indirectLighting", "DoIndirectLighting", BoolOption(&Options::SetIndirectLighting)},
      {"softShadows", "DoRayTracedSoftShadows", BoolOption(&Options::SetRayTracedSoftShadows)},
      {"shadows", "DisplayShadows", BoolOption(&Options::SetDisplayShadows)},
      {"allShadows", "ShouldCalculateAllShadows", BoolOption(&Options::SetCalculateAllShadows)},
      {"ambientOcclusion", "DoAmbientOcclusion", BoolOption(&Options::SetAmbientOcclusion)},
      {"reflections", "DoReflections", BoolOption(&Options::SetReflections)},
      {"bumpMapping", "DoBumpMapping", BoolOption(&Options::SetBumpMapping)},
      {"emissiveMaterial", "DoEmissiveMaterial", BoolOption(&Options::SetEmissiveMaterial)},
      {"useAntialiasing", "DoAntiAliasing", BoolOption(&Options::SetAntiAliasing)},
      {"antialiasing", "GetAntialiasingLevel", NumberOption(&Options::SetAntialiasingLevel, 0, 4)},
      {"toneMapping", "DoHDRTonalMapping", BoolOption(&Options::SetHDRTonalMapping)},
      {"toneMappingLevel", "GetHDRTonalMappingLevel",
       NumberOption(&Options::SetHDRTonalMappingLevel, 0, Percent)},
      {"toneMappingGamma", "ApplyHDRGamma", BoolOption(&Options::SetHDRGamma)},
      {"highlightColor", "GetHighlightColor", ColorOption(&Options::SetHighlightColor)},
      {"disableSymbolLights", "DisableSymbolLights", BoolOption(&Options::SetDisableSymbolLights)},
      {"headlight", "IsHeadlightOn", BoolOption(&Options::SetHeadlight)},
      {"headlightLevel", "GetHeadlightLightLevel",
       NumberOption(&Options::SetHeadlightLightLevel, -32768, 32767)},
      {"ambientLightLevel", "GetAmbientLightLevel", NumberOption(&Options::SetAmbientLightLevel, 0, Big)},
      {"indirectBounces", "GetNumberOfIndirectBounces",
       NumberOption(&Options::SetNumberOfIndirectBounces, 0, 65535)},
      {"photonLevel", "GetPhotonLevel", NumberOption(&Options::SetPhotonLevel, 0, 65535)},
      {"photonEnergy", "GetPhotonEnergy", NumberOption(&Options::SetPhotonEnergy, 0, 65535)},
      {"photonSampleLevel", "GetPhotonSampleLevel", NumberOption(&Options::SetPhotonSampleLevel, 0, 65535)},
      {"photonRadius", "GetPhotonRadius", LengthOption(&Options::SetPhotonRadius, 1e-9, Big)},
      {"photonDirectLighting", "GetPhotonDirectLightingContribution",
       NumberOption(&Options::SetPhotonDirectLightingContribution, 0, Percent)},
      {"fogLevel", "GetFogLevel", NumberOption(&Options::SetFogLevel, 0, Percent)},
      {"mistLevel", "GetMistLevel", NumberOption(&Options::SetMistLevel, 0, Percent)},
      {"mistOffset", "GetMistOffset", LengthOption(&Options::SetMistOffset, -Big, Big)},
      {"backgroundColor", "GetBackgroundColor", ColorOption(&Options::SetBackgroundColor)},
      {"useBackgroundTexture", "UseBackgroundTexture", BoolOption(&Options::SetUseBackgroundTexture)},
      {"backgroundPanoramic", "IsBackgroundTexturePanoramic",
       BoolOption(&Options::SetBackgroundTexturePanoramic)},
      {"backgroundXOffset", "GetBackgroundImageXOffset", OffsetOption(SetBackgroundX)},
      {"backgroundYOffset", "GetBackgroundImageYOffset", OffsetOption(SetBackgroundY)},
      {"faces", "DisplayFaces", BoolOption(&Options::SetDisplayFaces)},
      {"faceDisplayType", "GetFaceDisplayType", NumberOption(&Options::SetFaceDisplayType, -32768, 32767)},
      {"faceOpacity", "GetFaceOpacityLevel", NumberOption(&Options::SetFaceOpacityLevel, 0, Percent)},
      {"useFaceTextureScale", "UseFaceTextureScale", BoolOption(&Options::SetUseFaceTextureScale)},
      {"faceTextureScale", "GetFaceTextureScale", NumberOption(&Options::SetFaceTextureScale, 1e-9, Big)},
      {"monochromeFaceColor", "GetMonochromeFaceColor", ColorOption(&Options::SetMonochromeFaceColor)},
      // The picture's name is the one option that is no getter's plain
      // value: the engine asks GetBackgroundTexture for the path, which is
      // taken from the scene file's folder.
      {"backgroundTexture", "GetBackgroundTexture", nullptr},
  };
  return keys;
}

// The entry of `key`, under either of its names, or null.
const RenderOptionKey* FindRenderOption(const std::string& key) {
  for (const RenderOptionKey& option : RenderOptionKeys())
    if (key == option.key || key == option.getter) return &option;
  return nullptr;
}

void SceneParser::Options(const json& value) {
  ObjectReader r(value, "renderOptions");
  std::map<const RenderOptionKey*, std::string> given;
  for (const auto& item : value.items()) {
    const RenderOptionKey* option = FindRenderOption(item.key());
    if (!option) continue;  // Finish names it
    if (!given.emplace(option, item.key()).second)
      ObjectReader::Fail(r.Key(item.key()), "sets the same option as '" + r.Key(given[option]) + "'");
    if (option->set) {
      option->set(r, item.key().c_str(), scene);
    } else if (const auto picture = r.String(item.key().c_str())) {
      const std::string path = File(*picture).string();
      scene.options.push_back([path](MODE_RENDER_OPTIONS& o) { o.SetBackgroundTextureName(path.c_str()); });
    }
  }
  r.Finish();
}

void SceneParser::Background(const json& value) {
  ObjectReader r(value, "background");
  if (const auto rgb = r.Color("color"))
    scene.options.push_back([rgb = *rgb](MODE_RENDER_OPTIONS& o) { o.SetBackgroundColor(rgb); });
  if (const auto picture = r.String("picture")) {
    const std::string path = File(*picture).string();
    scene.options.push_back([path](MODE_RENDER_OPTIONS& o) {
      o.SetBackgroundTextureName(path.c_str());
      o.SetUseBackgroundTexture(true);
    });
  }
  if (const auto panorama = r.Bool("panorama"))
    scene.options.push_back(
        [on = *panorama](MODE_RENDER_OPTIONS& o) { o.SetBackgroundTexturePanoramic(on); });
  if (const json* offset = r.Get("offset")) {
    if (!offset->is_array() || offset->size() != 2 || !(*offset)[0].is_number_integer() ||
        !(*offset)[1].is_number_integer())
      ObjectReader::Fail("background.offset", "must be an array of two whole numbers (percent)");
    const short x = static_cast<short>(std::clamp((*offset)[0].get<int>(), -32768, 32767));
    const short y = static_cast<short>(std::clamp((*offset)[1].get<int>(), -32768, 32767));
    scene.options.push_back([x, y](MODE_RENDER_OPTIONS& o) { o.SetBackgroundImageOffset(x, y); });
  }
  r.Finish();
}

void SceneParser::Horizon(const json& value) {
  ObjectReader r(value, "horizon");
  SceneHorizon horizon;
  horizon.enabled = r.Bool("enabled").value_or(true);
  if (const json* material = r.Get("material")) horizon.material = Material(*material, "horizon.material");
  horizon.height = r.Float("height");
  horizon.size = r.Float("size", 1e-6);
  r.Finish();
  scene.horizon = horizon;
}

MaterialSettings SceneParser::Material(const json& value, const std::string& key) {
  ObjectReader r(value, key);
  MaterialSettings m;
  m.color = r.Color("color");
  if (const auto texture = r.String("texture")) m.texture = File(*texture);
  m.opacity = r.Float("opacity", 0, 100);
  m.reflectivity = r.Float("reflectivity", 0, 100);
  m.ambient = r.Float("ambient", 0, 100);
  m.diffuse = r.Float("diffuse", 0, 100);
  m.specular = r.Float("specular", 0, 100);
  m.emissive = r.Float("emissive", 0, 100);
  m.relief = r.Float("relief", 0, 100);
  m.transparent = r.Bool("transparent");
  m.reflecting = r.Bool("reflecting");
  m.overrideTextureWithColor = r.Bool("overrideTextureWithColor");
  m.scaled = r.Bool("scaled");
  m.visible = r.Bool("visible");
  static const std::map<std::string, int> mappings = {{"planar", TEXTURE_LINK::SV_PLANAR_MAPPING},
                                                      {"fitToFace", TEXTURE_LINK::SV_FIT_TO_FACE_MAPPING},
                                                      {"box", TEXTURE_LINK::SV_BOX_MAPPING},
                                                      {"meshUV", TEXTURE_LINK::SV_MESH_UV_MAPPING}};
  if (const auto mapping = r.Choice("mapping", {"planar", "fitToFace", "box", "meshUV"}))
    m.mapping = mappings.at(*mapping);
  r.Finish();
  return m;
}

void ApplyCamera(const SceneCamera& camera, HostScene& host) {
  SCENE_CAMERA_INFO info = *host.View().GetViewFileState()->GetCameraInfo();
  if (camera.parallelHeight)
    info.parallelHeight = static_cast<float>(*camera.parallelHeight * host.WorldPerFileUnit());
  if (camera.roll) info.roll = *camera.roll;
  host.View().GetViewFileState()->SetCameraInfo(info);
  if (camera.projection) host.View().SetProjectionType(*camera.projection);
}

void ApplyHorizon(const SceneHorizon& horizon, HostScene& host) {
  if (!horizon.enabled) return;
  SCENE_VERTEX_XYZ min{}, max{};
  host.WorldBounds(min, max);
  // Big enough to reach the picture's edge from any view of the model.
  const float extent = std::max({max.x - min.x, max.y - min.y, max.z - min.z, 1.0f});
  TEXTURE_LINK link;
  link.SetColor(0x406040);  // a dull green field
  link.SetSpecularLevel(0.0f);
  ApplyMaterialSettings(horizon.material, host, link);
  const MATERIAL_3D_NODE* material = host.AddMaterial(nullptr, "Horizon", link);
  // Height and size are in file units like every position.
  const float unit = static_cast<float>(host.WorldPerFileUnit());
  host.SetHorizon(HostScene::MaterialID(*material), horizon.height ? *horizon.height * unit : min.z,
                  horizon.size ? *horizon.size * unit : 100.0f * extent);
}

}  // namespace

void ApplyMaterialSettings(const MaterialSettings& m, const HostScene& host, TEXTURE_LINK& link) {
  if (m.color) link.SetColor(*m.color);
  if (m.texture) link.SetTextureLinkFullFileName(host.TextureName(*m.texture).c_str());
  if (m.opacity) link.SetOpacityLevel(*m.opacity), link.SetTransparent(*m.opacity < 100.0f);
  if (m.reflectivity) link.SetReflectivityLevel(*m.reflectivity), link.SetReflecting(*m.reflectivity > 0.0f);
  if (m.ambient) link.SetAmbientLevel(*m.ambient);
  if (m.diffuse) link.SetDiffuseLevel(*m.diffuse);
  if (m.specular) link.SetSpecularLevel(*m.specular);
  if (m.emissive) link.SetEmissiveLevel(*m.emissive);
  if (m.relief) link.SetReliefDepthLevel(*m.relief);
  // Explicit switches win over what the levels implied.
  if (m.transparent) link.SetTransparent(*m.transparent);
  if (m.reflecting) link.SetReflecting(*m.reflecting);
  if (m.overrideTextureWithColor) link.SetOverrideTextureWithColor(*m.overrideTextureWithColor);
  if (m.scaled) link.SetScaled(*m.scaled);
  if (m.mapping) link.SetTextureMappingType(*m.mapping);
}

namespace {

// A message quotes keys and values from the file, which may hold line
// breaks and other control characters: they are written as JSON escapes, so
// that the message stays one line.
std::string OneLine(const std::string& text) {
  std::string line;
  for (const unsigned char c : text) {
    if (c == '\n') {
      line += "\\n";
    } else if (c == '\t') {
      line += "\\t";
    } else if (c < 0x20 || c == 0x7f) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", c);
      line += escape;
    } else {
      line += static_cast<char>(c);
    }
  }
  return line;
}

}  // namespace

bool ParseScene(const std::string& text, const fs::path& folder, SceneDescription& scene,
                std::string& error) {
  try {
    // A scene file named without a folder lies in the current one.
    SceneParser(folder.empty() ? fs::current_path() : fs::absolute(folder), scene).Parse(json::parse(text));
    return true;
  } catch (const json::parse_error& e) {
    // nlohmann's text starts with its own tag in brackets; the rest is the
    // useful part ("parse error at line 3, column 5: ...").
    const std::string what = e.what();
    const size_t tag = what.find("] ");
    error = "not valid JSON: " + (tag == std::string::npos ? what : what.substr(tag + 2));
  } catch (const SceneFileError& e) {
    error = e.what();
  } catch (const json::exception& e) {
    // A number beyond double's range ("1e400") and the like.
    const std::string what = e.what();
    const size_t tag = what.find("] ");
    error = "not a usable value: " + (tag == std::string::npos ? what : what.substr(tag + 2));
  }
  error = OneLine(error);
  return false;
}

bool ReadSceneFile(const fs::path& file, SceneDescription& scene, std::string& error) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    error = std::string(std::error_code(errno, std::generic_category()).message());
    return false;
  }
  std::ostringstream text;
  text << in.rdbuf();
  return ParseScene(text.str(), file.parent_path(), scene, error);
}

bool ApplyScene(const SceneDescription& scene, HostScene& host, std::string& error) {
  ApplyCamera(scene.camera, host);
  for (const SCENE_LIGHT_DEFINITION& light : scene.lights) host.AddLight(light);
  if (!scene.lights.empty()) host.Options().SetCustomLighting(true);
  for (const auto& option : scene.options) option(host.Options());
  for (const auto& option : scene.lengthOptions) option(host.Options(), host.WorldPerFileUnit());
  for (const std::string& name : scene.rotateToCamera) {
    SCENE_GRAPH_NODE_INTERFACE* node = host.Root()->FindNode(name.c_str());
    if (!node) {
      error = "rotateToCamera: no node is named '" + name + "'";
      return false;
    }
    node->CreateNodeGroupData()->SetGroupRotateToCamera(true);
  }
  for (const auto& [name, settings] : scene.materials) {
    const auto found = host.FindMaterials(name);
    if (found.empty()) {
      error = "materials: no material is named '" + name + "'";
      return false;
    }
    for (MATERIAL_3D_NODE* material : found) {
      TEXTURE_LINK link = material->GetTextureLink() ? *material->GetTextureLink() : TEXTURE_LINK();
      ApplyMaterialSettings(settings, host, link);
      material->SetTextureLink(&link);
      if (settings.visible) material->SetVisible(*settings.visible);
    }
  }
  if (scene.horizon) ApplyHorizon(*scene.horizon, host);
  return true;
}

#include "Options.h"

#include <charconv>
#include <cmath>
#include <filesystem>
#include <functional>
#include <map>

namespace {

bool ParseInt(const std::string& text, int low, int high, int& value) {
  const char* end = text.data() + text.size();
  auto [rest, status] = std::from_chars(text.data(), end, value);
  return status == std::errc() && rest == end && value >= low && value <= high;
}

bool ParseFloat(const std::string& text, float& value) {
  // strtof accepts leading blanks and hex; a number on a command line is
  // plain decimal, so anything else left over is refused.
  if (text.empty() || std::isspace(static_cast<unsigned char>(text[0]))) return false;
  char* end = nullptr;
  value = std::strtof(text.c_str(), &end);
  return end == text.c_str() + text.size() && std::isfinite(value);
}

bool ParsePoint(const std::string& text, SCENE_VERTEX_XYZ& point) {
  float values[3];
  size_t start = 0;
  for (int i = 0; i < 3; ++i) {
    const size_t comma = i < 2 ? text.find(',', start) : text.size();
    if (comma == std::string::npos || !ParseFloat(text.substr(start, comma - start), values[i])) return false;
    start = comma + 1;
  }
  point = {values[0], values[1], values[2]};
  return true;
}

using Setter = std::function<bool(RenderSettings&, const std::string&, std::string&)>;

Setter Flag(bool RenderSettings::*field) {
  return [field](RenderSettings& s, const std::string&, std::string&) { return s.*field = true; };
}

Setter Text(std::string RenderSettings::*field) {
  return [field](RenderSettings& s, const std::string& value, std::string& error) {
    if (value.empty()) error = "needs a file name";
    s.*field = value;
    return !value.empty();
  };
}

Setter Integer(std::optional<int> RenderSettings::*field, int low, int high) {
  return [=](RenderSettings& s, const std::string& value, std::string& error) {
    int number;
    if (!ParseInt(value, low, high, number)) {
      error = "needs a whole number from " + std::to_string(low) + " to " + std::to_string(high);
      return false;
    }
    s.*field = number;
    return true;
  };
}

Setter Point(std::optional<SCENE_VERTEX_XYZ> RenderSettings::*field) {
  return [field](RenderSettings& s, const std::string& value, std::string& error) {
    SCENE_VERTEX_XYZ point;
    if (!ParsePoint(value, point)) {
      error = "needs three numbers X,Y,Z";
      return false;
    }
    s.*field = point;
    return true;
  };
}

bool SetAntialias(RenderSettings& s, const std::string& value, std::string& error) {
  int level;
  // 2 to the level is the number of samples per pixel; the engine keeps
  // at most 16.
  if (!ParseInt(value, 0, 4, level)) {
    error = "needs a level from 0 (1 sample per pixel) to 4 (16 samples)";
    return false;
  }
  s.antialias = static_cast<unsigned short>(level);
  return true;
}

bool SetFieldOfView(RenderSettings& s, const std::string& value, std::string& error) {
  float degrees;
  if (!ParseFloat(value, degrees) || degrees <= 0.0f || degrees >= 180.0f) {
    error = "needs an angle in degrees above 0 and below 180";
    return false;
  }
  s.fieldOfView = degrees;
  return true;
}

bool SetTimeLimit(RenderSettings& s, const std::string& value, std::string& error) {
  float seconds;
  if (!ParseFloat(value, seconds) || !(seconds > 0.0f)) {
    error = "needs a number of seconds above 0";
    return false;
  }
  s.timeLimit = seconds;
  return true;
}

struct OptionSpec {
  bool takesValue;
  Setter set;
};

const std::map<std::string, OptionSpec>& OptionTable() {
  static const std::map<std::string, OptionSpec> table = {
      {"-o", {true, Text(&RenderSettings::output)}},
      {"--output", {true, Text(&RenderSettings::output)}},
      {"--scene", {true, Text(&RenderSettings::sceneFile)}},
      {"--width", {true, Integer(&RenderSettings::width, 1, MaximumPictureSide)}},
      {"--height", {true, Integer(&RenderSettings::height, 1, MaximumPictureSide)}},
      {"--antialias", {true, SetAntialias}},
      {"--path-tracing", {false, Flag(&RenderSettings::pathTracing)}},
      {"--photons", {false, Flag(&RenderSettings::photons)}},
      {"--soft-shadows", {false, Flag(&RenderSettings::softShadows)}},
      {"--passes", {true, Integer(&RenderSettings::passes, 1, 1000000)}},
      {"--time", {true, SetTimeLimit}},
      {"--checkpoints", {false, Flag(&RenderSettings::checkpoints)}},
      {"--alpha", {false, Flag(&RenderSettings::alpha)}},
      {"--cube-map", {false, Flag(&RenderSettings::cubeMap)}},
      {"--eye", {true, Point(&RenderSettings::eye)}},
      {"--target", {true, Point(&RenderSettings::target)}},
      {"--fov", {true, SetFieldOfView}},
      {"--quiet", {false, Flag(&RenderSettings::quiet)}},
      {"-q", {false, Flag(&RenderSettings::quiet)}},
      {"--mpi", {false, Flag(&RenderSettings::mpi)}},
      {"--help", {false, Flag(&RenderSettings::help)}},
      {"-h", {false, Flag(&RenderSettings::help)}},
      {"--version", {false, Flag(&RenderSettings::version)}},
  };
  return table;
}

}  // namespace

bool ParseOptions(const std::vector<std::string>& arguments, RenderSettings& settings, std::string& error) {
  for (size_t i = 0; i < arguments.size(); ++i) {
    std::string name = arguments[i], value;
    const bool isOption = name.size() > 1 && name[0] == '-';
    if (!isOption) {
      if (!settings.model.empty()) {
        error = "more than one model given ('" + settings.model + "' and '" + name + "')";
        return false;
      }
      settings.model = name;
      continue;
    }
    const size_t equals = name.find('=');
    const bool inlineValue = name.rfind("--", 0) == 0 && equals != std::string::npos;
    if (inlineValue) value = name.substr(equals + 1), name = name.substr(0, equals);
    const auto option = OptionTable().find(name);
    if (option == OptionTable().end()) {
      error = "unknown option '" + name + "'";
      return false;
    }
    if (!option->second.takesValue && inlineValue) {
      error = "option '" + name + "' takes no value";
      return false;
    }
    if (option->second.takesValue && !inlineValue) {
      if (i + 1 == arguments.size()) {
        error = "option '" + name + "' needs a value";
        return false;
      }
      value = arguments[++i];
    }
    std::string reason;
    if (!option->second.set(settings, value, reason)) {
      error = "option '" + name + "' " + reason + (value.empty() ? "" : ", not '" + value + "'");
      return false;
    }
  }
  if (settings.output.size() > MaximumOutputNameLength) {
    error = "output name longer than " + std::to_string(MaximumOutputNameLength) + " characters";
    return false;
  }
  return true;
}

std::string UsageText() {
  return R"(Usage: brindlex-render [MODEL] [options]

Renders MODEL (any format the Assimp library reads: OBJ, glTF/GLB, Collada,
3DS, FBX, PLY, STL, IFC and more) into a picture. Without a model it renders
the built-in demo scene into brindlex-demo.png.

Options:
  -o, --output FILE     picture to write; .png, .bmp, .tif/.tiff, else JPEG
                        (default: the model's name with .png)
      --scene FILE      scene file (JSON): models, camera, lights, options
      --width N         picture width in pixels (default 800)
      --height N        picture height in pixels (default 600)
      --antialias LEVEL 2^LEVEL samples per pixel, 0 to 4 (default 2)
      --path-tracing    render with the path tracer
      --photons         light bounced between surfaces, from photon maps of
                        the model's lights (tuned for building interiors)
      --soft-shadows    soft shadows: light maps, or light sampling in path tracing
      --passes N        path-tracing passes (default 32, or no limit with --time)
      --time SECONDS    end path tracing with the pass during which this time
                        runs out; the picture holds the last complete pass
      --checkpoints     keep a copy of the picture every 25 passes
      --alpha           keep the background transparent
      --cube-map        six pictures around the eye, FILE_px ... FILE_ny
      --eye X,Y,Z       camera position, in the model file's coordinates
      --target X,Y,Z    point looked at, in the model file's coordinates
      --fov DEGREES     vertical field of view (default 45)
  -q, --quiet           no progress display
      --mpi             render on a farm: run under mpirun -np N (N >= 2),
                        see docs/farm.md
  -h, --help            this text
      --version         the program's version

Exit codes: 0 done, 1 picture not written, 2 bad input, 130 stopped (Ctrl-C).
)";
}

std::string OutputName(const RenderSettings& settings) {
  if (!settings.output.empty()) return settings.output;
  const std::string& named = settings.model.empty() ? settings.sceneFile : settings.model;
  if (named.empty()) return "brindlex-demo.png";
  return std::filesystem::path(named).stem().string() + ".png";
}

std::array<std::string, 6> CubeMapNames(const std::string& output) {
  const std::filesystem::path path(output);
  const std::string stem = (path.parent_path() / path.stem()).string();
  const std::string extension = path.extension().string();
  static const char* const faces[6] = {"px", "nx", "pz", "nz", "py", "ny"};
  std::array<std::string, 6> names;
  for (int face = 0; face < 6; ++face) names[face] = stem + "_" + faces[face] + extension;
  return names;
}

#include "ViewOptions.h"

#include <cstdio>

namespace {

// The options of brindlex-view's own; each takes a file name but
// --exit-after-frame.
bool TakeOwnOption(const std::vector<std::string>& arguments, size_t& i, ViewSettings& settings,
                   std::string& error, bool& taken) {
  std::string name = arguments[i], value;
  const size_t equals = name.find('=');
  const bool inlineValue = name.rfind("--", 0) == 0 && equals != std::string::npos;
  if (inlineValue) value = name.substr(equals + 1), name = name.substr(0, equals);
  taken = name == "--screenshot" || name == "--log" || name == "--exit-after-frame";
  if (!taken) return true;
  if (name == "--exit-after-frame") {
    if (inlineValue) error = "option '--exit-after-frame' takes no value";
    settings.exitAfterFrame = true;
    return !inlineValue;
  }
  if (!inlineValue) {
    if (i + 1 == arguments.size()) {
      error = "option '" + name + "' needs a value";
      return false;
    }
    value = arguments[++i];
  }
  if (value.empty()) {
    error = "option '" + name + "' needs a file name";
    return false;
  }
  (name == "--log" ? settings.log : settings.screenshot) = value;
  return true;
}

}  // namespace

bool ParseViewOptions(const std::vector<std::string>& arguments, ViewSettings& settings, std::string& error) {
  std::vector<std::string> rest;
  for (size_t i = 0; i < arguments.size(); ++i) {
    bool taken = false;
    if (!TakeOwnOption(arguments, i, settings, error, taken)) return false;
    if (!taken) rest.push_back(arguments[i]);
  }
  if (!ParseOptions(rest, settings.render, error)) return false;
  const RenderSettings& render = settings.render;
  const char* fileOnly = render.cubeMap       ? "--cube-map"
                         : render.checkpoints ? "--checkpoints"
                         : render.alpha       ? "--alpha"
                                              : nullptr;
  if (fileOnly) {
    error = std::string("option '") + fileOnly + "' is for brindlex render only";
    return false;
  }
  return true;
}

std::string ViewUsageText() {
  return R"(Usage: brindlex-view [MODEL] [options]

Shows MODEL (any format brindlex-render reads), or the built-in demo scene,
in a window, rendered block by block, and lets the mouse move the camera.

Mouse: left drag orbits, right or middle drag (or Shift + left) pans, the
wheel zooms.
Keys:  R ray tracing, T path tracing, P photon mapping on/off,
       H soft shadows on/off, F or Home zoom to fit,
       S save the picture (MODEL-001.png beside the model), Q or Esc quit.

Options: those of brindlex-render for the scene (--scene, --width,
--height, --antialias, --path-tracing, --eye, --target, --fov; -o names the
saved pictures, --passes the passes before --exit-after-frame), and:
      --screenshot FILE   save what the window shows (PNG) before leaving
      --exit-after-frame  leave after the first complete frame (with path
                          tracing: after --passes passes, default 1)
      --log FILE          write the engine's log and the timings; - for
                          standard error

Exit codes: 0 done, 1 screenshot not written, 2 bad input or no display.
)";
}

std::filesystem::path NextPictureName(const RenderSettings& settings) {
  const std::string& named = !settings.output.empty()  ? settings.output
                             : !settings.model.empty() ? settings.model
                                                       : settings.sceneFile;
  const std::filesystem::path base = std::filesystem::path(named.empty() ? "brindlex-demo" : named);
  for (unsigned number = 1;; ++number) {
    char suffix[16];
    std::snprintf(suffix, sizeof suffix, "-%03u.png", number);
    std::filesystem::path name = base.parent_path() / (base.stem().string() + suffix);
    // A folder that can't be read answers false here; saving there then
    // says what is wrong.
    std::error_code error;
    if (!std::filesystem::exists(name, error)) return name;
  }
}

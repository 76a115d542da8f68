// Scene files: the parser must turn any text into a scene or a one-line
// reason, and a scene it accepts must apply to a host scene.
#include <string>

#include "FuzzInput.h"
#include "HostScene.h"
#include "SceneFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  SceneDescription scene;
  std::string error;
  if (!ParseScene(text, std::filesystem::temp_directory_path(), scene, error)) {
    if (error.empty() || error.find('\n') != std::string::npos) __builtin_trap();
    return 0;
  }
  HostScene host;
  ApplyScene(scene, host, error);
  return 0;
}

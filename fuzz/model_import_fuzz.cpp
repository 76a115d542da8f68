// Model files through the program's own import, one format per run: the
// format is the file extension that BRINDLEX_FUZZ_FORMAT names ("obj",
// "gltf", "glb", "dae", "fbx", "3ds", "ply", "stl", "ifc"), as Assimp
// chooses its reader by extension first. The reader runs in this process,
// not in brindlex-render's watched child, so that its faults reach the
// fuzzer.
#include <cstdlib>
#include <string>

#include "FuzzInput.h"
#include "HostScene.h"
#include "ModelImport.h"

namespace {

const std::string& ModelFile() {
  static const std::string path = [] {
    const char* format = std::getenv("BRINDLEX_FUZZ_FORMAT");
    return fuzz::ScratchFile(std::string(".") + (format && *format ? format : "obj"));
  }();
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!fuzz::WriteScratch(ModelFile(), data, size)) return 0;
  HostScene host;
  ImportedModel imported;
  std::string error;
  ImportLimits limits;
  limits.inProcess = true;
  ImportModel(ModelFile(), ModelPlacement{}, host, imported, error, limits);
  return 0;
}

// Material-tree files: any text either reads into a tree that writes back
// to text which reads again to the same text, or leaves the node as it was.
#include <sstream>

#include "host/BrindlexViewModel.h"
#include "FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  MATERIAL_3D_NODE root(nullptr, ':');
  std::ostringstream before;
  root.WriteToFile(&before);
  if (!root.ReadFromFile(&in)) {
    std::ostringstream after;
    root.WriteToFile(&after);
    if (after.str() != before.str()) __builtin_trap();  // a failed read changed the node
    return 0;
  }
  std::ostringstream first;
  root.WriteToFile(&first);
  MATERIAL_3D_NODE copy(nullptr, ':');
  std::istringstream again(first.str());
  std::ostringstream second;
  if (!copy.ReadFromFile(&again) || !copy.WriteToFile(&second) || second.str() != first.str())
    __builtin_trap();
  return 0;
}

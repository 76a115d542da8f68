// Reconciling the texture table with the materials after a rebuild. A file
// already loaded under the same path is reused, a texture no material uses
// any more is freed, and its row waits, null, for the next load.
#include <strings.h>

#include <string>
#include <vector>

#include "host/BrindlexTexture.h"
#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "textures/SWTexture.h"
#include "host/brindlexutil.h"

namespace {
constexpr uint32_t NoRow = 0xFFFFFFFF;

// `folder` with the platform separator appended, by the host's own rule.
std::string WithSeparator(const std::string& folder) {
  std::vector<char> buffer(folder.begin(), folder.end());
  buffer.resize(folder.size() + 2, '\0');
  AppendBackSlash(buffer.data());
  return buffer.data();
}

std::string ComposePath(const std::string& root, const std::string& folder, const char* name) {
  return WithSeparator(WithSeparator(root) + folder) + name;
}

// Rows of `textures` in use during one reconciliation, and the cursor from
// which free slots are taken.
class TextureSlots {
 public:
  TextureSlots(std::vector<SWTexture*>& textures, std::vector<bool>& inUse)
      : textures(textures), inUse(inUse) {}

  // The first row from the cursor on that is not in use; the cursor stays
  // on it. Without one, a new null row at the end, marked in use.
  uint32_t TakeFree() {
    while (cursor < inUse.size() && inUse[cursor]) ++cursor;
    if (cursor == inUse.size()) {
      inUse.push_back(true);
      textures.push_back(nullptr);
    }
    return static_cast<uint32_t>(cursor);
  }
  void Mark(uint32_t row, bool used) { inUse[row] = used; }
  // Frees every row from the cursor on that no one uses.
  void FreeUnused() {
    for (size_t row = cursor; row < inUse.size(); ++row)
      if (!inUse[row]) {
        delete textures[row];
        textures[row] = nullptr;
      }
  }

 private:
  std::vector<SWTexture*>& textures;
  std::vector<bool>& inUse;
  size_t cursor = 0;
};
}  // namespace

void RT_RENDER_ENGINE::UpdateTextures(const MODE_RENDER_OPTIONS& options, bool& aborted) {
  char backgroundName[MODE_RENDER_OPTIONS::MaxPathLength] = {};
  options.GetBackgroundTexture(backgroundName, textureDirectory.c_str());
  const bool bump = options.DoBumpMapping();
  auto colorPath = [&](const TEXTURE_LINK& link) {
    return ComposePath(textureDirectory, colorMapFolder, link.GetTextureLinkFullFileName());
  };
  auto colorIndex = [&](const TEXTURE_LINK& link) -> std::map<std::string, uint32_t>& {
    return link.IsTransparent() ? transparentTextureIndex : opaqueTextureIndex;
  };

  // Which rows the materials still use.
  std::vector<bool> inUse;
  if (!textures.empty() && !aborted) inUse.assign(textures.size(), false);
  auto markFound = [&](const std::map<std::string, uint32_t>& index, const std::string& path) {
    auto at = index.find(path);
    if (at != index.end() && at->second < inUse.size()) inUse[at->second] = true;
  };
  for (const SWMaterialEntry& row : swMaterials) {
    if (aborted) break;
    const TEXTURE_LINK* link = row.material ? row.material->GetTextureLink() : nullptr;
    if (link) {
      const std::string path = colorPath(*link);
      markFound(colorIndex(*link), path);
      if (bump && link->GetReliefDepthLevel() > 0.0) markFound(normalMapTextureIndex, path);
    }
    aborted = ShouldAbort() || aborted;
  }

  // Forget the names of rows no one uses; an entry goes only if it points
  // at this very row.
  for (size_t row = 0; row < inUse.size() && !aborted; ++row) {
    if (!inUse[row] && textures[row]) {
      const std::string key = textures[row]->name;
      for (auto* index : {&opaqueTextureIndex, &transparentTextureIndex, &normalMapTextureIndex}) {
        auto at = index->find(key);
        if (at != index->end() && at->second == row) index->erase(at);
      }
    }
    aborted = ShouldAbort() || aborted;
  }

  TextureSlots slots(textures, inUse);
  if (!options.UseBackgroundTexture() || aborted) {
    backgroundTexture = NoRow;
  } else if (backgroundTexture < textures.size() && textures[backgroundTexture] &&
             strcasecmp(textures[backgroundTexture]->name.c_str(), backgroundName) == 0) {
    slots.Mark(backgroundTexture, true);
  } else {
    // A background that is missing or fails to load leaves no row: the old
    // row is not in use any more and may go to a material texture, so the
    // background shows its plain colour instead.
    backgroundTexture = NoRow;
    if (IsValidTextureFileName(backgroundName, nullptr, nullptr)) {
      const uint32_t slot = slots.TakeFree();
      const bool loaded = LoadSWTexture(slot, backgroundName, false, nullptr);
      slots.Mark(slot, loaded);
      if (loaded) backgroundTexture = slot;
    }
  }

  aborted = ShouldAbort() || aborted;
  for (SWMaterialEntry& row : swMaterials) {
    if (aborted) break;
    const TEXTURE_LINK* link = row.material ? row.material->GetTextureLink() : nullptr;
    if (!link) {
      aborted = ShouldAbort() || aborted;
      continue;
    }
    const char* fileName = link->GetTextureLinkFullFileName();
    const std::string path = colorPath(*link);
    row.textureIndex = NoRow;
    row.normalMapIndex = NoRow;

    std::map<std::string, uint32_t>& index = colorIndex(*link);
    auto found = index.find(path);
    if (found != index.end()) {
      row.textureIndex = found->second;
    } else if (IsValidTextureFileName(path.c_str(), nullptr, nullptr)) {
      const uint32_t slot = slots.TakeFree();
      bool loaded;
      if (link->IsTransparent()) {
        const std::string maskPath = ComposePath(textureDirectory, maskMapFolder, fileName);
        const bool maskUsable = IsValidTextureFileName(maskPath.c_str(), nullptr, nullptr);
        loaded = LoadSWTexture(slot, path.c_str(), true, maskUsable ? maskPath.c_str() : nullptr);
      } else {
        loaded = LoadSWTexture(slot, path.c_str(), false, nullptr);
      }
      slots.Mark(slot, loaded);
      if (loaded) {
        index[textures[slot]->name] = slot;
        row.textureIndex = slot;
      }
    }

    if (bump && link->GetReliefDepthLevel() > 0.0) {
      auto normal = normalMapTextureIndex.find(path);
      if (normal != normalMapTextureIndex.end()) {
        row.normalMapIndex = normal->second;
      } else {
        const std::string heightPath = ComposePath(textureDirectory, bumpMapFolder, fileName);
        const uint32_t slot = slots.TakeFree();
        const bool loaded = LoadSWNormalHeightMapTexture(slot, path.c_str(), heightPath.c_str());
        slots.Mark(slot, loaded);
        if (loaded) {
          normalMapTextureIndex[path] = slot;
          row.normalMapIndex = slot;
        }
      }
    }
    aborted = ShouldAbort() || aborted;
  }
  // After an abort the use map is incomplete and rows may still be named in
  // the index maps: freeing them would leave names that point at null rows.
  // What stays is freed by the next rebuild, which an abort always brings.
  if (!aborted) slots.FreeUnused();
}

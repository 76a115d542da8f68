// The text form of material trees, alone and as a project's sets. Each node is written as
//
//   node <tag> "<id>" <separator code>
//   <the node class's own data>
//   children <count>
//   <each child, the same way>
//
// Strings are quoted with backslash escapes, and floats carry enough digits
// to read back bit for bit.
#include "host/MaterialTree.h"
#include "host/ProjectModel.h"

#include <iomanip>
#include <istream>
#include <limits>
#include <memory>
#include <ostream>

// A saved tree deeper than this is taken as damaged: it bounds the
// recursion of the reader on hostile input.
static constexpr unsigned int MaxTreeDepth = 1000;

static bool ExpectWord(std::istream& in, const char* word) {
  std::string token;
  return static_cast<bool>(in >> token) && token == word;
}

bool STRING_TREE_NODE::WriteToFile(std::ostream* out) const {
  return out && WriteSubtree(*out);
}

bool STRING_TREE_NODE::WriteSubtree(std::ostream& out) const {
  out << "node " << GetTagType() << ' ' << std::quoted(nodeID) << ' '
      << static_cast<int>(static_cast<unsigned char>(separator)) << '\n';
  if (!WriteNodeData(out)) return false;
  out << "children " << children.size() << '\n';
  for (const STRING_TREE_NODE* child : children)
    if (!child->WriteSubtree(out)) return false;
  return static_cast<bool>(out);
}

bool STRING_TREE_NODE::ReadFromFile(std::istream* in) {
  if (!in) return false;
  // The tree is read into a scratch node first, so that a damaged file
  // leaves this one untouched.
  std::unique_ptr<STRING_TREE_NODE_INTERFACE> made(CreateNode(nullptr));
  auto* scratch = dynamic_cast<STRING_TREE_NODE*>(made.get());
  if (!scratch || !scratch->ReadSubtree(*in, 0)) return false;
  CopyNodeData(scratch);
  DeleteChildren();
  std::vector<STRING_TREE_NODE*> moved = scratch->children;
  for (STRING_TREE_NODE* child : moved) AddChildNode(child);
  return true;
}

bool STRING_TREE_NODE::ReadSubtree(std::istream& in, unsigned int depth) {
  int tag = 0, separatorCode = -1;
  std::string id;
  if (depth > MaxTreeDepth || !ExpectWord(in, "node")) return false;
  if (!(in >> tag >> std::quoted(id) >> separatorCode)) return false;
  if (tag != GetTagType() || separatorCode < 0 || separatorCode > 255) return false;
  nodeID = id;
  separator = static_cast<char>(separatorCode);
  unsigned int count = 0;
  if (!ReadNodeData(in) || !ExpectWord(in, "children") || !(in >> count)) return false;
  for (unsigned int i = 0; i < count; ++i) {
    // CreateNode links the child here, so this node owns it even when
    // reading it fails.
    auto* child = dynamic_cast<STRING_TREE_NODE*>(CreateNode(this));
    if (!child || child->parent != this || !child->ReadSubtree(in, depth + 1)) return false;
  }
  return true;
}

bool STRING_TREE_NODE::WriteNodeData(std::ostream&) const {
  return true;
}
bool STRING_TREE_NODE::ReadNodeData(std::istream&) {
  return true;
}

bool MATERIAL_3D_NODE::WriteNodeData(std::ostream& out) const {
  out << "material " << useDefault << ' ' << visible << ' ' << (textureLink != nullptr) << '\n';
  if (!textureLink) return static_cast<bool>(out);
  const TEXTURE_LINK& link = *textureLink;
  out << std::setprecision(std::numeric_limits<float>::max_digits10) << "link "
      << std::quoted(std::string(link.GetTextureLinkFullFileName())) << ' ' << link.GetColor() << ' '
      << link.OverrideTextureWithColor() << ' ' << link.GetTextureMappingType() << ' ' << link.IsScaled()
      << ' ' << link.IsTransparent() << ' ' << link.IsReflecting() << ' ' << link.GetOpacityLevel() << ' '
      << link.GetReflectivityLevel() << ' ' << link.GetAmbientLevel() << ' ' << link.GetDiffuseLevel() << ' '
      << link.GetSpecularLevel() << ' ' << link.GetEmissiveLevel() << ' ' << link.GetReliefDepthLevel()
      << '\n';
  return static_cast<bool>(out);
}

static bool ReadTextureLink(std::istream& in, TEXTURE_LINK& link) {
  std::string fileName;
  unsigned long color = 0;
  int mapping = 0;
  bool override = false, scaled = false, transparent = false, reflecting = false;
  float opacity, reflectivity, ambient, diffuse, specular, emissive, relief;
  if (!ExpectWord(in, "link") || !(in >> std::quoted(fileName) >> color >> override >> mapping >> scaled))
    return false;
  if (!(in >> transparent >> reflecting >> opacity >> reflectivity >> ambient >> diffuse >> specular >>
        emissive >> relief))
    return false;
  if (!link.SetTextureMappingType(mapping)) return false;
  link.SetTextureLinkFullFileName(fileName.c_str());
  link.SetColor(color);
  link.SetOverrideTextureWithColor(override);
  link.SetScaled(scaled);
  link.SetTransparent(transparent);
  link.SetReflecting(reflecting);
  link.SetOpacityLevel(opacity);
  link.SetReflectivityLevel(reflectivity);
  link.SetAmbientLevel(ambient);
  link.SetDiffuseLevel(diffuse);
  link.SetSpecularLevel(specular);
  link.SetEmissiveLevel(emissive);
  link.SetReliefDepthLevel(relief);
  return true;
}

bool MATERIAL_3D_NODE::ReadNodeData(std::istream& in) {
  bool readDefault = false, readVisible = false, hasLink = false;
  if (!ExpectWord(in, "material") || !(in >> readDefault >> readVisible >> hasLink)) return false;
  std::unique_ptr<TEXTURE_LINK> link;
  if (hasLink) {
    link = std::make_unique<TEXTURE_LINK>();
    if (!ReadTextureLink(in, *link)) return false;
  }
  useDefault = readDefault;
  visible = readVisible;
  textureLink = std::move(link);
  return true;
}

// The saved form of the materials:
//
//   roots <count>
//   root <key> <tree>...
//   viewsets <count>
//   viewset <set> roots <count> root <key> <tree>...

static bool WriteRoots(std::ostream& out,
                       const std::map<unsigned int, std::unique_ptr<MATERIAL_3D_NODE>>& roots) {
  out << "roots " << roots.size() << '\n';
  for (const auto& [key, root] : roots) {
    out << "root " << key << '\n';
    if (!root->WriteToFile(&out)) return false;
  }
  return static_cast<bool>(out);
}

static bool ReadRoots(std::istream& in, std::map<unsigned int, std::unique_ptr<MATERIAL_3D_NODE>>& roots) {
  size_t count = 0;
  if (!ExpectWord(in, "roots") || !(in >> count)) return false;
  for (size_t i = 0; i < count; ++i) {
    unsigned int key = 0;
    auto root = std::make_unique<MATERIAL_3D_NODE>(nullptr, ':');
    if (!ExpectWord(in, "root") || !(in >> key) || !root->ReadFromFile(&in)) return false;
    roots[key] = std::move(root);
  }
  return true;
}

bool ENVIRONMENT_3D_PROJECT::SaveMaterials(std::ostream* out) const {
  if (!out || !WriteRoots(*out, projectRoots)) return false;
  *out << "viewsets " << viewRoots.size() << '\n';
  for (const auto& [set, roots] : viewRoots) {
    *out << "viewset " << set << '\n';
    if (!WriteRoots(*out, roots)) return false;
  }
  return static_cast<bool>(*out);
}

bool ENVIRONMENT_3D_PROJECT::LoadMaterials(std::istream* in) {
  if (!in || AreMaterialRootsLent()) return false;
  OwnedRoots readProject;
  std::map<unsigned int, OwnedRoots> readViews;
  size_t setCount = 0;
  if (!ReadRoots(*in, readProject) || !ExpectWord(*in, "viewsets") || !(*in >> setCount)) return false;
  for (size_t i = 0; i < setCount; ++i) {
    unsigned int set = 0;
    if (!ExpectWord(*in, "viewset") || !(*in >> set) || !ReadRoots(*in, readViews[set])) return false;
  }
  projectRoots = std::move(readProject);
  viewRoots = std::move(readViews);
  return true;
}

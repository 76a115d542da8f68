#include "host/MaterialTree.h"

MATERIAL_3D_NODE::MATERIAL_3D_NODE(STRING_TREE_NODE_INTERFACE* parent, char separator)
    : STRING_TREE_NODE(parent, separator), useDefault(GetParentNode() != nullptr) {}

MATERIAL_3D_NODE::MATERIAL_3D_NODE(const MATERIAL_3D_NODE& other)
    : STRING_TREE_NODE(nullptr, other.GetSeparator()), useDefault(false) {
  CopySubtree(other);
}

MATERIAL_3D_NODE::~MATERIAL_3D_NODE() = default;

MATERIAL_3D_NODE& MATERIAL_3D_NODE::operator=(const MATERIAL_3D_NODE& other) {
  CopySubtree(other);
  return *this;
}

STRING_TREE_NODE_INTERFACE* MATERIAL_3D_NODE::CreateNode(STRING_TREE_NODE_INTERFACE* parent) const {
  return new MATERIAL_3D_NODE(parent, GetSeparator());
}

bool MATERIAL_3D_NODE::IsValidCast(const int& tagType) const {
  return tagType == Material3DNodeTag || STRING_TREE_NODE::IsValidCast(tagType);
}

bool MATERIAL_3D_NODE::CopyNodeData(const STRING_TREE_NODE_INTERFACE* from) {
  auto* source = dynamic_cast<const MATERIAL_3D_NODE*>(from);
  if (!source) return false;
  if (source == this) return true;
  STRING_TREE_NODE::CopyNodeData(source);
  useDefault = source->useDefault;
  visible = source->visible;
  textureLink = source->textureLink ? std::make_unique<TEXTURE_LINK>(*source->textureLink) : nullptr;
  return true;
}

void MATERIAL_3D_NODE::SetShouldThisNodeUseDefault(bool useDefault, bool includeChildren) {
  this->useDefault = useDefault;
  if (!includeChildren) return;
  for (unsigned int i = 0; i < GetNumberOfChildNodes(); ++i)
    if (auto* child = dynamic_cast<MATERIAL_3D_NODE*>(GetChildNode(i)))
      child->SetShouldThisNodeUseDefault(useDefault, true);
}

void MATERIAL_3D_NODE::SetTextureLink(const TEXTURE_LINK* link) {
  textureLink = link ? std::make_unique<TEXTURE_LINK>(*link) : nullptr;
  if (link) useDefault = false;
}

const MATERIAL_3D_NODE* MATERIAL_3D_NODE::MaterialParent() const {
  return dynamic_cast<const MATERIAL_3D_NODE*>(GetParentNode());
}

const MATERIAL_3D_NODE* MATERIAL_3D_NODE::GetNodeThatControlsMaterial(const char* id) const {
  if (!id) return nullptr;
  auto* node = dynamic_cast<const MATERIAL_3D_NODE*>(FindNodeByPath(id));
  while (node && node->useDefault && node->MaterialParent()) node = node->MaterialParent();
  return node;
}

unsigned short MATERIAL_3D_NODE::IsVisible() const {
  for (const MATERIAL_3D_NODE* node = this; node; node = node->MaterialParent())
    if (!node->visible) return 0;
  return 1;
}

#include "host/MaterialTree.h"

#include <algorithm>

STRING_TREE_NODE::STRING_TREE_NODE(STRING_TREE_NODE_INTERFACE* parent, char separator)
    : separator(separator) {
  if (auto* owner = dynamic_cast<STRING_TREE_NODE*>(parent)) owner->AddChildNode(this);
}

STRING_TREE_NODE::~STRING_TREE_NODE() {
  DeleteChildren();
  Unlink();
}

void STRING_TREE_NODE::Unlink() {
  if (!parent) return;
  auto& siblings = parent->children;
  siblings.erase(std::remove(siblings.begin(), siblings.end(), this), siblings.end());
  parent = nullptr;
}

void STRING_TREE_NODE::DeleteChildren() {
  // Children are unlinked first so that their destructors leave the vector
  // alone while it is being walked.
  std::vector<STRING_TREE_NODE*> doomed;
  doomed.swap(children);
  for (STRING_TREE_NODE* child : doomed) {
    child->parent = nullptr;
    delete child;
  }
}

STRING_TREE_NODE_INTERFACE* STRING_TREE_NODE::GetParentNode() const {
  return parent;
}

STRING_TREE_NODE_INTERFACE* STRING_TREE_NODE::CreateNode(STRING_TREE_NODE_INTERFACE* parent) const {
  return new STRING_TREE_NODE(parent, separator);
}

STRING_TREE_NODE_INTERFACE* STRING_TREE_NODE::DuplicateNode() const {
  auto* copy = dynamic_cast<STRING_TREE_NODE*>(CreateNode(nullptr));
  if (copy) copy->CopySubtree(*this);
  return copy;
}

bool STRING_TREE_NODE::CopyNodeData(const STRING_TREE_NODE_INTERFACE* from) {
  auto* source = dynamic_cast<const STRING_TREE_NODE*>(from);
  if (!source) return false;
  nodeID = source->nodeID;
  separator = source->separator;
  return true;
}

void STRING_TREE_NODE::OnAddNode() {
  // One tree, one separator: otherwise the same path would name different
  // nodes depending on where the lookup starts.
  if (parent) separator = parent->separator;
}

void STRING_TREE_NODE::SetThisNodesID(const char* id) {
  nodeID = id ? id : "";
}

std::string STRING_TREE_NODE::GetFullID() const {
  std::string id = nodeID;
  for (const STRING_TREE_NODE* node = parent; node; node = node->parent) id = node->nodeID + separator + id;
  return id;
}

STRING_TREE_NODE* STRING_TREE_NODE::GetChildNode(unsigned int index) const {
  return index < children.size() ? children[index] : nullptr;
}

STRING_TREE_NODE* STRING_TREE_NODE::FindChildNode(std::string_view id) const {
  for (STRING_TREE_NODE* child : children)
    if (child->nodeID == id) return child;
  return nullptr;
}

// Walks `path` down from `start`, one id at a time.
static const STRING_TREE_NODE* WalkPath(const STRING_TREE_NODE* start, std::string_view path) {
  const STRING_TREE_NODE* node = start;
  while (node && !path.empty()) {
    size_t end = path.find(start->GetSeparator());
    node = node->FindChildNode(path.substr(0, end));
    path = end == std::string_view::npos ? std::string_view() : path.substr(end + 1);
  }
  return node;
}

const STRING_TREE_NODE* STRING_TREE_NODE::FindNodeByPath(std::string_view path) const {
  if (path.empty()) return nullptr;
  if (const STRING_TREE_NODE* found = WalkPath(this, path)) return found;
  if (path == nodeID) return this;
  if (path.size() > nodeID.size() && path.starts_with(nodeID) && path[nodeID.size()] == separator)
    return WalkPath(this, path.substr(nodeID.size() + 1));
  return nullptr;
}

bool STRING_TREE_NODE::IsAncestorOf(const STRING_TREE_NODE* node) const {
  for (const STRING_TREE_NODE* up = node ? node->parent : nullptr; up; up = up->parent)
    if (up == this) return true;
  return false;
}

bool STRING_TREE_NODE::AddChildNode(STRING_TREE_NODE* child) {
  if (!child || child == this || child->IsAncestorOf(this)) return false;
  child->Unlink();
  child->parent = this;
  children.push_back(child);
  child->OnAddNode();
  return true;
}

bool STRING_TREE_NODE::DeleteChildNode(STRING_TREE_NODE* child) {
  if (!child || child->parent != this) return false;
  delete child;
  return true;
}

void STRING_TREE_NODE::CopySubtree(const STRING_TREE_NODE& from) {
  if (&from == this) return;
  // Copies are made before anything of this node changes, because `from`
  // may be one of the nodes about to be replaced.
  std::vector<STRING_TREE_NODE*> copies;
  for (const STRING_TREE_NODE* child : from.children)
    if (auto* copy = dynamic_cast<STRING_TREE_NODE*>(child->DuplicateNode())) copies.push_back(copy);
  CopyNodeData(&from);
  DeleteChildren();
  for (STRING_TREE_NODE* copy : copies) AddChildNode(copy);
}

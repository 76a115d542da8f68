// Material trees: named nodes in a tree, where a material id is the path of
// node ids from a root. A node either defines its own surface settings or
// uses the default, that is the material of the nearest ancestor that
// defines one, so whole groups of materials can be styled at once.
#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/TextureLink.h"

// Type tags of the tree's node classes, for GetTagType and IsValidCast.
enum STRING_TREE_TAG_TYPE : int {
  StringTreeNodeTag = 1,
  Material3DNodeTag = 2,
};

class STRING_TREE_NODE_INTERFACE {
 public:
  virtual ~STRING_TREE_NODE_INTERFACE() = default;
  virtual STRING_TREE_NODE_INTERFACE* GetParentNode() const = 0;
  // A new, empty node of the same class as this one, linked under `parent`
  // (which may be null).
  virtual STRING_TREE_NODE_INTERFACE* CreateNode(STRING_TREE_NODE_INTERFACE* parent) const = 0;
  // A deep copy of this node and everything below it, as a new root.
  virtual STRING_TREE_NODE_INTERFACE* DuplicateNode() const = 0;
  // Copies this node's own data (not its children) from a node of a
  // compatible class; false, with nothing changed, otherwise.
  virtual bool CopyNodeData(const STRING_TREE_NODE_INTERFACE* from) = 0;
  virtual int GetTagType() const = 0;
  // True if this node may be used as the class that has `tagType`.
  virtual bool IsValidCast(const int& tagType) const = 0;
  // Writes this node and its subtree as text; false on a null or failed
  // stream.
  virtual bool WriteToFile(std::ostream* out) const = 0;
  // Replaces this node's data and subtree by what WriteToFile wrote. On any
  // error the node is left as it was and the result is false.
  virtual bool ReadFromFile(std::istream* in) = 0;
  // Called on a node right after it was linked under a parent.
  virtual void OnAddNode() = 0;
};

class STRING_TREE_NODE : public STRING_TREE_NODE_INTERFACE {
 public:
  // `separator` joins node ids into paths. The node is linked under `parent`
  // if that is a STRING_TREE_NODE; the parent then owns it.
  STRING_TREE_NODE(STRING_TREE_NODE_INTERFACE* parent, char separator);
  STRING_TREE_NODE(const STRING_TREE_NODE&) = delete;
  STRING_TREE_NODE& operator=(const STRING_TREE_NODE&) = delete;
  // Deletes the subtree and unlinks the node from its parent.
  ~STRING_TREE_NODE() override;

  STRING_TREE_NODE_INTERFACE* GetParentNode() const override;
  STRING_TREE_NODE_INTERFACE* CreateNode(STRING_TREE_NODE_INTERFACE* parent) const override;
  STRING_TREE_NODE_INTERFACE* DuplicateNode() const override;
  bool CopyNodeData(const STRING_TREE_NODE_INTERFACE* from) override;
  int GetTagType() const override { return StringTreeNodeTag; }
  bool IsValidCast(const int& tagType) const override { return tagType == StringTreeNodeTag; }
  bool WriteToFile(std::ostream* out) const override;
  bool ReadFromFile(std::istream* in) override;
  void OnAddNode() override;

  // Null is taken as the empty id.
  void SetThisNodesID(const char* id);
  const char* GetThisNodesID() const { return nodeID.c_str(); }
  char GetSeparator() const { return separator; }
  // The ids from the root down to this node, joined by the separator.
  std::string GetFullID() const;

  unsigned int GetNumberOfChildNodes() const { return static_cast<unsigned int>(children.size()); }
  // Null when `index` is out of range.
  STRING_TREE_NODE* GetChildNode(unsigned int index) const;
  // The direct child with this id, or null.
  STRING_TREE_NODE* FindChildNode(std::string_view id) const;
  // The node a path of ids names, relative to this node: "Walls:Brick" is
  // the child Brick of the child Walls. A path may also start with this
  // node's own id, so a full id taken from the root resolves as well, and
  // this node's id alone names this node. Null when nothing matches.
  const STRING_TREE_NODE* FindNodeByPath(std::string_view path) const;

  // Moves `child` (with its subtree) from wherever it was to the end of this
  // node's children. False for null, for this node itself and for an
  // ancestor of it, which would make a cycle.
  bool AddChildNode(STRING_TREE_NODE* child);
  // Deletes a direct child and its subtree; false if it is not one.
  bool DeleteChildNode(STRING_TREE_NODE* child);
  bool IsAncestorOf(const STRING_TREE_NODE* node) const;

 protected:
  // The node-class specific part of a saved node, between its id and its
  // children.
  virtual bool WriteNodeData(std::ostream& out) const;
  virtual bool ReadNodeData(std::istream& in);
  // Makes this subtree a copy of `from`'s: its data and copies of all its
  // children. Safe when `from` lies inside or above this node.
  void CopySubtree(const STRING_TREE_NODE& from);

 private:
  void Unlink();
  void DeleteChildren();
  bool WriteSubtree(std::ostream& out) const;
  bool ReadSubtree(std::istream& in, unsigned int depth);

  STRING_TREE_NODE* parent = nullptr;
  std::vector<STRING_TREE_NODE*> children;  // owned
  std::string nodeID;
  char separator;
};

class MATERIAL_3D_NODE : public STRING_TREE_NODE {
 public:
  MATERIAL_3D_NODE(STRING_TREE_NODE_INTERFACE* parent, char separator);
  // A copy of `other`'s whole subtree, as a new root.
  MATERIAL_3D_NODE(const MATERIAL_3D_NODE& other);
  ~MATERIAL_3D_NODE() override;
  // Makes this node's subtree a deep copy of `other`'s: its id, settings and
  // all its descendants. This node keeps its own parent. The copy shares
  // nothing with `other`.
  MATERIAL_3D_NODE& operator=(const MATERIAL_3D_NODE& other);

  STRING_TREE_NODE_INTERFACE* CreateNode(STRING_TREE_NODE_INTERFACE* parent) const override;
  bool CopyNodeData(const STRING_TREE_NODE_INTERFACE* from) override;
  int GetTagType() const override { return Material3DNodeTag; }
  bool IsValidCast(const int& tagType) const override;

  // With `useDefault` the node takes its material from the nearest ancestor
  // that defines one; with `includeChildren` the whole subtree is set alike.
  void SetShouldThisNodeUseDefault(bool useDefault, bool includeChildren);
  bool ShouldThisNodeUseDefault() const { return useDefault; }

  // Resolves a material id (a path as FindNodeByPath takes it) to the node
  // whose settings apply: the node with that id if it defines its material,
  // otherwise its nearest ancestor that does. A root always counts as
  // defining, since there is nothing above it to take a default from. Null
  // when no node has the id.
  const MATERIAL_3D_NODE* GetNodeThatControlsMaterial(const char* id) const;

  // Null when the node has no settings of its own.
  const TEXTURE_LINK* GetTextureLink() const { return textureLink.get(); }
  TEXTURE_LINK* GetTextureLink() { return textureLink.get(); }
  // Gives the node a copy of `link` as its own settings and makes it define
  // its material, since settings that nothing uses would be a surprise; null
  // removes the settings.
  void SetTextureLink(const TEXTURE_LINK* link);

  // Non-zero when this node and every ancestor material are visible, so
  // hiding a group hides everything in it.
  unsigned short IsVisible() const;
  void SetVisible(bool visible) { this->visible = visible; }

 protected:
  bool WriteNodeData(std::ostream& out) const override;
  bool ReadNodeData(std::istream& in) override;

 private:
  const MATERIAL_3D_NODE* MaterialParent() const;

  // A child starts by using its parent's material; a root defines its own.
  bool useDefault;
  bool visible = true;
  std::unique_ptr<TEXTURE_LINK> textureLink;
};

// What the agent watches, and on what machine: a tree for kest-agent --inventory.
#pragma once

#include <support/tree_node.h>

#include <string>

#include "settings.h"

namespace agent {

class InventoryNode : public KestSupport::KestTreeNode {
  public:
    explicit InventoryNode(std::string value) : m_value(std::move(value)) {}

    const std::string& value() const { return m_value; }

  private:
    std::string m_value;
};

/// The tree below the host's name, which is the root's key.
KestSupport::KestSmartPointer<KestSupport::KestTreeNode> takeInventory(const Settings& settings);

/// One line for each node, in the order of their keys, indented by level.
std::string inventoryText(KestSupport::KestTreeNode& root);

}  // namespace agent

// The tree that kest-agent --inventory prints: this machine, and what the agent watches.
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

/// Returns the tree. The key of the root is the host name.
KestSupport::KestSmartPointer<KestSupport::KestTreeNode> takeInventory(const Settings& settings);

/// Returns one line for each node, sorted by key and indented by level.
std::string inventoryText(KestSupport::KestTreeNode& root);

}  // namespace agent

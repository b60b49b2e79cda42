#include "inventory.h"

#include <support/exceptions.h>

#include <vector>

#include "agent_log.h"
#include "bad_input.h"
#include "machine_figures.h"
#include "messages.h"

namespace agent {
namespace {

using KestSupport::KestSmartPointer;
using KestSupport::KestTreeNode;
using Node = KestSmartPointer<KestTreeNode>;

// Missing levels of the path are created as plain nodes.
void put(KestTreeNode& root, std::vector<std::string> path, const std::string& value) {
    root.add(Node(new InventoryNode(value)), path);
}

std::string textOr(const std::string& text) {
    return text.empty() ? say("inventory.unknown") : text;
}

Node childAt(KestTreeNode& node, int index) {
    try {
        return node[index];
    } catch (const KestSupport::KestNoSuchElementException&) {
        return Node();
    }
}

void append(std::string& text, KestTreeNode& node, std::size_t level) {
    const auto* const entry = dynamic_cast<const InventoryNode*>(&node);
    text += std::string(2 * level, ' ') + printable(node.getKey()) +
            (entry != nullptr ? ": " + printable(entry->value()) : "") + "\n";
    for (int i = 0;; ++i) {
        const Node child = childAt(node, i);
        if (child.isNull()) return;
        append(text, *child, level + 1);
    }
}

}  // namespace

Node takeInventory(const Settings& settings) {
    Node root(new KestTreeNode(textOr(settings.hostName)));
    const std::string agent = say("inventory.agent");
    put(*root, {agent, say("inventory.version")}, kVersion);
    put(*root, {agent, say("inventory.language")}, spokenLocale());
    put(*root, {agent, say("inventory.interval")}, std::to_string(settings.interval));

    const std::string system = say("inventory.system");
    const auto memory = MachineFigures::memoryMebibytes();
    put(*root, {system, say("inventory.kernel")}, textOr(MachineFigures::kernel()));
    put(*root, {system, say("inventory.processors")}, std::to_string(MachineFigures::processors()));
    put(*root, {system, say("inventory.memory")}, textOr(memory ? figureText(*memory) : ""));

    const std::string limits = say("inventory.limits");
    if (MachineFigures::hasLoadAverage()) put(*root, {limits, say("figure.cpu")}, figureText(settings.cpuLimit));
    put(*root, {limits, say("figure.memory")}, figureText(settings.memoryLimit));
    put(*root, {limits, say("figure.process")}, figureText(settings.processLimit));
    for (const std::string& path : settings.diskPaths)
        put(*root, {limits, say("figure.disk", {path})}, figureText(settings.diskLimit));
    return root;
}

std::string inventoryText(KestTreeNode& root) {
    std::string text;
    append(text, root, 0);
    return text;
}

}  // namespace agent

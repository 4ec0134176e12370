#include <string>

#include "cli/render.hpp"
#include "cli/values.hpp"

namespace arbolin::cli {

namespace {

std::string dotText(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        if (c == '\n') {
            out += "\\n";
            continue;
        }
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

}  // namespace

void renderDot(std::ostream& out, const Model& model, const TreeView& tree) {
    out << "digraph tree {\n"
        << "  node [shape=box, style=rounded, fontname=\"Helvetica\"];\n"
        << "  edge [fontname=\"Helvetica\"];\n";
    for (std::uint64_t i = 0; i < tree.nodes.size(); ++i) {
        const TreeNode& node = tree.nodes[i];
        std::string label = "node " + std::to_string(i + 1) + "\n" + nodeSummary(model, tree, node);
        out << "  n" << i + 1 << " [label=" << dotText(label)
            << (node.branch() ? "" : ", style=\"rounded,filled\", fillcolor=\"#eeeeee\"") << "];\n";
    }
    for (std::uint64_t i = 0; i < tree.nodes.size(); ++i) {
        const TreeNode& node = tree.nodes[i];
        if (!node.branch()) continue;
        out << "  n" << i + 1 << " -> n" << node.left + 1
            << " [label=" << dotText(splitRule(model, tree, node, true)) << "];\n";
        out << "  n" << i + 1 << " -> n" << node.right + 1
            << " [label=" << dotText(splitRule(model, tree, node, false)) << "];\n";
    }
    out << "}\n";
}

}  // namespace arbolin::cli

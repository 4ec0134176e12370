#include <string>
#include <utility>
#include <vector>

#include "cli/render.hpp"

namespace arbolin::cli {

namespace {

void missingNote(std::ostream& out, const Model& model, const TreeView& tree,
                 const TreeNode& node, const std::string& indent) {
    const std::string& name = model.predictors[static_cast<std::size_t>(node.split)].name;
    if (!node.surrogates.empty()) {
        // The first surrogate in which a row has a value decides.
        out << indent << "    (missing " << name << ": left if ";
        for (std::size_t k = 0; k < node.surrogates.size(); ++k) {
            out << (k == 0 ? "" : "; failing that, ") << surrogateRule(model, tree, node.surrogates[k]);
        }
        out << ")\n";
    } else if (node.unrouted) {
        out << indent << "    (rows missing " << name << " stop here)\n";
    }
}

}  // namespace

void renderText(std::ostream& out, const Model& model, const TreeView& tree) {
    // Depth first, left before right, without recursion: trees can be deep.
    struct Visit {
        std::uint64_t node;
        std::uint64_t depth;
        std::string rule;
    };
    std::vector<Visit> stack{{0, 0, "root"}};
    while (!stack.empty()) {
        Visit v = std::move(stack.back());
        stack.pop_back();
        const TreeNode& node = tree.nodes[v.node];
        const std::string indent(2 * v.depth, ' ');
        out << indent << v.node + 1 << ") " << v.rule << "  " << nodeSummary(model, tree, node)
            << (node.branch() ? "" : " *") << '\n';
        if (!node.branch()) continue;
        missingNote(out, model, tree, node, indent);
        stack.push_back({node.right, v.depth + 1, splitRule(model, tree, node, false)});
        stack.push_back({node.left, v.depth + 1, splitRule(model, tree, node, true)});
    }
}

}  // namespace arbolin::cli

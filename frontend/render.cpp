#include "frontend/render.hpp"

#include <cmath>
#include <string>
#include <utility>
#include <vector>

namespace arbolin::frontend {

namespace {

std::string cutText(const TreeView& tree, double cut) {
    // Ten digits drop the noise of a midpoint (3.5700000000000003) and keep
    // every cut that data written with fewer digits can have.
    return tree.singleCuts ? formatFloat(static_cast<float>(cut)) : formatShort(cut, 10);
}

std::string levelSet(const Predictor& p, const std::vector<double>& codes) {
    std::string text = "{";
    for (std::size_t i = 0; i < codes.size(); ++i) {
        text += (i == 0 ? "" : ", ") + p.levels.label(codes[i]);
    }
    return text + "}";
}

// "petal_length < 2.45", "colour in {red, blue}": what sends a row from
// `node` to its left (or right) child.
std::string splitRule(const Model& model, const TreeView& tree, const TreeNode& node, bool left) {
    const Predictor& p = model.predictors[static_cast<std::size_t>(node.split)];
    if (std::isnan(node.cut)) {
        return p.name + " in " + levelSet(p, left ? node.leftLevels : node.rightLevels);
    }
    return p.name + (left ? " < " : " >= ") + cutText(tree, node.cut);
}

// The rule of a surrogate that sends a row left.
std::string surrogateRule(const Model& model, const TreeView& tree, const Surrogate& s) {
    const Predictor& p = model.predictors[s.predictor];
    if (std::isnan(s.cut)) return p.name + " in " + levelSet(p, s.left);
    return p.name + (s.direction < 0 ? " >= " : " < ") + cutText(tree, s.cut);
}

// The node's prediction, size and class shares.
std::string nodeSummary(const Model& model, const TreeView& tree, const TreeNode& node) {
    std::string text = "n=" + formatShort(node.size, 15) + "  ";
    if (!model.classification) return text + "mean " + formatShort(node.value);
    text += model.classes.label(node.value) + "  (";
    for (std::size_t k = 0; k < node.classProb.size(); ++k) {
        const double share =
            tree.singleWeights ? static_cast<float>(node.classProb[k]) : node.classProb[k];
        text += (k == 0 ? "" : ", ") + model.classes.labels()[k] + " " + formatShort(share, 3);
    }
    return text + ")";
}

// ------------------------------------------------------------ text

void missingNote(std::ostream& out, const Model& model, const TreeView& tree, const TreeNode& node,
                 const std::string& indent) {
    const std::string& name = model.predictors[static_cast<std::size_t>(node.split)].name;
    if (!node.surrogates.empty()) {
        // The first surrogate in which a row has a value decides.
        out << indent << "    (missing " << name << ": left if ";
        for (std::size_t k = 0; k < node.surrogates.size(); ++k) {
            out << (k == 0 ? "" : "; failing that, ")
                << surrogateRule(model, tree, node.surrogates[k]);
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

// ------------------------------------------------------------ Graphviz

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

}  // namespace arbolin::frontend

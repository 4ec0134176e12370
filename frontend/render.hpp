// A tree as people read it: indented rules, Graphviz, or a drawing in SVG.
// Both front ends print trees through these, so that `arbolin show` and the
// Python package's export_text, export_graphviz and plot_tree agree.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "frontend/model.hpp"

namespace arbolin::frontend {

void renderText(std::ostream& out, const Model& model, const TreeView& tree);
void renderDot(std::ostream& out, const Model& model, const TreeView& tree);

// A node's box in a drawing: leaves side by side in order, one slot each,
// a branch centred over its children, one level a split.
struct NodeBox {
    double slot = 0;
    std::uint64_t depth = 0;
    std::vector<std::string> lines;  // node number, split, size, prediction
    bool leaf = true;
    std::uint64_t left = 0, right = 0;  // 0-based children of a branch
};
std::vector<NodeBox> layoutTree(const Model& model, const TreeView& tree);

// The tree drawn in SVG: a labelled box a node, "yes" to the left child
// (the rule holds), "no" to the right.
void renderSvg(std::ostream& out, const Model& model, const TreeView& tree);

// Cross-validated risk (with one standard error either side) and training
// risk against the number of leaves, the chosen subtree marked.
void renderPruningSvg(std::ostream& out, const PruningRecord& record);

}  // namespace arbolin::frontend

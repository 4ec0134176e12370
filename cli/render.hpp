// A tree as people read it: indented rules, or Graphviz.
#pragma once

#include <ostream>
#include <string>

#include "frontend/model.hpp"

namespace arbolin::cli {

using frontend::Model;
using frontend::Surrogate;
using frontend::TreeNode;
using frontend::TreeView;

// "petal_length < 2.45", "colour in {red, blue}": what sends a row from
// `node` to its left (or right) child.
std::string splitRule(const Model& model, const TreeView& tree, const TreeNode& node, bool left);

// The rule of a surrogate that sends a row left.
std::string surrogateRule(const Model& model, const TreeView& tree, const Surrogate& s);

// The node's prediction, size and class shares.
std::string nodeSummary(const Model& model, const TreeView& tree, const TreeNode& node);

void renderText(std::ostream& out, const Model& model, const TreeView& tree);
void renderDot(std::ostream& out, const Model& model, const TreeView& tree);

}  // namespace arbolin::cli

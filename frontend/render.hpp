// A tree as people read it: indented rules, or Graphviz. Both front ends
// print trees through these, so that `arbolin show` and the Python
// package's export_text and export_graphviz write the same text.
#pragma once

#include <ostream>

#include "frontend/model.hpp"

namespace arbolin::frontend {

void renderText(std::ostream& out, const Model& model, const TreeView& tree);
void renderDot(std::ostream& out, const Model& model, const TreeView& tree);

}  // namespace arbolin::frontend

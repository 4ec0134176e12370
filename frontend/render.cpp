#include "frontend/render.hpp"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "frontend/pruning.hpp"

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

// ------------------------------------------------------------ SVG

namespace {

std::string xmlText(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            default: out += c;
        }
    }
    return out;
}

// The node's prediction in a few words.
std::string prediction(const Model& model, const TreeView& tree, const TreeNode& node) {
    if (!model.classification) return "mean " + formatShort(node.value, 4);
    const auto k = static_cast<std::size_t>(node.value);
    const double share = tree.singleWeights ? static_cast<float>(node.classProb[k])
                                            : node.classProb[k];
    return model.classes.label(node.value) + " (" + formatShort(share, 3) + ")";
}

constexpr double kSlot = 150, kLevel = 95, kBoxWidth = 140, kLineHeight = 14, kMargin = 20;

}  // namespace

std::vector<NodeBox> layoutTree(const Model& model, const TreeView& tree) {
    const std::uint64_t n = tree.nodes.size();
    std::vector<NodeBox> boxes(n);
    for (std::uint64_t i = 0; i < n; ++i) {
        const TreeNode& node = tree.nodes[i];
        NodeBox& box = boxes[i];
        box.leaf = !node.branch();
        box.left = node.left;
        box.right = node.right;
        box.lines = {"node " + std::to_string(i + 1),
                     box.leaf ? std::string("leaf") : splitRule(model, tree, node, true),
                     "n=" + formatShort(node.size, 15), prediction(model, tree, node)};
        if (!box.leaf) {
            boxes[node.left].depth = boxes[node.right].depth = box.depth + 1;
        }
    }
    // Leaves take slots left to right, depth first; children come after
    // their parent, so a backward pass centres each branch over them.
    std::vector<std::uint64_t> stack{0};
    double next = 0;
    while (!stack.empty()) {
        const std::uint64_t i = stack.back();
        stack.pop_back();
        if (boxes[i].leaf) {
            boxes[i].slot = next++;
        } else {
            stack.push_back(boxes[i].right);
            stack.push_back(boxes[i].left);
        }
    }
    for (std::uint64_t i = n; i-- > 0;) {
        if (!boxes[i].leaf) boxes[i].slot = (boxes[boxes[i].left].slot + boxes[boxes[i].right].slot) / 2;
    }
    return boxes;
}

void renderSvg(std::ostream& out, const Model& model, const TreeView& tree) {
    const std::vector<NodeBox> boxes = layoutTree(model, tree);
    double slots = 0;
    std::uint64_t depth = 0;
    for (const NodeBox& b : boxes) {
        slots = std::max(slots, b.slot + 1);
        depth = std::max(depth, b.depth);
    }
    const double boxHeight = kLineHeight * 4 + 8;
    const double width = slots * kSlot + 2 * kMargin;
    const double height = double(depth) * kLevel + boxHeight + 2 * kMargin;
    const auto x = [&](const NodeBox& b) { return kMargin + b.slot * kSlot + kSlot / 2; };
    const auto y = [&](const NodeBox& b) { return kMargin + double(b.depth) * kLevel; };
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << width << "\" height=\""
        << height << "\" viewBox=\"0 0 " << width << ' ' << height
        << "\" font-family=\"Helvetica, Arial, sans-serif\" font-size=\"11\">\n"
        << "<title>" << xmlText((model.classification ? "Classification tree for "
                                                      : "Regression tree for ") +
                                model.response)
        << "</title>\n";
    for (const NodeBox& b : boxes) {
        if (b.leaf) continue;
        for (const std::uint64_t child : {b.left, b.right}) {
            const NodeBox& c = boxes[child];
            const double x1 = x(b), y1 = y(b) + boxHeight, x2 = x(c), y2 = y(c);
            out << "<line x1=\"" << x1 << "\" y1=\"" << y1 << "\" x2=\"" << x2 << "\" y2=\"" << y2
                << "\" stroke=\"#777\"/>\n"
                << "<text x=\"" << (x1 + x2) / 2 << "\" y=\"" << (y1 + y2) / 2
                << "\" text-anchor=\"middle\" fill=\"#555\">" << (child == b.left ? "yes" : "no")
                << "</text>\n";
        }
    }
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        const NodeBox& b = boxes[i];
        out << "<g class=\"node\" id=\"node" << i + 1 << "\">\n"
            << "<rect x=\"" << x(b) - kBoxWidth / 2 << "\" y=\"" << y(b) << "\" width=\""
            << kBoxWidth << "\" height=\"" << boxHeight << "\" rx=\"5\" fill=\""
            << (b.leaf ? "#eef4ea" : "#eaf0f8") << "\" stroke=\"#446\"/>\n";
        for (std::size_t k = 0; k < b.lines.size(); ++k) {
            out << "<text x=\"" << x(b) << "\" y=\"" << y(b) + kLineHeight * double(k + 1)
                << "\" text-anchor=\"middle\"" << (k == 0 ? " font-weight=\"bold\"" : "") << ">"
                << xmlText(b.lines[k]) << "</text>\n";
        }
        out << "</g>\n";
    }
    out << "</svg>\n";
}

void renderPruningSvg(std::ostream& out, const PruningRecord& record) {
    constexpr double W = 640, H = 400, left = 70, right = 20, top = 40, bottom = 50;
    double most = 0;
    double fewest = 1e300, leaves = 1;
    for (const PruningStep& s : record.steps) {
        most = std::max({most, s.risk, std::isfinite(s.cvRisk) ? s.cvRisk + s.cvError : 0.0});
        leaves = std::max(leaves, double(s.leaves));
        fewest = std::min(fewest, double(s.leaves));
    }
    if (!(most > 0)) most = 1;
    // Leaves on a log scale: the small trees are the interesting ones.
    const double span = std::log(leaves) - std::log(fewest) > 0 ? std::log(leaves) - std::log(fewest) : 1;
    const auto px = [&](double l) { return left + (std::log(l) - std::log(fewest)) / span * (W - left - right); };
    const auto py = [&](double r) { return H - bottom - r / most * (H - top - bottom); };
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << W << "\" height=\"" << H
        << "\" font-family=\"Helvetica, Arial, sans-serif\" font-size=\"11\">\n"
        << "<title>Risk against tree size</title>\n"
        << "<text x=\"" << W / 2 << "\" y=\"20\" text-anchor=\"middle\" font-size=\"13\">"
        << (record.folds > 0 ? std::to_string(record.folds) + "-fold cross-validated risk"
                             : std::string("training risk"))
        << " against leaves</text>\n"
        << "<line x1=\"" << left << "\" y1=\"" << H - bottom << "\" x2=\"" << W - right
        << "\" y2=\"" << H - bottom << "\" stroke=\"black\"/>\n"
        << "<line x1=\"" << left << "\" y1=\"" << top << "\" x2=\"" << left << "\" y2=\""
        << H - bottom << "\" stroke=\"black\"/>\n"
        << "<text x=\"" << W / 2 << "\" y=\"" << H - 12 << "\" text-anchor=\"middle\">leaves</text>\n"
        << "<text x=\"15\" y=\"" << (top + H - bottom) / 2 << "\" transform=\"rotate(-90 15 "
        << (top + H - bottom) / 2 << ")\" text-anchor=\"middle\">risk</text>\n";
    for (int t = 0; t <= 4; ++t) {
        const double r = most * t / 4;
        out << "<text x=\"" << left - 5 << "\" y=\"" << py(r) + 4 << "\" text-anchor=\"end\">"
            << formatShort(r, 3) << "</text>\n";
    }
    const auto polyline = [&](auto value, const char* colour, const char* name) {
        out << "<polyline class=\"" << name << "\" fill=\"none\" stroke=\"" << colour << "\" points=\"";
        for (const PruningStep& s : record.steps) out << px(double(s.leaves)) << ',' << py(value(s)) << ' ';
        out << "\"/>\n";
    };
    polyline([](const PruningStep& s) { return s.risk; }, "#999", "training");
    if (record.folds > 0) {
        polyline([](const PruningStep& s) { return s.cvRisk; }, "#1f4e9c", "cv");
        const PruningStep& best = record.steps[chooseStep(record.steps, false)];
        out << "<line class=\"one-se\" x1=\"" << left << "\" x2=\"" << W - right << "\" y1=\""
            << py(best.cvRisk + best.cvError) << "\" y2=\"" << py(best.cvRisk + best.cvError)
            << "\" stroke=\"#c33\" stroke-dasharray=\"4 3\"/>\n";
    }
    for (std::size_t k = 0; k < record.steps.size(); ++k) {
        const PruningStep& s = record.steps[k];
        const double value = record.folds > 0 ? s.cvRisk : s.risk;
        if (record.folds > 0) {
            out << "<line x1=\"" << px(double(s.leaves)) << "\" x2=\"" << px(double(s.leaves))
                << "\" y1=\"" << py(s.cvRisk - s.cvError) << "\" y2=\"" << py(s.cvRisk + s.cvError)
                << "\" stroke=\"#1f4e9c\"/>\n";
        }
        out << "<circle class=\"step\" cx=\"" << px(double(s.leaves)) << "\" cy=\"" << py(value)
            << "\" r=\"" << (k == record.chosen ? 5 : 3) << "\" fill=\""
            << (k == record.chosen ? "#c33" : "#1f4e9c") << "\"><title>" << s.leaves
            << " leaves, alpha " << formatShort(s.alpha, 6) << "</title></circle>\n";
        out << "<text x=\"" << px(double(s.leaves)) << "\" y=\"" << H - bottom + 15
            << "\" text-anchor=\"middle\">" << s.leaves << "</text>\n";
    }
    out << "</svg>\n";
}

}  // namespace arbolin::frontend

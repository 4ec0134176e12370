// A model file from arbitrary bytes: loaded as `show` and `predict` load
// it, and when it loads, its tree built, rendered as text and Graphviz, and
// a few rows of values drawn from the same bytes routed through it. A bad
// model must end in UserError; anything else escaping is a finding.
//
// Byte mutations seldom keep JSON valid, so that few inputs would get past
// the parser to the checks of the tree. The custom mutator below mostly
// edits an input that parses as JSON as JSON: one value changed, an
// element dropped or repeated, a value copied over another.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <sstream>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "frontend/render.hpp"
#include "frontend/model.hpp"

namespace {

using namespace arbolin::frontend;

// A value for one predictor from one byte: missing, a level code, a cut
// of the tree (so that both sides of it are reached), or a small number.
double valueFrom(std::uint8_t b, const TreeView& tree) {
    switch (b & 3) {
        case 0: return std::numeric_limits<double>::quiet_NaN();
        case 1: return static_cast<double>(b >> 2);
        case 2: {
            const double cut = tree.nodes[(b >> 2) % tree.nodes.size()].cut;
            return (b & 4) != 0 ? std::nextafter(cut, -INFINITY) : cut;
        }
        default: return static_cast<double>(b >> 2) - 32.0;
    }
}

void exercise(const Model& model, std::string_view bytes) {
    const TreeView tree = readTree(model, "fuzz");
    std::ostringstream out;
    renderText(out, model, tree);
    renderDot(out, model, tree);
    (void)treeShape(tree);

    const std::uint64_t D = model.predictors.size();
    constexpr std::uint64_t kRows = 8;
    std::vector<double> x(kRows * D);  // rows by predictors, column-major
    for (std::uint64_t k = 0; k < x.size(); ++k) {
        x[k] = valueFrom(static_cast<std::uint8_t>(bytes[(k * 7919) % bytes.size()]), tree);
    }
    for (std::uint64_t i = 0; i < kRows; ++i) {
        const std::uint64_t node = routeRow(tree, x.data() + i, kRows);
        if (node >= tree.nodes.size()) __builtin_trap();
    }
}

}  // namespace

namespace {

using Json = nlohmann::ordered_json;

// Every value of the document, parents before their members.
std::vector<Json*> values(Json& root) {
    std::vector<Json*> all{&root};
    for (std::size_t k = 0; k < all.size(); ++k) {
        if (all[k]->is_structured()) {
            for (Json& member : *all[k]) all.push_back(&member);
        }
    }
    return all;
}

void mutateValue(Json& target, const Json& other, std::minstd_rand& rng) {
    const auto pick = [&](std::size_t n) { return static_cast<std::size_t>(rng() % n); };
    switch (pick(8)) {
        case 0: target = static_cast<int>(pick(14)) - 1; break;  // small counts, codes, -1
        case 1: target = pick(2) == 0 ? Json(nullptr) : Json(pick(2) == 0 ? "Inf" : "-Inf"); break;
        case 2:
            if (target.is_array() && !target.empty()) target.erase(pick(target.size()));
            break;
        case 3:
            if (target.is_array() && !target.empty()) {
                target.push_back(Json(target[pick(target.size())]));
            }
            break;
        case 4:
            if (target.is_number()) target = target.get<double>() + (pick(2) == 0 ? 1.0 : -1.0);
            if (target.is_boolean()) target = !target.get<bool>();
            break;
        case 5: target = Json(other); break;
        case 6:
            if (target.is_array() && target.size() > 1) {
                std::swap(target[pick(target.size())], target[pick(target.size())]);
            }
            break;
        default: target = pick(2) == 0 ? Json::array() : Json(double(rng()) / 7.0); break;
    }
}

}  // namespace

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned int seed) {
    std::minstd_rand rng(seed);
    if (rng() % 5 == 0) return LLVMFuzzerMutate(data, size, maxSize);
    Json json = Json::parse(data, data + size, nullptr, false);
    if (json.is_discarded()) return LLVMFuzzerMutate(data, size, maxSize);
    const std::vector<Json*> all = values(json);
    const Json other = *all[rng() % all.size()];
    mutateValue(*all[rng() % all.size()], other, rng);
    const std::string text = json.dump();
    if (text.size() > maxSize) return LLVMFuzzerMutate(data, size, maxSize);
    std::memcpy(data, text.data(), text.size());
    return text.size();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    try {
        const Model model = loadModelFromMemory(bytes, "fuzz");
        exercise(model, bytes);
    } catch (const UserError&) {
        // The expected outcome for a bad model.
    }
    return 0;
}

// Reads the module's outputs in a model, with the output's name in every
// complaint.
#pragma once

#include <cmath>
#include <string>
#include <vector>

#include "cli/errors.hpp"
#include "cli/model.hpp"
#include "cli/outputs.hpp"

namespace arbolin::cli {

class OutputReader {
public:
    OutputReader(const Model& model, std::string where) : model_(model), where_(std::move(where)) {}

    [[noreturn]] void fail(Output o, const std::string& problem) const {
        throw UserError(where_ + ": output " + std::string(kOutputNames[o]) + " " + problem);
    }

    const cxArray* array(Output o) const { return model_.outputs[o].get(); }

    // The values of a real or logical array of m by n.
    std::vector<double> numbers(Output o, std::uint64_t m, std::uint64_t n) const {
        const cxArray* a = array(o);
        if (cxGetNumberOfDimensions(a) != 2 || cxGetM(a) != m || cxGetN(a) != n) {
            fail(o, "should be " + std::to_string(m) + " by " + std::to_string(n));
        }
        return values(a, [&] { fail(o, "should be numbers"); });
    }

    template <class Fail>
    static std::vector<double> values(const cxArray* a, Fail fail) {
        const std::uint64_t count = cxGetNumberOfElements(a);
        std::vector<double> out(count);
        switch (cxGetClassID(a)) {
            case cxDOUBLE_CLASS:
                for (std::uint64_t i = 0; i < count; ++i) out[i] = static_cast<const double*>(cxGetData(a))[i];
                break;
            case cxSINGLE_CLASS:
                for (std::uint64_t i = 0; i < count; ++i) out[i] = static_cast<const float*>(cxGetData(a))[i];
                break;
            case cxLOGICAL_CLASS:
                for (std::uint64_t i = 0; i < count; ++i) out[i] = cxGetLogicals(a)[i] ? 1 : 0;
                break;
            default: fail();
        }
        return out;
    }

    // A list held in a cell element: unset, empty or 1 by m.
    std::vector<double> list(Output o, const cxArray* a, std::uint64_t node) const {
        if (a == nullptr || cxGetNumberOfElements(a) == 0) return {};
        if (cxGetNumberOfDimensions(a) != 2 || cxGetM(a) != 1) {
            fail(o, "holds a list for node " + std::to_string(node + 1) + " that is not one row");
        }
        return values(a, [&] { fail(o, "holds a list of no numbers for node " + std::to_string(node + 1)); });
    }

    bool isCell(Output o) const { return cxGetClassID(array(o)) == cxCELL_CLASS; }

private:
    const Model& model_;
    std::string where_;
};

inline bool whole(double v, double lowest, double highest) {
    return v == std::floor(v) && v >= lowest && v <= highest;
}

// Level codes of a split or surrogate on `predictor` must be its levels.
void checkLevels(const OutputReader& r, Output o, const Model& model, std::uint64_t predictor,
                 const std::vector<double>& codes, std::uint64_t node);

struct TreeView;
// Fills the nodes' surrogates from outputs 17 to 22; 0 by 0 cells mean none.
void readSurrogates(const OutputReader& r, const Model& model, TreeView& tree);

}  // namespace arbolin::cli

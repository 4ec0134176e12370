// The typed driver's definition; included once per instantiation.
#pragma once

#include <cstring>
#include <memory>

#include "core/find_best_split.hpp"
#include "core/grow.hpp"
#include "core/stream_access.hpp"
#include "core/weave_canopy.hpp"
#include "criteria/split_criteria_factory.hpp"
#include "gateway/messages.hpp"
#include "gateway/output_writer.hpp"

namespace arbolin {

namespace driver_detail {

// The stream of the predictor draws: the default stream for an empty
// argument, else the stream named by the object's "StreamID".
inline StreamHandle streamFromArgument(const cxArray* streamArg) {
    if (cxIsEmpty(streamArg)) {
        return lotGetDefaultStream();
    }
    std::uint64_t id = 0;
    if (cxArray* property = cxGetProperty(streamArg, 0, "StreamID")) {
        std::memcpy(&id, cxGetData(property), sizeof id);
        cxDestroyArray(property);
    }
    return lookUpStream(id);
}

// One plus the integer part of the largest response over all N values; a
// NaN in first place stays.
template <class Y>
std::uint64_t countClasses(const Y* y, std::uint64_t n) {
    if (n == 0) {
        return 1;
    }
    Y largest = y[0];
    for (std::uint64_t i = 1; i < n; ++i) {
        if (y[i] > largest) {
            largest = y[i];
        }
    }
    return toCount(static_cast<double>(largest)) + 1;
}

}  // namespace driver_detail

template <class X, class Y, class W>
void weaveCanopy(const CanopyArgs& args) {
    std::unique_ptr<CostMatrix<W>> costs;
    if (cxGetN(args.CostArg) != 0) {
        const std::uint64_t k = cxGetN(args.CostArg);
        costs = std::make_unique<CostMatrix<W>>(
            CostMatrix<W>{static_cast<const W*>(cxGetData(args.CostArg)), k, k});
    }

    const Criteria<Y, W> criteria = SplitCriteriaFactory<Y, W>::make(
        *args.criterion, costs.get(), std::string(*args.parentFunction),
        std::string(*args.kidsFunction));

    const std::unique_ptr<bool[]> isCat(new bool[args.D]);
    if (args.D != 0) {
        std::memcpy(isCat.get(), args.isCat, args.D);
    }

    // Only a node that draws fewer predictors than it has needs a stream.
    StreamHandle stream;
    if (args.D > args.SampleSize) {
        stream = driver_detail::streamFromArgument(args.StreamArg);
    }

    TreeSettings<X, Y, W> settings;
    settings.x = static_cast<const X*>(args.x);
    settings.rowCount = args.N;
    settings.predictorCount = args.D;
    settings.y = static_cast<const Y*>(args.y);
    settings.w = static_cast<const W*>(args.w);
    settings.isCat = isCat.get();
    settings.classificationCriterion = criteria.classification.get();
    settings.regressionCriterion = criteria.regression.get();
    static_cast<GrowthSettings&>(settings) = args;
    settings.RiskTolerance = static_cast<W>(args.RiskTolerance);
    settings.stream = &stream;
    if (criteria.classification != nullptr) {
        settings.classNumber = driver_detail::countClasses(settings.y, args.N);
    } else if (criteria.regression != nullptr) {
        settings.classNumber = 1;
    } else {
        raise(tallix::silvan::learning::treeutils::Tree::init::BadCrit());
    }

    Tree<X, Y, W> tree(settings);
    tree.grow(std::move(*args.rows));
    // What growing freed goes back before the outputs take their room.
    givePooledBack(args.N * args.D);
    writeOutputs(tree, args.outputCount, args.outputs);
}

}  // namespace arbolin

// The exhaustive search of one column for its best split.
#pragma once

#include <limits>
#include <memory>
#include <type_traits>

#include "columns/numeric_divisions.hpp"
#include "criteria/classification_evaluator.hpp"
#include "criteria/regression_evaluator.hpp"

namespace arbolin {

template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::exhaustiveSearch() {
    if (searched_) {
        return;
    }
    searched_ = true;
    if (!divided_) {
        divide();
    }
    bestSplit.gain = std::numeric_limits<W>::lowest();
    if (Pnotnan_ <= W(0)) {
        return;
    }
    // A property of the criterion, asked and not used.
    if (classCriterion_ != nullptr) {
        (void)classCriterion_->usesParent();
    } else {
        (void)regressionCriterion_->usesParent();
    }
    if (verbosity_ > 2) {
        calyxPrintf("critParent_ = %g\n", static_cast<double>(critParent_));
    }
    if (2 * minLeaf_ > presentSize()) {
        return;
    }
    if (nominal_) {
        if (levels.LevelValues.empty()) {
            return;
        }
        if (verbosity_ > 2) {
            printLevels();
        }
    } else if (divisions_.empty()) {
        return;
    } else if (verbosity_ > 2) {
        calyxPrintf("Found %i numeric divisions:\n", divisions_.size());
        for (std::uint64_t d : divisions_) {
            calyxPrintf("   idx=%i  pos=%g", d, static_cast<double>(valueAt(d)));
        }
        calyxPrintf("\n");
    }

    ClassWeights<W> Ptot(classCount_, W(0));
    const std::uint64_t* rows = present_->data();
    const std::size_t n = presentSize();
    if (ordered_) {
        Ptot = orderedTotals();
    } else {
        for (std::size_t i = 0; i < n; ++i) {
            prefetchAhead(w_, rows, i, n);
            prefetchAhead(y_, rows, i, n);
            const std::uint64_t r = rows[i];
            const std::uint64_t k = classCriterion_ != nullptr ? classOf(y_[r]) : 0;
            Ptot[k] += w_[r];
        }
    }
    const W total = sumInOrder(Ptot);
    if (total <= W(0)) {
        return;
    }
    if (verbosity_ > 2) {
        for (std::size_t k = 0; k < Ptot.size(); ++k) {
            calyxPrintf("  Ptot(%i)=%g", std::uint64_t{k}, static_cast<double>(Ptot[k]));
        }
        calyxPrintf("\n");
    }
    const W crit =
        nominal_ ? findNominalSplitWithBestGain(Ptot) : findNumericSplitWithBestGain(Ptot);
    bestSplit.gain = critParent_ - crit;
    if (verbosity_ > 2) {
        calyxPrintf("   gain = %13.10g\n", static_cast<double>(bestSplit.gain));
    }
}

// Summed over the ordered copies in position order. With one weight for
// all rows, a column that has every row of the node takes the node's totals:
// the same sums, whatever the order of the rows.
template <class X, class Y, class W>
ClassWeights<W> IndexedColumn<X, Y, W>::orderedTotals() {
    if (classCriterion_ != nullptr && presorted_ && uniformTotals_ != nullptr) {
        return *uniformTotals_;
    }
    ClassWeights<W> Ptot(classCount_, W(0));
    const W* w = orderedWeights();
    for (std::size_t i = 0; i < yOrdered_.size(); ++i) {
        const std::uint64_t k = classCriterion_ != nullptr ? classOf(yOrdered_[i]) : 0;
        Ptot[k] += w != nullptr ? w[i] : orderedWeight_;
    }
    return Ptot;
}

// Evaluates each division as the walk hands it over, as the scan over a
// list of divisions would: the evaluator is of its final type, so its calls
// are direct.
template <class Evaluator, class W>
struct DivisionScan {
    Evaluator& evaluator;
    std::int64_t& division;
    W best = std::numeric_limits<W>::max();
    std::uint64_t count = 0;
    std::uint64_t last = 0;
    std::uint64_t previous = 0;
    bool stopped = false;  // a division left the above side empty

    [[gnu::always_inline]] void add(std::uint64_t d) {
        ++count;
        last = d;
        if (stopped) {
            return;
        }
        evaluator.advanceOrdered(previous, d + 1);
        previous = d + 1;
        W c;
        const EvalResult result = evaluator.evaluate(&c);
        if (result == EvalResult::BelowEmpty) {
            return;
        }
        if (result == EvalResult::AboveEmpty) {
            stopped = true;
            return;
        }
        if (best > c) {
            best = c;
            division = static_cast<std::int64_t>(d);
        }
    }
    bool empty() const { return count == 0; }
    std::uint64_t back() const { return last; }
    std::uint64_t size() const { return count; }
};

// The checks and sums of exhaustiveSearch come first, in their order; a
// column without divisions ends with no gain, as there.
template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::divideAndSearch() {
    sorted_ = true;
    divided_ = true;
    searched_ = true;
    bestSplit.gain = std::numeric_limits<W>::lowest();
    const std::size_t n = presentSize();
    if (n < 2 * minLeaf_ || Pnotnan_ <= W(0)) {
        return;
    }
    const W* w = orderedWeights();
    auto finish = [&](auto& evaluator) {
        DivisionScan<std::remove_reference_t<decltype(evaluator)>, W> scan{evaluator,
                                                                           bestSplit.division};
        walkDivisions(scan);
        if (!scan.empty()) {
            bestSplit.gain = critParent_ - scan.best;
        }
    };
    if (classCriterion_ != nullptr) {
        (void)classCriterion_->usesParent();
        const ClassWeights<W> Ptot = orderedTotals();
        if (sumInOrder(Ptot) <= W(0)) {
            return;
        }
        ClassificationSplitCriterionEvaluator<Y, W> evaluator(yOrdered_.data(), w, Ptot,
                                                              classCriterion_, orderedWeight_);
        if (responses_ != nullptr) {
            evaluator.countRows(responses_->repeatedSums(), n);
        }
        finish(evaluator);
    } else {
        (void)regressionCriterion_->usesParent();
        // Its total weight is the one total orderedTotals() would give.
        RegressionSplitCriterionEvaluator<Y, W> evaluator(n, yOrdered_.data(), w, orderedWeight_);
        if (evaluator.totalWeight() <= W(0)) {
            return;
        }
        finish(evaluator);
    }
}

// The level tables as the search sees them.
template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::printLevels() const {
    calyxPrintf("Found %i nominal levels:\n", std::uint64_t{levels.LevelValues.size()});
    for (std::size_t k = 0; k < levels.SortedLevels.size(); ++k) {
        calyxPrintf("  Class %i:\n", std::uint64_t{k});
        for (std::uint64_t c : levels.SortedLevels[k]) {
            calyxPrintf("     Category %5i:", c);
            for (X v : levels.LevelValues[c]) {
                calyxPrintf(" %g", static_cast<double>(v));
            }
            calyxPrintf("\n");
            calyxPrintf("       Class  counts:");
            for (std::uint64_t count : levels.LevelCounts[c]) {
                calyxPrintf(" %i", count);
            }
            calyxPrintf("\n");
            calyxPrintf("       Class weights:");
            for (W weight : levels.LevelWeights[c]) {
                calyxPrintf(" %g", static_cast<double>(weight));
            }
            calyxPrintf("\n");
        }
    }
}

// Visits the divisions from low to high; only a strictly smaller value
// replaces the best, so the lowest of equal divisions wins and a NaN never
// does.
template <class X, class Y, class W>
W IndexedColumn<X, Y, W>::findNumericSplitWithBestGain(const ClassWeights<W>& Ptot) {
    // Over the copies in order the evaluator reads positions, else rows.
    const Y* y = ordered_ ? yOrdered_.data() : y_;
    const W* w = ordered_ ? orderedWeights() : w_;
    std::unique_ptr<SplitCriterionEvaluator<W>> evaluator;
    if (classCriterion_ != nullptr) {
        evaluator = std::make_unique<ClassificationSplitCriterionEvaluator<Y, W>>(
            y, w, Ptot, classCriterion_, orderedWeight_);
    } else if (ordered_) {
        evaluator = std::make_unique<RegressionSplitCriterionEvaluator<Y, W>>(yOrdered_.size(), y,
                                                                              w, orderedWeight_);
    } else {
        evaluator = std::make_unique<RegressionSplitCriterionEvaluator<Y, W>>(*present_, y, w);
    }
    W best = std::numeric_limits<W>::max();
    const std::uint64_t* rows = present_->data();
    std::uint64_t previous = 0;
    for (std::uint64_t d : divisions_) {
        if (ordered_) {
            evaluator->advanceOrdered(previous, d + 1);
        } else {
            evaluator->advance(rows + previous, rows + d + 1);
        }
        previous = d + 1;
        W c;
        const EvalResult result = evaluator->evaluate(&c);
        if (result == EvalResult::BelowEmpty) {
            continue;
        }
        if (result == EvalResult::AboveEmpty) {
            break;
        }
        if (verbosity_ > 3) {
            calyxPrintf("  critFromKids %13.10g   at split (lower) = %13.10g\n",
                        static_cast<double>(c), static_cast<double>(valueAt(d)));
        }
        if (best > c) {
            best = c;
            bestSplit.division = static_cast<std::int64_t>(d);
        }
    }
    return best;
}

}  // namespace arbolin

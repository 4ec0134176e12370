// How well this predictor's best split imitates the winner's, and what that
// split is worth by itself.
#pragma once

#include <algorithm>
#include <iterator>
#include <limits>
#include <memory>

#include "columns/child_lists.hpp"
#include "columns/matched_probability.hpp"
#include "criteria/classification_evaluator.hpp"
#include "criteria/regression_evaluator.hpp"

namespace arbolin {

// The probability objects of this column's kind: classification with the
// criterion's correction, regression by plain weight.
template <class X, class Y, class W>
std::unique_ptr<IndexedMatchedProbability<W>> makeMatched(const IndexedColumn<X, Y, W>& column,
                                                          std::uint64_t maskLength = 0,
                                                          const RowList* maskRows = nullptr) {
    return makeMatchedProbability(column.classCount_, column.y_, column.w_, column.classCriterion_,
                                  maskLength, maskRows);
}

template <class W>
W probabilityOf(IndexedMatchedProbability<W>& matched, const RowList& rows) {
    matched.add(rows.data(), rows.data() + rows.size());
    W p;
    matched.get(&p);
    return p;
}

template <class X, class Y, class W>
std::pair<bool, W> IndexedColumn<X, Y, W>::findSurrogate(const SplitRows& kids, W minP) {
    constexpr W lowest = std::numeric_limits<W>::lowest();
    holdPresent();
    // Whatever the outcome, the cut is kept and the rows let go again.
    struct Release {
        IndexedColumn* column;
        ~Release() {
            column->surrogateCut_ = column->cutPoint(column->surrogateSplit);
            column->releasePresent();
        }
    } release{this};
    surrogateSplit.gain = lowest;
    if (Pnotnan_ <= W(0) || 2 * minLeaf_ > present_->size()) {
        return {false, lowest};
    }
    if (!divided_) {
        divide();
    }
    if (nominal_ ? levels.LevelValues.empty() : divisions_.empty()) {
        return {false, lowest};
    }
    // Rows this predictor cannot place take no part: the children lose the
    // rows missing here (both lists sorted by row number in that case).
    RowList restrictedLeft;
    RowList restrictedRight;
    const RowList* left = &kids.left;
    const RowList* right = &kids.right;
    if (!missing_->empty()) {
        std::sort(missing_->begin(), missing_->end());
        std::set_difference(kids.left.begin(), kids.left.end(), missing_->begin(), missing_->end(),
                            std::back_inserter(restrictedLeft));
        std::set_difference(kids.right.begin(), kids.right.end(), missing_->begin(),
                            missing_->end(), std::back_inserter(restrictedRight));
        left = &restrictedLeft;
        right = &restrictedRight;
    }
    if (verbosity_ > 3) {
        calyxPrintf("      Size of kids 1: %i   Size of kids 2: %i\n", std::uint64_t{left->size()},
                    std::uint64_t{right->size()});
    }
    if (left->empty() || right->empty()) {
        return {false, lowest};
    }
    const W pL = probabilityOf(*makeMatched(*this), *left);
    const W pR = probabilityOf(*makeMatched(*this), *right);
    if (verbosity_ > 3) {
        calyxPrintf("      pL=%g   pR=%g\n", static_cast<double>(pL / pParent_),
                    static_cast<double>(pR / pParent_));
    }
    if (pL / pParent_ <= W(0) || pR / pParent_ <= W(0)) {
        return {false, lowest};
    }
    const W association = nominal_ ? nominalAssociation(*left, *right, minP)
                                   : numericAssociation(*left, *right, pL, pR, minP);
    if (association <= W(0)) {
        return {false, association};
    }

    // The surrogate's own split of all its present rows, valued by the
    // criterion like a primary split.
    const SplitRows own = splitRows(surrogateSplit);
    RowList united(own.left);
    united.insert(united.end(), own.right.begin(), own.right.end());
    std::unique_ptr<SplitCriterionEvaluator<W>> evaluator;
    if (classCriterion_ != nullptr) {
        evaluator = std::make_unique<ClassificationSplitCriterionEvaluator<Y, W>>(
            classCount_, united, y_, w_, classCriterion_);
    } else {
        evaluator = std::make_unique<RegressionSplitCriterionEvaluator<Y, W>>(united, y_, w_);
    }
    const RowList& shorter = own.right.size() < own.left.size() ? own.right : own.left;
    evaluator->advance(shorter.data(), shorter.data() + shorter.size());
    W c = 0;
    if (evaluator->evaluate(&c) != EvalResult::Valid) {
        return {false, lowest};
    }
    W b = critParent_;
    if (united.size() != present_->size()) {
        // A nominal split may leave out rows whose value is in neither list.
        b = correctedWeightOf(united) / Pnotnan_ * b;
    }
    surrogateSplit.gain = b - c;
    return {true, association};
}

// Walks this predictor's divisions; masks pick out the members of each child.
template <class X, class Y, class W>
W IndexedColumn<X, Y, W>::numericAssociation(const RowList& left, const RowList& right, W pL, W pR,
                                             W minP) {
    const auto leftBelow = makeMatched(*this, rowCount_, &left);
    const auto rightBelow = makeMatched(*this, rowCount_, &right);
    const W P = pParent_;
    W best = std::numeric_limits<W>::lowest();
    const std::uint64_t* rows = present_->data();
    const std::uint64_t* previous = rows;
    for (std::size_t t = 0; t < divisions_.size(); ++t) {
        const std::uint64_t d = divisions_[t];
        const std::uint64_t* next = rows + d + 1;
        leftBelow->add(previous, next);
        rightBelow->add(previous, next);
        previous = next;
        W a;
        W b;
        leftBelow->get(&a);
        rightBelow->get(&b);
        const W pLL = a / P;
        const W pRL = b / P;
        const W pLR = (pL - a) / P;
        const W pRR = (pR - b) / P;
        const W plus = (minP - ((W(1) - pLL) - pRR)) / minP;
        const W minus = (minP - ((W(1) - pLR) - pRL)) / minP;
        if (verbosity_ > 3) {
            calyxPrintf(
                "      idiv=%i  x=%g  pLL=%g  pRL=%g  pLR=%g  pRR=%g  Assoc(-1)=%g  Assoc(+1)=%g\n",
                std::uint64_t{t}, static_cast<double>(valueAt(d)), static_cast<double>(pLL),
                static_cast<double>(pRL), static_cast<double>(pLR), static_cast<double>(pRR),
                static_cast<double>(minus), static_cast<double>(plus));
        }
        const bool mirrored = pLR + pRL > pRR + pLL;
        const W association = mirrored ? minus : plus;
        if (association > W(0) && association > best) {
            best = association;
            surrogateSplit.direction = mirrored ? -1 : 1;
            surrogateSplit.division = static_cast<std::int64_t>(d);
        }
    }
    return best;
}

// Each value goes to the child that holds more of its weight; a tie, and a
// value in neither child, go left.
template <class X, class Y, class W>
W IndexedColumn<X, Y, W>::nominalAssociation(const RowList& left, const RowList& right, W minP) {
    const auto leftMatched = makeMatched(*this);
    const auto rightMatched = makeMatched(*this);
    // The rows of each child grouped by value, in list order within a value.
    auto byValue = [this](const RowList& list) {
        RowList grouped(list);
        std::stable_sort(grouped.begin(), grouped.end(),
                         [this](std::uint64_t a, std::uint64_t b) { return x_[a] < x_[b]; });
        return grouped;
    };
    const RowList leftGrouped = byValue(left);
    const RowList rightGrouped = byValue(right);
    auto rowsOf = [this](const RowList& grouped, X v) {
        const auto first = std::partition_point(grouped.begin(), grouped.end(),
                                                [&](std::uint64_t r) { return x_[r] < v; });
        const auto last = std::partition_point(first, grouped.end(),
                                               [&](std::uint64_t r) { return !(v < x_[r]); });
        return std::make_pair(grouped.data() + (first - grouped.begin()),
                              grouped.data() + (last - grouped.begin()));
    };
    W sumLeft = 0;
    W sumRight = 0;
    for (const auto& level : levels.LevelValues) {
        for (X v : level) {
            leftMatched->reset();
            rightMatched->reset();
            const auto [leftFirst, leftLast] = rowsOf(leftGrouped, v);
            const auto [rightFirst, rightLast] = rowsOf(rightGrouped, v);
            leftMatched->add(leftFirst, leftLast);
            rightMatched->add(rightFirst, rightLast);
            W a;
            W b;
            leftMatched->get(&a);
            rightMatched->get(&b);
            if (b > a) {
                sumRight += b;
                surrogateSplit.rightLevels.push_back(v);
            } else {
                sumLeft += a;
                surrogateSplit.leftLevels.push_back(v);
            }
        }
    }
    std::sort(surrogateSplit.leftLevels.begin(), surrogateSplit.leftLevels.end());
    std::sort(surrogateSplit.rightLevels.begin(), surrogateSplit.rightLevels.end());
    const W P = pParent_;
    return (minP - ((W(1) - sumLeft / P) - sumRight / P)) / minP;
}

}  // namespace arbolin

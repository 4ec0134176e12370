// What a scan over a sorted column carries along: rows move from the above
// side to the below side, and at each division the evaluator tells the
// value of the split there.
#pragma once

#include <cstdint>

namespace arbolin {

enum class EvalResult : int { BelowEmpty = 0, AboveEmpty = 1, Valid = 2 };

template <class W>
class SplitCriterionEvaluator {
public:
    virtual ~SplitCriterionEvaluator() = default;
    // Moves the rows of [first, last) to the below side.
    virtual void advance(const std::uint64_t* first, const std::uint64_t* last) = 0;
    // Moves positions [first, last) to the below side, for an evaluator
    // made over responses and weights already in the scan's order.
    virtual void advanceOrdered(std::size_t first, std::size_t last) = 0;
    // Every row above again; the totals stay.
    virtual void reset() = 0;
    // Writes critFromKids when both sides have weight.
    virtual EvalResult evaluate(W* result) = 0;
};

}  // namespace arbolin

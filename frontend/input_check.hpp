// The check that a front end runs on the twenty host arrays before it calls
// the module. The module trusts its caller: a wrong size is a wrong read,
// not an error. Front ends that take their inputs from users (Python, the
// fuzz harness) call this first, so that what reaches the module is what it
// was built for.
//
// What passes, input by input (N rows and D columns of X; "whole" means a
// finite number with no fraction; counts stop at 2^53, where doubles stop
// counting exactly):
//
//   X               real double or single matrix, N by D. More than two
//                   dimensions are refused: the module would fold them into
//                   columns, which is never what a caller of a matrix means.
//                   Any values, NaN for missing.
//   Y, W            double or single, N elements, any shape. Double X with
//                   single Y and single W is refused: the module reads that W
//                   as double.
//   Rows            double, any shape, whole numbers 0..N-1; may be empty and
//                   may repeat a row.
//   IsCat           logical, D elements.
//   CriterionArg    one of "error", "gini", "gdi", "deviance", "twoing",
//                   "mse"; or a cell of two char arrays, the parent and the
//                   kids host functions of a custom criterion: the parent
//                   name not empty, the kids name possibly empty (then the
//                   parent function serves both).
//   MinLeaf, MinParent   whole, at least 1.
//   MaxSplits       whole, at least 0.
//   SampleSize      whole, 1..D (0 when D is 0).
//   SurrogateCount  whole, 0..D. A node has at most D-1 candidates, so D-1
//                   and D both ask for all of them.
//   MaxCat          whole, 0..63: exact enumeration takes at most 63 levels.
//   AlgCat          whole, 0..4.
//   Verbosity       whole, 0..5: 5 already prints everything there is.
//   RiskTolerance   finite, in [0, 1].
//   the scalars above: real numeric (double, single or integer), one element.
//   CurvatureFlag, InteractionFlag, ChisqFlag   logical, one element.
//   StreamArg       empty, or an object of class "RandStream" whose
//                   "StreamID" is a uint64. Looked at only when SampleSize
//                   is below D, as the module does: otherwise no stream is
//                   drawn from.
//   CostArg         empty (no columns), or a K by K matrix of the class of
//                   W (the module reads it as W), entries finite and not
//                   negative; for every criterion but "error" the entries
//                   must have a positive finite sum, because the classes are
//                   weighted by their share of it. A regression ("mse")
//                   takes no cost matrix.
//
// Then the data at the rows used, in the precision in which the module
// reads them (a single array as float):
//
//   W               finite and not negative.
//   Y, regression   finite.
//   Y, classification (every criterion but "mse", custom included)
//                   whole class codes 0..K-1, where K is the size of the cost
//                   matrix, or N without one (N rows cannot hold more than N
//                   classes, and the bound stops a stray large code from
//                   allocating that many classes). The module counts classes
//                   from the largest value of the whole of Y, rows used or
//                   not, starting from the first value, so that largest value
//                   must be a number from 0 to below K as well, and Y's first
//                   value must not be NaN. Other unused rows may hold NaN.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "gateway/numora.hpp"

namespace arbolin::frontend {

// An input that the module must not be given.
class ContractViolation : public std::invalid_argument {
public:
    enum class Kind {
        Type,   // the wrong class or shape, or the wrong number of inputs
        Value,  // the right kind of array holding a value out of bounds
    };

    // `position` is 1-based, 0 for the list of inputs as a whole. The text
    // (what()) names the input: "input 7 (MinLeaf) must be ...".
    ContractViolation(Kind kind, int position, std::string_view name, const std::string& text);

    Kind kind() const noexcept { return kind_; }
    int position() const noexcept { return position_; }
    const std::string& name() const noexcept { return name_; }

private:
    Kind kind_;
    int position_;
    std::string name_;
};

// Throws ContractViolation for the first input, in order of position, that
// breaks the contract above; returns when the module may be called. Reads
// each array at most once through, plus once through Rows for each of Y and W.
void checkModuleInputs(int inputCount, const cxArray* const inputs[]);

}  // namespace arbolin::frontend

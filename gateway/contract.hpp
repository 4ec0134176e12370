// The module's arguments by position: the twenty inputs of the entry point
// and the twenty-two outputs, declared once for the entry point and for the
// front ends that build, check or read a call.
#pragma once

#include <array>
#include <string_view>

namespace arbolin::contract {

inline constexpr int kInputCount = 20;
inline constexpr int kOutputCount = 22;

// 1-based positions, as the host numbers arguments.
namespace input {
enum Position : int {
    X = 1,
    Y,
    W,
    Rows,
    IsCat,
    CriterionArg,
    MinLeaf,
    MinParent,
    MaxSplits,
    SampleSize,
    SurrogateCount,
    MaxCat,
    AlgCat,
    CostArg,
    RiskTolerance,
    CurvatureFlag,
    InteractionFlag,
    ChisqFlag,
    StreamArg,
    Verbosity,
};
}  // namespace input

namespace output {
enum Position : int {
    Children = 1,
    ClassCount,
    ClassProb,
    CurvatureTests,
    SplitLevels,
    CutPoint,
    CutVar,
    HasUnroutedRows,
    InteractionTests,
    IsBranch,
    NodeValue,
    NodeProb,
    NodeSize,
    Parent,
    NodeRisk,
    Gain,
    SurrogateLevels,
    SurrogateDirections,
    SurrogateCutPoints,
    SurrogatePredictors,
    SurrogateGains,
    SurrogateAssociations,
};
}  // namespace output

struct Argument {
    int position;  // 1-based
    std::string_view name;
};

inline constexpr std::array<Argument, kInputCount> kInputs = {{
    {input::X, "X"},
    {input::Y, "Y"},
    {input::W, "W"},
    {input::Rows, "Rows"},
    {input::IsCat, "IsCat"},
    {input::CriterionArg, "CriterionArg"},
    {input::MinLeaf, "MinLeaf"},
    {input::MinParent, "MinParent"},
    {input::MaxSplits, "MaxSplits"},
    {input::SampleSize, "SampleSize"},
    {input::SurrogateCount, "SurrogateCount"},
    {input::MaxCat, "MaxCat"},
    {input::AlgCat, "AlgCat"},
    {input::CostArg, "CostArg"},
    {input::RiskTolerance, "RiskTolerance"},
    {input::CurvatureFlag, "CurvatureFlag"},
    {input::InteractionFlag, "InteractionFlag"},
    {input::ChisqFlag, "ChisqFlag"},
    {input::StreamArg, "StreamArg"},
    {input::Verbosity, "Verbosity"},
}};

inline constexpr std::array<Argument, kOutputCount> kOutputs = {{
    {output::Children, "Children"},
    {output::ClassCount, "ClassCount"},
    {output::ClassProb, "ClassProb"},
    {output::CurvatureTests, "CurvatureTests"},
    {output::SplitLevels, "SplitLevels"},
    {output::CutPoint, "CutPoint"},
    {output::CutVar, "CutVar"},
    {output::HasUnroutedRows, "HasUnroutedRows"},
    {output::InteractionTests, "InteractionTests"},
    {output::IsBranch, "IsBranch"},
    {output::NodeValue, "NodeValue"},
    {output::NodeProb, "NodeProb"},
    {output::NodeSize, "NodeSize"},
    {output::Parent, "Parent"},
    {output::NodeRisk, "NodeRisk"},
    {output::Gain, "Gain"},
    {output::SurrogateLevels, "SurrogateLevels"},
    {output::SurrogateDirections, "SurrogateDirections"},
    {output::SurrogateCutPoints, "SurrogateCutPoints"},
    {output::SurrogatePredictors, "SurrogatePredictors"},
    {output::SurrogateGains, "SurrogateGains"},
    {output::SurrogateAssociations, "SurrogateAssociations"},
}};

// The name of a 1-based position.
constexpr std::string_view inputName(int position) { return kInputs[position - 1].name; }
constexpr std::string_view outputName(int position) { return kOutputs[position - 1].name; }

// 0-based slot of a position in the host's argument arrays.
constexpr int slot(int position) { return position - 1; }

namespace detail {
template <std::size_t n>
constexpr bool numberedInOrder(const std::array<Argument, n>& table) {
    for (std::size_t k = 0; k < n; ++k) {
        if (table[k].position != static_cast<int>(k) + 1) return false;
    }
    return true;
}
}  // namespace detail
static_assert(detail::numberedInOrder(kInputs) && input::Verbosity == kInputCount);
static_assert(detail::numberedInOrder(kOutputs) && output::SurrogateAssociations == kOutputCount);

}  // namespace arbolin::contract

// The module's twenty-two outputs, by position.
#pragma once

#include <array>
#include <string_view>

namespace arbolin::cli {

enum Output : int {
    kChildren, kClassCount, kClassProb, kCurvatureTests, kSplitLevels, kCutPoint, kCutVar,
    kHasUnroutedRows, kInteractionTests, kIsBranch, kNodeValue, kNodeProb, kNodeSize, kParent,
    kNodeRisk, kGain, kSurrogateLevels, kSurrogateDirections, kSurrogateCutPoints,
    kSurrogatePredictors, kSurrogateGains, kSurrogateAssociations, kOutputCount
};

inline constexpr std::array<std::string_view, kOutputCount> kOutputNames = {
    "Children", "ClassCount", "ClassProb", "CurvatureTests", "SplitLevels", "CutPoint",
    "CutVar", "HasUnroutedRows", "InteractionTests", "IsBranch", "NodeValue", "NodeProb",
    "NodeSize", "Parent", "NodeRisk", "Gain", "SurrogateLevels", "SurrogateDirections",
    "SurrogateCutPoints", "SurrogatePredictors", "SurrogateGains", "SurrogateAssociations",
};

}  // namespace arbolin::cli

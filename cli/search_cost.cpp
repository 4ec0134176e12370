#include "cli/search_cost.hpp"

#include <cmath>
#include <string>

#include "cli/errors.hpp"
#include "cli/values.hpp"

namespace arbolin::cli {

namespace {

// Most levels searched exhaustively without --allow-long-search: 2^23
// partitions take well under a second at one node.
constexpr std::uint64_t kMostExactLevels = 24;
// Partitions per second of one core, measured with three classes (24 levels:
// 0.65 s at the root); more classes cost more per partition.
constexpr double kPartitionsPerSecond = 1.3e7;

std::string roughDuration(double seconds) {
    if (seconds < 120) return formatShort(seconds, 2) + " seconds";
    if (seconds < 2 * 3600) return formatShort(seconds / 60, 2) + " minutes";
    if (seconds < 2 * 86400) return formatShort(seconds / 3600, 2) + " hours";
    if (seconds < 2 * 31557600) return formatShort(seconds / 86400, 2) + " days";
    return formatShort(seconds / 31557600, 2) + " years";
}

}  // namespace

void checkSearchCost(const TrainingData& data, const Settings& settings) {
    // Exact enumeration runs only for three or more classes.
    if (!data.classification || data.classes.size() < 3) return;
    if (settings.flag("allow-long-search")) return;
    // The method is kept as its position in auto|exact|pull-left|pca|ova.
    const double code = settings.number("nominal-method");
    if (code != 0 && code != 1) return;
    const bool exact = code == 1;
    const double maxCat = settings.number("max-cat");
    for (const Predictor& p : data.predictors) {
        const std::uint64_t L = p.levels.size();
        if (p.kind != PredictorKind::Nominal || L <= kMostExactLevels) continue;
        if (!exact && static_cast<double>(L) > maxCat) continue;
        const double partitions = std::ldexp(1.0, static_cast<int>(L) - 1) - 1;
        const double seconds =
            partitions / kPartitionsPerSecond * (static_cast<double>(data.classes.size()) / 3.0);
        const std::string problem =
            "exact enumeration of " + p.name + " (" + std::to_string(L) + " levels, " +
            std::to_string(data.classes.size()) + " classes) tries " +
            formatShort(partitions, 4) + " partitions at each node, about " +
            roughDuration(seconds) + " at the root alone; " +
            (exact ? "choose --nominal-method pull-left, pca or ova"
                               : "lower --max-cat below " + std::to_string(L)) +
            ", or add --allow-long-search to run it anyway";
        failOption(exact ? "nominal-method" : "max-cat", problem);
    }
}

}  // namespace arbolin::cli

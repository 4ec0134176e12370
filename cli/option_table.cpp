#include "cli/option_table.hpp"

#include <algorithm>
#include <array>
#include <cctype>

namespace arbolin::cli {

namespace {

using K = OptionKind;

std::optional<double> none(const DataShape&) { return std::nullopt; }
std::optional<double> predictors(const DataShape& s) { return double(s.predictors); }
std::optional<double> otherPredictors(const DataShape& s) {
    return s.predictors == 0 ? 0.0 : double(s.predictors - 1);
}
// Exact enumeration tries 2^(levels-1) partitions and stops at 63 levels.
std::optional<double> maxCat(const DataShape&) { return 63.0; }
std::optional<double> one(const DataShape&) { return 1.0; }
std::optional<double> printLevels(const DataShape&) { return 5.0; }
std::optional<double> exactInDouble(const DataShape&) { return 9007199254740992.0; }

std::string allPredictors(const DataShape& s) { return std::to_string(s.predictors); }
std::string rowsLessOne(const DataShape& s) { return std::to_string(s.rows == 0 ? 0 : s.rows - 1); }
std::string criterionFor(const DataShape& s) { return s.classification ? "gini" : "mse"; }

std::string_view criteria(const DataShape& s) {
    return s.classification ? "gini|gdi|deviance|twoing|error" : "mse";
}
std::string_view nominalMethods(const DataShape&) { return "auto|exact|pull-left|pca|ova"; }
std::string_view delimiters(const DataShape&) { return ",|;|tab|\\|"; }
std::string_view encodings(const DataShape&) { return "utf-8|latin1"; }

constexpr OptionRow kOptions[] = {
    {"response", 2, K::Column, "", nullptr, "the last column", 0, nullptr, "", nullptr,
     "the column to predict; rows where it is missing are left out"},
    {"weights", 3, K::Column, "", nullptr, "none: equal weights", 0, nullptr, "", nullptr,
     "a column of observation weights (finite, 0 or more); they are scaled to sum to 1"},
    {"nominal", 5, K::Columns, "", nullptr, "none", 0, nullptr, "", nullptr,
     "numeric columns to treat as nominal codes; a column with any non-numeric value is "
     "nominal anyway"},
    {"numeric", 0, K::Columns, "", nullptr, "none", 0, nullptr, "", nullptr,
     "columns that must be numeric: a value that is neither a number nor missing is an error "
     "instead of making the column nominal"},
    {"ignore", 0, K::Columns, "", nullptr, "none", 0, nullptr, "", nullptr,
     "columns to leave out, such as an ID or a name: neither predictors, response nor weights"},
    {"missing", 0, K::Tokens, "", nullptr, "none", 0, nullptr, "", nullptr,
     "more values that mean missing, besides an empty field, NA, NaN and ? (predict adds "
     "those the model was grown with)"},
    {"delimiter", 0, K::Keyword, "", nullptr,
     "the one of , ; and tab that splits the first line most", 0, nullptr, "", delimiters,
     "the field delimiter of the CSV files read"},
    {"encoding", 0, K::Keyword, "utf-8", nullptr, "", 0, nullptr, "", encodings,
     "the text encoding of the CSV files read; latin1 is converted to UTF-8"},
    {"classification", 0, K::Flag, "", nullptr, "when the response is not numeric", 0, nullptr,
     "", nullptr, "grow a classification tree; classes are the response's distinct values"},
    {"regression", 0, K::Flag, "", nullptr, "when the response is numeric", 0, nullptr, "",
     nullptr, "grow a regression tree"},
    {"criterion", 6, K::Keyword, "", criterionFor, "gini, or mse in regression", 0, nullptr, "",
     criteria, "split criterion: gini (or gdi), deviance, twoing, error; mse in regression"},
    {"min-leaf", 7, K::Count, "1", nullptr, "", 1, none, "", nullptr,
     "least rows in a leaf"},
    {"min-parent", 8, K::Count, "10", nullptr, "", 1, none, "", nullptr,
     "least rows in a node that may be split"},
    {"max-splits", 9, K::Count, "", rowsLessOne, "rows - 1", 0, none, "", nullptr,
     "most splits in the tree"},
    {"predictors-per-node", 10, K::Count, "", allPredictors, "all predictors", 1, predictors,
     "the number of predictors", nullptr,
     "predictors drawn at random in each node (fewer than all draws from the stream)"},
    {"surrogates", 11, K::Count, "0", nullptr, "", 0, otherPredictors,
     "the number of predictors less one", nullptr,
     "surrogate splits kept per node; they route rows with a missing value"},
    {"max-cat", 12, K::Count, "10", nullptr, "", 0, maxCat, "", nullptr,
     "most levels of a nominal predictor for which 'auto' searches every partition"},
    {"nominal-method", 13, K::Code, "auto", nullptr, "", 0, nullptr, "", nominalMethods,
     "split search for nominal predictors with 3 or more classes"},
    {"allow-long-search", 0, K::Flag, "", nullptr, "off", 0, nullptr, "", nullptr,
     "run an exact search of more than 24 levels, which fit otherwise refuses as too slow"},
    {"cost", 14, K::Path, "", nullptr, "none: every error costs 1", 0, nullptr, "", nullptr,
     "K x K CSV of misclassification costs, row: true class, column: predicted class, in "
     "class order; an optional header row names the classes"},
    {"risk-tolerance", 15, K::Real, "1e-6", nullptr, "", 0, one, "", nullptr,
     "regression: a node whose risk is below this share of the root's is not split"},
    {"curvature", 16, K::Flag, "", nullptr, "off", 0, nullptr, "", nullptr,
     "choose each node's predictor by curvature tests"},
    {"interaction", 17, K::Flag, "", nullptr, "off", 0, nullptr, "", nullptr,
     "add interaction tests to the curvature tests"},
    {"chisq", 18, K::Flag, "", nullptr, "off", 0, nullptr, "", nullptr,
     "use the chi-square test for numeric predictors too, not the F test"},
    {"seed", 19, K::Count, "", nullptr, "none: the host's default stream", 0, exactInDouble, "2^53",
     nullptr, "seed of the random stream that draws predictors"},
    {"verbose", 20, K::Count, "0", nullptr, "", 0, printLevels, "", nullptr,
     "the module's print level; its text goes to standard output"},
    {"single", 0, K::Flag, "", nullptr, "off", 0, nullptr, "", nullptr,
     "grow on single-precision data: predictors, response, weights and costs as float32"},
    {"output", 0, K::Path, "", nullptr, "NAME.model.json in the current directory", 0, nullptr,
     "", nullptr, "where to write the model (JSON)"},
    {"quiet", 0, K::Flag, "", nullptr, "off", 0, nullptr, "", nullptr,
     "print the summary but not the tree"},
};

}  // namespace

std::span<const OptionRow> fitOptions() { return kOptions; }

bool isReadingOption(std::string_view name) {
    return name == "delimiter" || name == "encoding" || name == "missing";
}

std::vector<std::string> choiceList(std::string_view choices) {
    std::vector<std::string> words(1);
    for (std::size_t i = 0; i < choices.size(); ++i) {
        if (choices[i] == '\\' && i + 1 < choices.size()) {
            words.back().push_back(choices[++i]);
        } else if (choices[i] == '|') {
            words.emplace_back();
        } else {
            words.back().push_back(choices[i]);
        }
    }
    return words;
}

std::string joinChoices(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& w : words) {
        const bool word = std::any_of(w.begin(), w.end(), [](char c) {
            return std::isalpha(static_cast<unsigned char>(c)) != 0;
        });
        text += (text.empty() ? "" : ", ") + (word ? w : "\"" + w + "\"");
    }
    return text;
}

}  // namespace arbolin::cli

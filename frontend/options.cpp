#include "frontend/options.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <stdexcept>

#include "frontend/errors.hpp"
#include "frontend/values.hpp"
#include "gateway/contract.hpp"

namespace arbolin::frontend {

namespace {

using K = OptionKind;
namespace in = contract::input;

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
std::string_view pruneMethods(const DataShape&) { return "none|cv"; }
std::string_view pruneRules(const DataShape&) { return "1se|min"; }

constexpr OptionRow kOptions[] = {
    {"response", in::Y, K::Column, "", nullptr, "the last column", 0, nullptr, "", nullptr,
     "the column to predict; rows where it is missing are left out"},
    {"weights", in::W, K::Column, "", nullptr, "none: equal weights", 0, nullptr, "", nullptr,
     "a column of observation weights (finite, 0 or more); they are scaled to sum to 1"},
    {"nominal", in::IsCat, K::Columns, "", nullptr, "none", 0, nullptr, "", nullptr,
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
    {"classification", 0, K::Flag, "", nullptr, "when the response is not numeric", 0, nullptr, "",
     nullptr, "grow a classification tree; classes are the response's distinct values"},
    {"regression", 0, K::Flag, "", nullptr, "when the response is numeric", 0, nullptr, "", nullptr,
     "grow a regression tree"},
    {"criterion", in::CriterionArg, K::Keyword, "", criterionFor, "gini, or mse in regression", 0,
     nullptr, "", criteria,
     "split criterion: gini (or gdi), deviance, twoing, error; mse in regression"},
    {"min-leaf", in::MinLeaf, K::Count, "1", nullptr, "", 1, none, "", nullptr,
     "least rows in a leaf"},
    {"min-parent", in::MinParent, K::Count, "10", nullptr, "", 1, none, "", nullptr,
     "least rows in a node that may be split"},
    {"max-splits", in::MaxSplits, K::Count, "", rowsLessOne, "rows - 1", 0, none, "", nullptr,
     "most splits in the tree"},
    {"predictors-per-node", in::SampleSize, K::Count, "", allPredictors, "all predictors", 1,
     predictors, "the number of predictors", nullptr,
     "predictors drawn at random in each node (fewer than all draws from the stream)"},
    {"surrogates", in::SurrogateCount, K::Count, "0", nullptr, "", 0, otherPredictors,
     "the number of predictors less one", nullptr,
     "surrogate splits kept per node; they route rows with a missing value"},
    {"max-cat", in::MaxCat, K::Count, "10", nullptr, "", 0, maxCat, "", nullptr,
     "most levels of a nominal predictor for which 'auto' searches every partition"},
    {"nominal-method", in::AlgCat, K::Code, "auto", nullptr, "", 0, nullptr, "", nominalMethods,
     "split search for nominal predictors with 3 or more classes"},
    {"allow-long-search", 0, K::Flag, "", nullptr, "off", 0, nullptr, "", nullptr,
     "run an exact search of more than 24 levels, which fit otherwise refuses as too slow"},
    {"cost", in::CostArg, K::Path, "", nullptr, "none: every error costs 1", 0, nullptr, "",
     nullptr,
     "K x K CSV of misclassification costs, row: true class, column: predicted class, in "
     "class order; an optional header row names the classes"},
    {"risk-tolerance", in::RiskTolerance, K::Real, "1e-6", nullptr, "", 0, one, "", nullptr,
     "regression: a node whose risk is below this share of the root's is not split"},
    {"curvature", in::CurvatureFlag, K::Flag, "", nullptr, "off", 0, nullptr, "", nullptr,
     "choose each node's predictor by curvature tests"},
    {"interaction", in::InteractionFlag, K::Flag, "", nullptr, "off", 0, nullptr, "", nullptr,
     "add interaction tests to the curvature tests"},
    {"chisq", in::ChisqFlag, K::Flag, "", nullptr, "off", 0, nullptr, "", nullptr,
     "use the chi-square test for numeric predictors too, not the F test"},
    {"seed", in::StreamArg, K::Count, "", nullptr, "none: the host's default stream", 0,
     exactInDouble, "2^53", nullptr, "seed of the random stream that draws predictors"},
    {"verbose", in::Verbosity, K::Count, "0", nullptr, "", 0, printLevels, "", nullptr,
     "the module's print level; its text goes to standard output"},
    {"single", 0, K::Flag, "", nullptr, "off", 0, nullptr, "", nullptr,
     "grow on single-precision data: predictors, response, weights and costs as float32"},
    {"alpha", 0, K::Real, "", nullptr, "none: no pruning", 0, none, "", nullptr,
     "prune the grown tree to the subtree of its cost-complexity sequence for this alpha, the "
     "risk charged per leaf (0: cut only the splits that do not lower the risk)"},
    {"prune", 0, K::Keyword, "none", nullptr, "", 0, nullptr, "", pruneMethods,
     "cv: grow, then prune to the size that k-fold cross-validation of the cost-complexity "
     "sequence chooses; the model keeps the sequence and its cross-validated risks"},
    {"folds", 0, K::Count, "10", nullptr, "", 2, none, "", nullptr,
     "folds of the cross-validation, at most the rows (stratified by class; dealt by --seed, "
     "or by 1 without it)"},
    {"rule", 0, K::Keyword, "1se", nullptr, "", 0, nullptr, "", pruneRules,
     "the size cross-validation chooses: 1se, the smallest tree within one standard error of "
     "the least cross-validated risk; min, the tree of the least"},
    {"output", 0, K::Path, "", nullptr, "NAME.model.json in the current directory", 0, nullptr, "",
     nullptr, "where to write the model (JSON)"},
    {"quiet", 0, K::Flag, "", nullptr, "off", 0, nullptr, "", nullptr,
     "print the summary but not the tree, and no progress"},
};

}  // namespace

std::span<const OptionRow> fitOptions() { return kOptions; }

bool isReadingOption(std::string_view name) {
    return name == "delimiter" || name == "encoding" || name == "missing";
}

bool isCommandLineOnly(std::string_view name) {
    return name == "delimiter" || name == "encoding" || name == "output" || name == "quiet";
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

// ------------------------------------------------------------ given and settled

std::optional<std::string> RawOptions::value(std::string_view name) const {
    const auto it = text.find(name);
    if (it == text.end()) return std::nullopt;
    return it->second;
}

bool RawOptions::flag(std::string_view name) const {
    const auto it = flags.find(name);
    return it != flags.end() && it->second;
}

std::vector<std::string> RawOptions::list(std::string_view name) const {
    const auto it = lists.find(name);
    return it == lists.end() ? std::vector<std::string>{} : it->second;
}

namespace {

double checkNumber(const OptionRow& option, const std::string& text, const DataShape& shape) {
    double v = 0;
    if (readNumber(text, v) != Reading::Number) {
        failOption(option.name, "\"" + text + "\" is not a finite number");
    }
    if (option.kind == OptionKind::Count && v != std::floor(v)) {
        failOption(option.name, text + " is not a whole number");
    }
    if (v < option.lower) {
        failOption(option.name,
                   text + " is below the least allowed value, " + formatNumber(option.lower));
    }
    if (option.upper != nullptr) {
        if (const auto most = option.upper(shape); most && v > *most) {
            const std::string words = option.upperHelp.empty() ? formatNumber(*most)
                                                               : std::string(option.upperHelp) +
                                                                     ", " + formatNumber(*most);
            failOption(option.name, text + " is above the most allowed value, " + words);
        }
    }
    return v;
}

double checkChoice(const OptionRow& option, const std::string& text, const DataShape& shape) {
    const std::vector<std::string> words = choiceList(option.choices(shape));
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] == text) return static_cast<double>(i);
    }
    const char* task = shape.classification ? "a classification tree" : "a regression tree";
    failOption(option.name,
               "\"" + text + "\" is not one of " + joinChoices(words) +
                   (option.kind == OptionKind::Keyword ? std::string(" for ") + task : ""));
}

}  // namespace

Settings Settings::resolve(const RawOptions& raw, const DataShape& shape) {
    Settings settings;
    settings.shape_ = shape;
    for (const OptionRow& option : fitOptions()) {
        Value& setting = settings.values_[std::string(option.name)];
        if (option.kind == OptionKind::Flag) {
            setting = raw.flag(option.name);
            continue;
        }
        if (option.kind == OptionKind::Columns || option.kind == OptionKind::Tokens) {
            setting = raw.list(option.name);
            continue;
        }
        std::optional<std::string> text = raw.value(option.name);
        if (!text && option.derive != nullptr) text = option.derive(shape);
        if (!text && !option.value.empty()) text = std::string(option.value);
        if (!text) continue;  // none
        switch (option.kind) {
            case OptionKind::Count:
            case OptionKind::Real: setting = checkNumber(option, *text, shape); break;
            case OptionKind::Code: setting = checkChoice(option, *text, shape); break;
            case OptionKind::Keyword:
                checkChoice(option, *text, shape);
                setting = *text;
                break;
            default:
                if (text->empty()) failOption(option.name, "needs a value");
                setting = *text;
        }
    }
    return settings;
}

const Settings::Value& Settings::value(std::string_view name) const {
    const auto it = values_.find(name);
    if (it == values_.end()) throw std::logic_error("no setting " + std::string(name));
    return it->second;
}

double Settings::number(std::string_view name) const {
    const Value& v = value(name);
    return std::holds_alternative<double>(v) ? std::get<double>(v) : 0.0;
}

bool Settings::flag(std::string_view name) const {
    const Value& v = value(name);
    return std::holds_alternative<bool>(v) && std::get<bool>(v);
}

std::string Settings::text(std::string_view name) const {
    const Value& v = value(name);
    return std::holds_alternative<std::string>(v) ? std::get<std::string>(v) : std::string();
}

std::vector<std::string> Settings::list(std::string_view name) const {
    const Value& v = value(name);
    return std::holds_alternative<std::vector<std::string>>(v)
               ? std::get<std::vector<std::string>>(v)
               : std::vector<std::string>{};
}

bool Settings::has(std::string_view name) const {
    return !std::holds_alternative<std::monostate>(value(name));
}

void Settings::set(std::string_view name, std::string value) {
    values_[std::string(name)] = std::move(value);
}

}  // namespace arbolin::frontend

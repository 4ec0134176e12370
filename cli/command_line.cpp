// The command line as CLI11 parses it: the four commands with their
// arguments and help, and the fit options registered from the option table
// with help text, type names and bounds all derived from it.
#include <CLI/CLI.hpp>

#include <map>
#include <memory>

#include "cli/bundled_data.hpp"
#include "cli/commands.hpp"
#include "frontend/values.hpp"

namespace arbolin::cli {

using frontend::DataShape;
using frontend::formatNumber;
using frontend::OptionKind;
using frontend::OptionRow;
using frontend::RawOptions;

namespace {

std::string boundHelp(const OptionRow& option) {
    if (option.kind != OptionKind::Count && option.kind != OptionKind::Real) return "";
    const std::string least = formatNumber(option.lower);
    if (option.upper == nullptr || !option.upper(DataShape{})) {
        return option.upper == nullptr ? "" : "; " + least + " or more";
    }
    const std::string most = option.upperHelp.empty() ? formatNumber(*option.upper(DataShape{}))
                                                      : std::string(option.upperHelp);
    return "; from " + least + " to " + most;
}

std::string helpText(const OptionRow& option) {
    std::string text(option.help);
    if (option.kind == OptionKind::Columns || option.kind == OptionKind::Tokens) {
        text += "; the option given again adds to the list";
    }
    if (option.kind == OptionKind::Flag && option.defaultHelp == "off") return text;
    const std::string fallback =
        option.defaultHelp.empty() ? std::string(option.value) : std::string(option.defaultHelp);
    text += " [default: " + (fallback.empty() ? std::string("none") : fallback) +
            boundHelp(option) + "]";
    return text;
}

std::string typeName(const OptionRow& option) {
    switch (option.kind) {
        case OptionKind::Count: return "N";
        case OptionKind::Real: return "X";
        case OptionKind::Column: return "COLUMN";
        case OptionKind::Columns: return "COLUMN,...";
        case OptionKind::Tokens: return "TOKEN,...";
        case OptionKind::Path: return "FILE";
        case OptionKind::Keyword:
        case OptionKind::Code: {
            DataShape both{0, 0, true};
            std::string words(option.choices(both));
            both.classification = false;
            if (option.choices(both) != words) words += "|" + std::string(option.choices(both));
            return "{" + words + "}";
        }
        case OptionKind::Flag: return "";
    }
    return "";
}

// What CLI11 fills as it parses: a place for every option's text, of which
// only those given go on to the raw options.
struct Parsed {
    std::map<std::string, std::string> text;
    std::map<std::string, const CLI::Option*> options;
};

void addOption(CLI::App& command, RawOptions& raw, Parsed& parsed, const OptionRow& option) {
    const std::string flag = "--" + std::string(option.name);
    const std::string name(option.name);
    CLI::Option* added = nullptr;
    if (option.kind == OptionKind::Flag) {
        added = command.add_flag(flag, raw.flags[name], helpText(option));
    } else if (option.kind == OptionKind::Columns || option.kind == OptionKind::Tokens) {
        // One comma-separated value per flag, so that a list never takes
        // the data file after it for one more name.
        added = command.add_option(flag, raw.lists[name], helpText(option))
                    ->delimiter(',')
                    ->expected(1)
                    ->allow_extra_args(false)
                    ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    } else {
        added = command.add_option(flag, parsed.text[name], helpText(option));
        parsed.options[name] = added;
    }
    if (option.kind != OptionKind::Flag) added->type_name(typeName(option));
}

template <class Take>
void addOptions(CLI::App& command, RawOptions& raw, Take take) {
    // Lives as long as the command, which holds references into it.
    auto parsed = std::make_shared<Parsed>();
    for (const OptionRow& option : frontend::fitOptions()) {
        if (take(option.name)) addOption(command, raw, *parsed, option);
    }
    command.final_callback([&raw, parsed] {
        for (const auto& [name, option] : parsed->options) {
            if (option->count() > 0) raw.text[name] = parsed->text[name];
        }
    });
}

// Every row of the option table.
void addFitOptions(CLI::App& command, RawOptions& raw) {
    addOptions(command, raw, [](std::string_view) { return true; });
}

// The rows that say how CSV files are read.
void addReadingOptions(CLI::App& command, RawOptions& raw) {
    addOptions(command, raw, frontend::isReadingOption);
}

void addModelArgument(CLI::App& command, std::string& model) {
    command.add_option("model", model, "model JSON written by arbolin fit")
        ->required()
        ->type_name("MODEL.json");
}

}  // namespace

// ------------------------------------------------------------ commands

CLI::App* addFitCommand(CLI::App& app, FitArgs& args) {
    CLI::App* fit = app.add_subcommand("fit", "grow a tree from a CSV file and save it as JSON");
    std::string names;
    for (const std::string& n : bundledNames()) names += (names.empty() ? "" : ", ") + n;
    fit->add_option("data", args.data,
                    "CSV file with a header row, or a bundled data set: " + names)
        ->required()
        ->type_name("DATA");
    addFitOptions(*fit, args.options);
    fit->footer(
        "Missing values: an empty field, NA, NaN or ?, and those given to --missing. A column "
        "whose values are at least 90% numbers but not all gets a warning. The delimiter of a "
        "CSV file is the one of , ; and tab that splits its first line most. Classes and "
        "nominal levels are numbered "
        "from 0 in sorted order of their labels. A response with more than 50 classes, and "
        "more classes than a tenth of the rows, gets a warning before the tree grows.\n");
    return fit;
}

CLI::App* addShowCommand(CLI::App& app, ShowArgs& args) {
    CLI::App* show = app.add_subcommand(
        "show", "print a saved tree as rules, Graphviz or a drawing, or its pruning or importance");
    addModelArgument(*show, args.model);
    show->add_option("--format", args.format,
                     "text: indented rules; dot: Graphviz; svg: a drawing (with --pruning: the "
                     "plot of risk against leaves) [default: text]")
        ->check(CLI::IsMember({"text", "dot", "svg"}))
        ->type_name("{text|dot|svg}");
    CLI::Option* pruning = show->add_flag(
        "--pruning", args.pruning,
        "the cost-complexity sequence: alpha, leaves, risk, and the cross-validated risk with "
        "its standard error when fit --prune cv measured it");
    CLI::Option* importance = show->add_flag(
        "--importance", args.importance,
        "each predictor's share of the summed gains of the splits made on it");
    show->add_flag("--surrogates", args.surrogates,
                   "with --importance: add each surrogate's own gain as a split, in full, to its "
                   "predictor")
        ->needs(importance);
    pruning->excludes(importance);
    show->add_option("--output", args.output, "write to this file [default: standard output]")
        ->type_name("FILE");
    return show;
}

CLI::App* addPredictCommand(CLI::App& app, PredictArgs& args) {
    CLI::App* predict =
        app.add_subcommand("predict", "apply a saved tree to the rows of a CSV file");
    addModelArgument(*predict, args.model);
    predict
        ->add_option("data", args.data,
                     "CSV file with a header row naming the predictors, or a bundled data set")
        ->required()
        ->type_name("DATA");
    predict->add_option("--output", args.output, "write to this file [default: standard output]")
        ->type_name("FILE");
    addReadingOptions(*predict, args.options);
    predict->footer(
        "Writes one row per data row: the prediction, in classification the class shares "
        "(prob_LABEL), and the number of the node the row reached.\n");
    return predict;
}

CLI::App* addPruneCommand(CLI::App& app, PruneArgs& args) {
    CLI::App* prune = app.add_subcommand(
        "prune", "cut a saved tree back to a subtree of its cost-complexity sequence");
    addModelArgument(*prune, args.model);
    CLI::Option* alpha = prune->add_option(
        "--alpha", args.alpha,
        "the subtree for this alpha, the risk charged per leaf (see show --pruning)");
    alpha->type_name("X")->check(CLI::NonNegativeNumber);
    CLI::Option* leaves =
        prune->add_option("--leaves", args.leaves, "the largest subtree of at most this many leaves");
    leaves->type_name("N")->check(CLI::PositiveNumber);
    alpha->excludes(leaves);
    prune->add_option("--output", args.output, "where to write the pruned model")
        ->required()
        ->type_name("FILE");
    prune->footer(
        "Risk is in units where the training weights sum to 1: the misclassification cost in "
        "classification, the squared error in regression. A pruned model keeps the sequence "
        "of the tree as grown, and can be pruned further but not grown back.\n");
    return prune;
}

CLI::App* addDemoCommand(CLI::App& app, DemoArgs& args) {
    CLI::App* demo = app.add_subcommand(
        "demo", "grow, save, show and apply trees on the bundled iris and diabetes data");
    demo->add_option("--output-dir", args.outputDir,
                     "where the demo writes its models and predictions [default: a folder "
                     "arbolin-demo in the temporary directory]")
        ->type_name("DIR");
    return demo;
}

}  // namespace arbolin::cli

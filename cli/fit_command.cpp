#include <CLI/CLI.hpp>

#include <chrono>
#include <filesystem>
#include <iostream>

#include "cli/bundled_data.hpp"
#include "cli/commands.hpp"
#include "cli/cost_file.hpp"
#include "cli/csv_table.hpp"
#include "cli/reading_options.hpp"
#include "cli/errors.hpp"
#include "cli/model.hpp"
#include "cli/module_call.hpp"
#include "cli/render.hpp"
#include "cli/search_cost.hpp"
#include "cli/summary.hpp"
#include "cli/training_data.hpp"
#include "cli/tree_view.hpp"
#include "cli/values.hpp"

namespace arbolin::cli {

namespace fs = std::filesystem;

namespace {

std::string defaultOutput(const std::string& dataPath) {
    return fs::path(dataPath).stem().string() + ".model.json";
}

void checkWritable(const std::string& path) {
    const fs::path parent = fs::path(path).parent_path();
    std::error_code error;
    if (!parent.empty() && !fs::is_directory(parent, error)) {
        failOption("output", "the folder " + parent.string() + " does not exist");
    }
    if (fs::is_directory(path, error)) failOption("output", path + " is a folder");
}

Model assemble(const TrainingData& data, const Settings& settings, std::vector<double> cost,
               std::vector<numora::ArrayPtr> outputs) {
    Model model;
    model.predictors = data.predictors;
    model.response = data.response;
    model.classification = data.classification;
    model.classes = data.classes;
    model.costs = std::move(cost);
    model.weights = data.weights;
    model.single = settings.flag("single");
    model.options = settings.toJson();
    model.outputs = std::move(outputs);
    return model;
}

// A response taken as classes that has nearly as many values as rows (an
// identifier, or a measurement) makes a tree that is slow to grow and a
// model that is large, and is seldom what was meant. The rule: more than
// 50 classes, and more than a tenth of the rows.
void warnOfManyClasses(const TrainingData& data) {
    const std::uint64_t K = data.classes.size();
    if (!data.classification || K <= 50 || K * 10 <= data.rows) return;
    std::cout.flush();
    std::cerr << "arbolin: warning: the response " << data.response << " has " << K
              << " distinct values in " << data.rows
              << " rows, each of them a class; growing may take long and the model may be large.";
    if (data.classes.numbers()) {
        std::cerr << " Its values are numbers: for a regression tree, use --regression.\n";
    } else {
        std::cerr << " If it is not what the tree should predict, name another with --response.\n";
    }
}

}  // namespace

CLI::App* addFitCommand(CLI::App& app, FitArgs& args) {
    CLI::App* fit = app.add_subcommand("fit", "grow a tree from a CSV file and save it as JSON");
    fit->add_option("data", args.data, "CSV file with a header row, or a bundled data set: " +
                                           [] {
                                               std::string names;
                                               for (const auto& n : bundledNames()) names += (names.empty() ? "" : ", ") + n;
                                               return names;
                                           }())
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

void runFit(const FitArgs& args) {
    const auto start = std::chrono::steady_clock::now();
    const std::string path = resolveDataFile(args.data);
    const CsvFormat format = csvFormat(args.options);
    const CsvTable table = CsvTable::read(path, format);
    table.notices().print(std::cerr);
    const TrainingData data = prepareTrainingData(table, args.options);
    data.notices.print(std::cerr);
    Settings settings = Settings::resolve(args.options, data.shape());
    settings.set("response", data.response);
    checkSearchCost(data, settings);

    std::vector<double> cost;
    if (settings.has("cost")) {
        if (!data.classification) failOption("cost", "a regression tree takes no costs");
        Notices notices;
        cost = readCostMatrix(settings.text("cost"), data.classes, format, settings.flag("single"),
                              notices);
        notices.print(std::cerr);
    }
    const std::string output =
        settings.has("output") ? settings.text("output") : defaultOutput(path);
    checkWritable(output);

    if (data.leftOut != 0) {
        std::cout << "Left out " << data.leftOut << " of " << table.rowCount()
                  << " rows: their response (" << data.response << ") is missing.\n";
    }
    warnOfManyClasses(data);
    ModuleInputs inputs(data, settings, cost, settings.flag("single"));
    const auto grown = std::chrono::steady_clock::now();
    std::vector<numora::ArrayPtr> outputs = growTree(inputs);
    const double fitSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - grown).count();

    Model model = assemble(data, settings, std::move(cost), std::move(outputs));
    const TreeView tree = readTree(model, "the module's outputs");
    const TreeShape shape = treeShape(tree);
    const double score = trainingScore(tree, data);
    model.training = {{"file", path},
                      {"rows", data.rows},
                      {"rows_left_out", data.leftOut},
                      {"fit_seconds", fitSeconds},
                      {"module", modulePath()}};
    saveModel(model, output);

    std::cout << (data.classification ? "Classification" : "Regression") << " tree for "
              << data.response;
    if (data.classification) {
        std::cout << " (" << data.classes.size() << (data.classes.size() == 1 ? " class)" : " classes)");
    }
    std::cout << ", " << data.predictors.size() << " predictors, " << data.rows << " rows, "
              << settings.text("criterion") << (model.single ? ", single precision" : "")
              << ":\n";
    if (!settings.flag("quiet")) renderText(std::cout, model, tree);
    const double total =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::cout << "nodes " << shape.nodes << ", leaves " << shape.leaves << ", depth "
              << shape.depth << '\n'
              << (data.classification
                      ? std::string(data.weights.empty() ? "training accuracy "
                                                         : "training accuracy (weighted) ")
                      : std::string(data.weights.empty() ? "training R-squared "
                                                         : "training R-squared (weighted) "))
              << formatShort(score, 4) << '\n'
              << "time " << formatShort(total, 3) << " s (growing " << formatShort(fitSeconds, 3)
              << " s)\n"
              << "model written to " << output << '\n';
}

}  // namespace arbolin::cli

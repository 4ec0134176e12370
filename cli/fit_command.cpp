// arbolin fit: one fit from a CSV file to a model file. The data is read
// here (csv.cpp); the front-end library prepares it (frontend/data.cpp),
// settles the options (frontend/module_call.cpp), calls the module and
// reads its outputs back as a tree (frontend/model.cpp); the tree is
// printed (frontend/render.cpp) and saved (frontend/model_file.cpp).
#include <chrono>
#include <filesystem>
#include <iostream>
#include <optional>

#include "cli/bundled_data.hpp"
#include "cli/commands.hpp"
#include "cli/csv.hpp"
#include "cli/output_file.hpp"
#include "cli/progress.hpp"
#include "frontend/model.hpp"
#include "frontend/module_call.hpp"
#include "frontend/pruning.hpp"
#include "frontend/render.hpp"

namespace arbolin::cli {

namespace fs = std::filesystem;
using namespace arbolin::frontend;

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

void printPruned(const PruningRecord& record, double seconds) {
    const PruningStep& chosen = record.steps[record.chosen];
    std::cout << "pruned to " << chosen.leaves << (chosen.leaves == 1 ? " leaf" : " leaves")
              << " (step " << record.chosen << " of " << record.steps.size() << ", alpha "
              << formatShort(chosen.alpha, 6);
    if (record.folds > 0) {
        std::cout << ", chosen by " << record.folds << "-fold cross-validation, rule "
                  << record.rule << ", in " << formatShort(seconds, 3)
                  << " s; cross-validated risk " << formatShort(chosen.cvRisk, 4) << ", std error "
                  << formatShort(chosen.cvError, 3);
    }
    std::cout << "); arbolin show --pruning lists the sequence\n";
}

}  // namespace

void runFit(const FitArgs& args) {
    const auto start = std::chrono::steady_clock::now();
    const std::string path = resolveDataFile(args.data);
    const CsvFormat format = csvFormat(args.options);
    std::optional<CsvTable> table(CsvTable::read(path, format));
    printNotices(table->notices());
    const TrainingData data = prepareTrainingData(*table, args.options);
    printNotices(data.notices);
    // The file's text is not needed once the data are prepared: it goes
    // before the tree is grown, which keeps the peak down.
    const std::uint64_t fileRows = table->rowCount();
    table.reset();
    const Settings settings = fitSettings(data, args.options);

    std::vector<double> cost;
    if (settings.has("cost")) {
        Notices notices;
        cost = readCostFile(settings.text("cost"), data.classes, format, settings.flag("single"),
                            notices);
        printNotices(notices);
    }
    const std::string output =
        settings.has("output") ? settings.text("output") : defaultOutput(path);
    checkWritable(output);

    if (data.leftOut != 0) {
        std::cout << "Left out " << data.leftOut << " of " << fileRows << " rows: their response ("
                  << data.response << ") is missing.\n";
    }
    warnOfManyClasses(data);
    const std::string module = modulePath(ARBOLIN_MODULE_PATH);
    const numora::Module loaded(module);
    Progress progress(!settings.flag("quiet") && settings.number("verbose") == 0 &&
                      Progress::onTerminal());
    progress.start("growing the tree");
    Grown grown = growModel(loaded, data, settings, std::move(cost));
    const auto grownAt = std::chrono::steady_clock::now();
    progress.start("cross-validating");
    pruneGrown(grown, loaded, data, settings, 0, [&](std::uint64_t done, std::uint64_t total) {
        progress.update("fold " + std::to_string(done) + " of " + std::to_string(total) + " done");
    });
    progress.finish();
    const double pruneSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - grownAt).count();
    Model& model = grown.model;
    const TreeShape shape = treeShape(grown.tree);
    const double score = trainingScore(grown.tree, data);
    model.training = trainingJson({path, data.rows, data.leftOut, grown.seconds, module});
    OutputFile file(output);
    file.stream() << modelText(model);
    file.commit();

    std::cout << (data.classification ? "Classification" : "Regression") << " tree for "
              << data.response;
    if (data.classification) {
        std::cout << " (" << data.classes.size()
                  << (data.classes.size() == 1 ? " class)" : " classes)");
    }
    std::cout << ", " << data.predictors.size() << " predictors, " << data.rows << " rows, "
              << settings.text("criterion") << (model.single ? ", single precision" : "") << ":\n";
    if (!settings.flag("quiet")) renderText(std::cout, model, grown.tree);
    const double total =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (model.pruning) printPruned(*model.pruning, pruneSeconds);
    std::cout << "nodes " << shape.nodes << ", leaves " << shape.leaves << ", depth " << shape.depth
              << '\n'
              << (data.classification
                      ? std::string(data.weights.empty() ? "training accuracy "
                                                         : "training accuracy (weighted) ")
                      : std::string(data.weights.empty() ? "training R-squared "
                                                         : "training R-squared (weighted) "))
              << formatShort(score, 4) << '\n'
              << "time " << formatShort(total, 3) << " s (growing " << formatShort(grown.seconds, 3)
              << " s)\n"
              << "model written to " << output << '\n';
}

}  // namespace arbolin::cli

// The subcommands of arbolin: each adds itself to the command line and runs
// from what was parsed, with the front-end library doing the work between
// the files it reads and the text it prints.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "frontend/errors.hpp"
#include "frontend/options.hpp"

namespace CLI {
class App;
}

namespace arbolin::cli {

struct FitArgs {
    std::string data;
    frontend::RawOptions options;
};
struct ShowArgs {
    std::string model;
    std::string format = "text";
    std::string output;
    bool pruning = false;     // the cost-complexity sequence instead of the tree
    bool importance = false;  // each predictor's share of the split gains
    bool surrogates = false;  // with importance: surrogate gains added
};
struct PruneArgs {
    std::string model;
    std::optional<double> alpha;
    std::optional<std::uint64_t> leaves;
    std::string output;
};
struct PredictArgs {
    std::string model;
    std::string data;
    std::string output;
    frontend::RawOptions options;  // how the data file is read
};
struct DemoArgs {
    std::string outputDir;
};

// Each command with its arguments, options and help (command_line.cpp).
CLI::App* addFitCommand(CLI::App& app, FitArgs& args);
CLI::App* addShowCommand(CLI::App& app, ShowArgs& args);
CLI::App* addPredictCommand(CLI::App& app, PredictArgs& args);
CLI::App* addDemoCommand(CLI::App& app, DemoArgs& args);
CLI::App* addPruneCommand(CLI::App& app, PruneArgs& args);

// Each command's work (fit_command.cpp, ...).
void runFit(const FitArgs& args);
void runShow(const ShowArgs& args);
void runPredict(const PredictArgs& args);
void runDemo(const DemoArgs& args);
void runPrune(const PruneArgs& args);

// "arbolin: note: TEXT" or "arbolin: warning: TEXT" on standard error, one
// per line; standard output is flushed first so that the two keep their
// order.
void printNotices(const frontend::Notices& notices);

// Parses `args` (without the program name) and runs the command; returns
// the exit status. Errors are reported on standard error.
int runCommandLine(const std::vector<std::string>& args);

}  // namespace arbolin::cli

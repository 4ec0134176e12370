// The subcommands of arbolin: each adds itself to the command line and runs
// from what was parsed.
#pragma once

#include <string>
#include <vector>

#include "cli/settings.hpp"

namespace CLI {
class App;
}

namespace arbolin::cli {

struct FitArgs {
    std::string data;
    RawOptions options;
};
struct ShowArgs {
    std::string model;
    std::string format = "text";
    std::string output;
};
struct PredictArgs {
    std::string model;
    std::string data;
    std::string output;
    RawOptions options;  // how the data file is read
};
struct DemoArgs {
    std::string outputDir;
};

CLI::App* addFitCommand(CLI::App& app, FitArgs& args);
CLI::App* addShowCommand(CLI::App& app, ShowArgs& args);
CLI::App* addPredictCommand(CLI::App& app, PredictArgs& args);
CLI::App* addDemoCommand(CLI::App& app, DemoArgs& args);

void runFit(const FitArgs& args);
void runShow(const ShowArgs& args);
void runPredict(const PredictArgs& args);
void runDemo(const DemoArgs& args);

// Parses `args` (without the program name) and runs the command; returns
// the exit status. Errors are reported on standard error.
int runCommandLine(const std::vector<std::string>& args);

}  // namespace arbolin::cli

#include <filesystem>
#include <fstream>
#include <iostream>

#include "cli/commands.hpp"

namespace arbolin::cli {

namespace fs = std::filesystem;
using frontend::UserError;

namespace {

// Runs one command line as a user would type it, after echoing it.
void step(const std::vector<std::string>& args) {
    std::cout << "\n$ arbolin";
    for (const std::string& a : args) std::cout << ' ' << a;
    std::cout << '\n';
    std::cout.flush();
    const int status = runCommandLine(args);
    if (status != frontend::kExitOk) throw UserError("the demo stopped: that step failed", status);
}

void printHead(const std::string& path, int lines) {
    std::ifstream in(path);
    std::string line;
    for (int i = 0; i < lines && std::getline(in, line); ++i) std::cout << "  " << line << '\n';
    std::cout << "  ...\n";
}

}  // namespace

void runDemo(const DemoArgs& args) {
    const fs::path dir = args.outputDir.empty() ? fs::temp_directory_path() / "arbolin-demo"
                                                : fs::path(args.outputDir);
    std::error_code error;
    fs::create_directories(dir, error);
    if (error) throw UserError("cannot make the folder " + dir.string() + ": " + error.message());
    const std::string iris = (dir / "iris.model.json").string();
    const std::string predictions = (dir / "iris.predictions.csv").string();
    const std::string diabetes = (dir / "diabetes.model.json").string();

    std::cout << "A classification tree for Fisher's iris flowers, from the bundled data:\n";
    step({"fit", "iris", "--response", "species", "--output", iris});
    step({"predict", iris, "iris", "--output", predictions});
    printHead(predictions, 4);
    std::cout << "\nA small regression tree for the diabetes data, sex as a nominal predictor:\n";
    step({"fit", "diabetes", "--response", "progression", "--nominal", "sex", "--max-splits", "6",
          "--surrogates", "2", "--output", diabetes});
    step({"show", diabetes, "--format", "dot", "--output", (dir / "diabetes.dot").string()});
    std::cout << "Graphviz: dot -Tpng " << (dir / "diabetes.dot").string() << " > tree.png\n";
}

}  // namespace arbolin::cli

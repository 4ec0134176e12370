// arbolin: grow, show and apply decision trees from CSV files, through the
// arbolin module loaded by the numora host runtime.
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <csignal>
#include <iostream>
#include <new>

#include "cli/commands.hpp"
#include "cli/errors.hpp"
#include "host/numora_host.hpp"

namespace arbolin::cli {

namespace {

void stopOnInterrupt(int) {
    // Outside the module: stop at once. Inside, the loader's own handler
    // turns Ctrl-C into numora::Interrupt.
    static const char text[] = "arbolin: interrupted\n";
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, text, sizeof text - 1);
    ::_exit(kExitInterrupted);
}

int report(const std::string& text, int status) {
    std::cout.flush();
    std::cerr << "arbolin: " << text << '\n';
    return status;
}

}  // namespace

int runCommandLine(const std::vector<std::string>& args) {
    CLI::App app("arbolin grows decision trees from CSV files with the arbolin module.", "arbolin");
    app.require_subcommand(1);
    app.set_help_all_flag("--help-all", "print the help of every command");
    FitArgs fit;
    ShowArgs show;
    PredictArgs predict;
    DemoArgs demo;
    CLI::App* fitCommand = addFitCommand(app, fit);
    CLI::App* showCommand = addShowCommand(app, show);
    CLI::App* predictCommand = addPredictCommand(app, predict);
    CLI::App* demoCommand = addDemoCommand(app, demo);

    std::vector<const char*> argv{"arbolin"};
    for (const std::string& a : args) argv.push_back(a.c_str());
    try {
        app.parse(static_cast<int>(argv.size()), argv.data());
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        return report(std::string(e.what()) + "\nRun 'arbolin --help' or 'arbolin COMMAND --help'.",
                      kExitBadUsage);
    }
    try {
        if (fitCommand->parsed()) runFit(fit);
        if (showCommand->parsed()) runShow(show);
        if (predictCommand->parsed()) runPredict(predict);
        if (demoCommand->parsed()) runDemo(demo);
        std::cout.flush();
        return kExitOk;
    } catch (const UserError& e) {
        return report(e.what(), e.status());
    } catch (const numora::Interrupt&) {
        return report("interrupted", kExitInterrupted);
    } catch (const numora::Exception& e) {
        const bool host = e.identifier().starts_with("numora:");
        return report(std::string(host ? "the host runtime" : "the module") + " raised " +
                          e.identifier() + ": " + e.text(),
                      kExitHostError);
    } catch (const std::bad_alloc&) {
        return report("out of memory", kExitBadInput);
    } catch (const std::exception& e) {
        return report(std::string("unexpected error: ") + e.what(), kExitBadInput);
    }
}

}  // namespace arbolin::cli

int main(int argc, char** argv) {
    std::signal(SIGINT, arbolin::cli::stopOnInterrupt);
    // The module's warnings go to standard error, with their identifier.
    numora::setWarningSink([](const numora::Message& message, const std::string& text) {
        std::cout.flush();
        std::cerr << "arbolin: warning from the module: " << message.identifier() << ": " << text
                  << '\n';
    });
    return arbolin::cli::runCommandLine(std::vector<std::string>(argv + 1, argv + argc));
}

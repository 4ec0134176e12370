// arbolin: grow, show and apply decision trees from CSV files, through the
// arbolin module loaded by the numora host runtime.
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <new>

#include "cli/commands.hpp"
#include "host/numora_host.hpp"

namespace arbolin::cli {

using namespace arbolin::frontend;  // the exit statuses, UserError, Notices

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

// Standard output as std::cout writes it, passed straight on (so that it
// stays in order with what the module prints through stdio), keeping the
// reason of the first failed write, which stdio does not keep.
class RecordingBuffer : public std::streambuf {
public:
    explicit RecordingBuffer(std::streambuf* inner) : inner_(inner) {}
    int error() const noexcept { return error_; }

protected:
    int_type overflow(int_type c) override {
        if (traits_type::eq_int_type(c, traits_type::eof())) {
            return sync() == 0 ? traits_type::not_eof(c) : c;
        }
        errno = 0;
        const int_type done = inner_->sputc(traits_type::to_char_type(c));
        if (traits_type::eq_int_type(done, traits_type::eof())) note();
        return done;
    }
    std::streamsize xsputn(const char* s, std::streamsize n) override {
        errno = 0;
        const std::streamsize done = inner_->sputn(s, n);
        if (done != n) note();
        return done;
    }
    int sync() override {
        errno = 0;
        const int done = inner_->pubsync();
        if (done != 0) note();
        return done;
    }

private:
    std::streambuf* inner_;
    int error_ = 0;
    void note() {
        if (error_ == 0) error_ = errno != 0 ? errno : EIO;
    }
};

RecordingBuffer* recorder = nullptr;

std::string versionText() {
    return std::string("arbolin ") + ARBOLIN_VERSION + " (module interface " +
           std::to_string(kCalyxApiMajor) + "." + std::to_string(kCalyxApiMinor) + ")";
}

// What went to standard output must have arrived: a full disk or a closed
// pipe is an error like any other.
int checkStandardOutput(int status) {
    std::cout.flush();
    errno = 0;
    const bool flushed = std::fflush(stdout) == 0;
    const int flushError = errno;
    if (std::cout && flushed && !std::ferror(stdout)) return status;
    int error = recorder != nullptr ? recorder->error() : 0;
    if (error == 0) error = flushError;
    std::cout.clear();
    std::clearerr(stdout);
    const std::string reason = error != 0 ? std::strerror(error) : "the write failed";
    std::cerr << "arbolin: cannot write to standard output: " << reason << '\n';
    return status == kExitOk ? kExitBadInput : status;
}

}  // namespace

void printNotices(const Notices& notices) {
    if (notices.list().empty()) return;
    std::cout.flush();
    for (const Notices::Notice& n : notices.list()) {
        std::cerr << "arbolin: " << (n.level == Notices::Level::Note ? "note: " : "warning: ")
                  << n.text << '\n';
    }
}

int runCommandLine(const std::vector<std::string>& args) {
    CLI::App app("arbolin grows decision trees from CSV files with the arbolin module.", "arbolin");
    app.require_subcommand(1);
    app.set_help_all_flag("--help-all", "print the help of every command");
    app.set_version_flag("--version", versionText(), "print the version and exit");
    FitArgs fit;
    ShowArgs show;
    PredictArgs predict;
    DemoArgs demo;
    PruneArgs prune;
    CLI::App* fitCommand = addFitCommand(app, fit);
    CLI::App* showCommand = addShowCommand(app, show);
    CLI::App* pruneCommand = addPruneCommand(app, prune);
    CLI::App* predictCommand = addPredictCommand(app, predict);
    CLI::App* demoCommand = addDemoCommand(app, demo);

    // A first word that is neither a command nor an option of arbolin itself
    // is not left to the parser, which would only say that a command is
    // required.
    std::string commands;
    bool known = false;
    for (const CLI::App* c : {fitCommand, showCommand, pruneCommand, predictCommand, demoCommand}) {
        commands += (commands.empty() ? "" : ", ") + c->get_name();
        known = known || (!args.empty() && args[0] == c->get_name());
    }
    const bool own = !args.empty() && (args[0] == "-h" || args[0] == "--help" ||
                                       args[0] == "--help-all" || args[0] == "--version");
    if (!known && !own) {
        std::string problem = "no command given";
        if (!args.empty()) {
            problem = "'" + args[0] + "' is not " +
                      (args[0].starts_with('-') ? "an option of arbolin" : "a command");
        }
        return report(problem + "; the commands are " + commands +
                          ".\nRun 'arbolin --help' or 'arbolin COMMAND --help'.",
                      kExitBadUsage);
    }

    std::vector<const char*> argv{"arbolin"};
    for (const std::string& a : args) argv.push_back(a.c_str());
    try {
        app.parse(static_cast<int>(argv.size()), argv.data());
    } catch (const CLI::CallForHelp& e) {
        return checkStandardOutput(app.exit(e));
    } catch (const CLI::CallForAllHelp& e) {
        return checkStandardOutput(app.exit(e));
    } catch (const CLI::CallForVersion& e) {
        return checkStandardOutput(app.exit(e));
    } catch (const CLI::ParseError& e) {
        return report(std::string(e.what()) + "\nRun 'arbolin --help' or 'arbolin COMMAND --help'.",
                      kExitBadUsage);
    }
    try {
        if (fitCommand->parsed()) runFit(fit);
        if (showCommand->parsed()) runShow(show);
        if (predictCommand->parsed()) runPredict(predict);
        if (demoCommand->parsed()) runDemo(demo);
        if (pruneCommand->parsed()) runPrune(prune);
        return checkStandardOutput(kExitOk);
    } catch (const UserError& e) {
        return report(e.what(), checkStandardOutput(e.status()));
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
    std::streambuf* const standardOutput = std::cout.rdbuf();
    arbolin::cli::RecordingBuffer recorder(standardOutput);
    arbolin::cli::recorder = &recorder;
    std::cout.rdbuf(&recorder);
    // The module's warnings go to standard error, with their identifier.
    numora::setWarningSink([](const numora::Message& message, const std::string& text) {
        std::cout.flush();
        std::cerr << "arbolin: warning from the module: " << message.identifier() << ": " << text
                  << '\n';
    });
    const int status =
        arbolin::cli::runCommandLine(std::vector<std::string>(argv + 1, argv + argc));
    std::cout.rdbuf(standardOutput);  // the recorder ends with main
    arbolin::cli::recorder = nullptr;
    return status;
}

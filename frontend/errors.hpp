// What a front end tells its user: a problem with something they gave,
// which stops the work, and notices, which do not. The command line prints
// both on standard error; the Python package raises the one and warns of
// the other.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace arbolin::frontend {

// The command line's exit statuses; a UserError carries the one it ends in.
enum ExitStatus : int {
    kExitOk = 0,
    kExitBadInput = 1,   // a data file, cost file or model that cannot be used
    kExitBadUsage = 2,   // an unknown, malformed or out-of-range option
    kExitHostError = 3,  // the module or the host runtime raised an error
    kExitInterrupted = 130,
};

// A problem with something the user gave. The text names where it is: the
// file, line and column, the model entry, or the option.
class UserError : public std::runtime_error {
public:
    explicit UserError(const std::string& text, int status = kExitBadInput)
        : std::runtime_error(text), status_(status) {}
    int status() const noexcept { return status_; }

private:
    int status_;
};

// "option --max-splits: PROBLEM". Messages spell options as the command
// line does; the Python package respells them as keywords.
[[noreturn]] inline void failOption(std::string_view option, const std::string& problem) {
    throw UserError("option --" + std::string(option) + ": " + problem, kExitBadUsage);
}

// What is worth telling the user without stopping: a choice made for them,
// or a value that looks like a mistake.
class Notices {
public:
    enum class Level { Note, Warning };
    struct Notice {
        Level level;
        std::string text;
    };

    void note(std::string text) { list_.push_back({Level::Note, std::move(text)}); }
    void warn(std::string text) { list_.push_back({Level::Warning, std::move(text)}); }
    void append(const Notices& other) {
        list_.insert(list_.end(), other.list_.begin(), other.list_.end());
    }
    const std::vector<Notice>& list() const noexcept { return list_; }

private:
    std::vector<Notice> list_;
};

}  // namespace arbolin::frontend

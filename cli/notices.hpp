// What is worth telling the user about a file without stopping: a choice
// made for them, or a value that looks like a mistake. Readers gather them;
// the command prints them on standard error.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace arbolin::cli {

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

    // "arbolin: note: TEXT" or "arbolin: warning: TEXT", one per line;
    // standard output is flushed first so that the two keep their order.
    void print(std::ostream& err) const;

private:
    std::vector<Notice> list_;
};

}  // namespace arbolin::cli

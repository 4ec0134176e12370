// Progress of long work on a terminal: nothing for the first two seconds,
// then one line on standard error, rewritten in place each half second
// with what is done and the time taken, and wiped when the work ends.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace arbolin::cli {

class Progress {
public:
    // Shows nothing unless `shown`: standard error is a terminal and the
    // user did not ask for quiet.
    explicit Progress(bool shown);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // A new piece of work, timed from now: "growing the tree".
    void start(const std::string& what);
    // How far it is: "fold 3 of 10 done".
    void update(const std::string& done);
    // Wipes the line, if one was shown.
    void finish();

    // Standard error is a terminal.
    static bool onTerminal();

private:
    bool shown_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::thread ticker_;
    bool stop_ = false;
    bool working_ = false;
    bool drawn_ = false;
    std::string what_, done_;
    std::chrono::steady_clock::time_point since_;

    void tick();
    void wipe();  // with the mutex held
};

}  // namespace arbolin::cli

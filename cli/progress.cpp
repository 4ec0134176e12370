#include "cli/progress.hpp"

#include <unistd.h>

#include <cstdio>

#include "frontend/values.hpp"

namespace arbolin::cli {

namespace {

constexpr auto kQuietFor = std::chrono::seconds(2);
constexpr auto kEvery = std::chrono::milliseconds(500);

}  // namespace

bool Progress::onTerminal() { return ::isatty(STDERR_FILENO) == 1; }

Progress::Progress(bool shown) : shown_(shown) {
    if (shown_) ticker_ = std::thread([this] { tick(); });
}

Progress::~Progress() {
    if (!shown_) return;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
        wipe();
    }
    wake_.notify_all();
    ticker_.join();
}

void Progress::start(const std::string& what) {
    const std::lock_guard<std::mutex> lock(mutex_);
    what_ = what;
    done_.clear();
    since_ = std::chrono::steady_clock::now();
    working_ = true;
}

void Progress::update(const std::string& done) {
    const std::lock_guard<std::mutex> lock(mutex_);
    done_ = done;
}

void Progress::finish() {
    const std::lock_guard<std::mutex> lock(mutex_);
    working_ = false;
    wipe();
}

void Progress::wipe() {
    if (!drawn_) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    drawn_ = false;
}

void Progress::tick() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stop_) {
        wake_.wait_for(lock, kEvery);
        if (stop_ || !working_) continue;
        const auto elapsed = std::chrono::steady_clock::now() - since_;
        if (elapsed < kQuietFor) continue;
        const double seconds = std::chrono::duration<double>(elapsed).count();
        const std::string line = what_ + (done_.empty() ? "" : ": " + done_) + ", " +
                                 frontend::formatShort(seconds, 2) + " s";
        std::fprintf(stderr, "\r\033[K%s", line.c_str());
        std::fflush(stderr);
        drawn_ = true;
    }
}

}  // namespace arbolin::cli

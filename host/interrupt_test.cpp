#include <atomic>
#include <csignal>
#include <exception>
#include <thread>

#include <gtest/gtest.h>

#include "host/numora_host.hpp"

namespace {

std::atomic<int> outsideHandlerCalls{0};
extern "C" void outsideHandler(int) {
    outsideHandlerCalls.fetch_add(1);
}

TEST(Interrupt, NoRequestNoThrow) {
    numora::clearInterrupt();
    EXPECT_NO_THROW(hostInterruptCheck());
}

TEST(Interrupt, RequestThrowsOnAWorkerThread) {
    numora::clearInterrupt();
    std::atomic<bool> started{false};
    std::exception_ptr caught;
    std::thread worker([&] {
        try {
            started = true;
            for (;;) hostInterruptCheck();  // a worker polling between steps
        } catch (...) {
            caught = std::current_exception();
        }
    });
    while (!started) std::this_thread::yield();
    numora::requestInterrupt();
    worker.join();
    numora::clearInterrupt();
    ASSERT_TRUE(caught);
    try {
        std::rethrow_exception(caught);
    } catch (const numora::Interrupt& e) {
        EXPECT_EQ(e.identifier(), "numora:interrupt");
        EXPECT_STREQ(e.what(), "Operation terminated by user.");
    }
}

TEST(Interrupt, ScopeTurnsSigintIntoARequestAndRestoresTheHandler) {
    numora::clearInterrupt();
    struct sigaction mine {};
    mine.sa_handler = outsideHandler;
    sigemptyset(&mine.sa_mask);
    struct sigaction before {};
    ASSERT_EQ(sigaction(SIGINT, &mine, &before), 0);
    {
        numora::InterruptScope scope;
        std::raise(SIGINT);
        EXPECT_TRUE(numora::interruptRequested());
        EXPECT_THROW(hostInterruptCheck(), numora::Interrupt);
        EXPECT_EQ(outsideHandlerCalls.load(), 0);
    }
    EXPECT_FALSE(numora::interruptRequested());  // cleared with the scope
    std::raise(SIGINT);
    EXPECT_EQ(outsideHandlerCalls.load(), 1);  // the outside handler is back
    EXPECT_FALSE(numora::interruptRequested());
    sigaction(SIGINT, &before, nullptr);
}

}  // namespace

// The host around a module call: host functions by name, the interrupt flag
// and SIGINT, calyxPrintf, loading modules (the binding's round trips call
// host functions, trapped or not; every module test loads the tree module).
#include <atomic>
#include <csignal>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "host/numora_host.hpp"

namespace {

using numora::ArrayPtr;

// outputs[0] = 2 * inputs[0], as a double scalar.
void twice(int, cxArray** outputs, int, cxArray** inputs) {
    outputs[0] = numora::cxCreateDoubleScalar(2.0 * cxGetScalar(inputs[0]));
}

// The identifier and text of the host error that `f` raises.
std::pair<std::string, std::string> raised(const std::function<void()>& f) {
    try {
        f();
    } catch (const numora::Exception& e) {
        return {e.identifier(), e.text()};
    }
    return {"no exception", ""};
}

// A host function's own error, trapped and raised again, is the binding's
// round trip (test_python_error_in_host_function_comes_out_unchanged).
TEST(HostFunctions, ThrowNeedsAnExceptionObject) {
    ArrayPtr notAnException(numora::cxCreateDoubleScalar(1.0));
    cxArray* inputs[1] = {notAnException.get()};
    EXPECT_EQ(raised([&] { calyxCallNumora(0, nullptr, 1, inputs, "throw"); }).first,
              "numora:function:throw:badInput");
}

TEST(HostFunctions, ConcurrentCallsWhileTheRegistryChanges) {
    numora::registerFunction("twice", twice);
    std::atomic<int> good{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < 4; ++t) {
        workers.emplace_back([&good, t] {
            for (int i = 0; i < 500; ++i) {
                ArrayPtr in(numora::cxCreateDoubleScalar(t + i));
                cxArray* inputs[1] = {in.get()};
                cxArray* outputs[1] = {nullptr};
                calyxCallNumora(1, outputs, 1, inputs, "twice");
                ArrayPtr out(outputs[0]);
                if (cxGetScalar(out.get()) == 2.0 * (t + i)) ++good;
            }
        });
    }
    for (int i = 0; i < 500; ++i) {
        numora::registerFunction("other", twice);
        numora::unregisterFunction("other");
    }
    for (auto& w : workers) w.join();
    EXPECT_EQ(good.load(), 2000);
    numora::unregisterFunction("twice");
    const auto [identifier, text] =
        raised([] { calyxCallNumora(0, nullptr, 0, nullptr, "twice"); });
    EXPECT_EQ(identifier, "numora:function:unknown");
    EXPECT_NE(text.find("twice"), std::string::npos) << text;
}

std::atomic<int> outsideHandlerCalls{0};
extern "C" void outsideHandler(int) { outsideHandlerCalls.fetch_add(1); }

// A request seen from the module's worker threads is ModuleFit.CtrlCStopsALargeFit.
TEST(Interrupt, RequestMakesTheCheckThrowUntilCleared) {
    numora::clearInterrupt();
    EXPECT_NO_THROW(hostInterruptCheck());
    numora::requestInterrupt();
    try {
        hostInterruptCheck();
        FAIL() << "no interrupt";
    } catch (const numora::Interrupt& e) {
        EXPECT_EQ(e.identifier(), "numora:interrupt");
        EXPECT_STREQ(e.what(), "Operation terminated by user.");
    }
    EXPECT_TRUE(numora::interruptRequested());  // stays until cleared
    numora::clearInterrupt();
    EXPECT_NO_THROW(hostInterruptCheck());
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

struct PrintfCase {
    const char* name;
    std::function<int()> print;
    std::string expected;  // the count returned is its length
};

const PrintfCase kPrintf[] = {
    {"integers take 64 bits",
     [] { return calyxPrintf("%i %d", std::int64_t{5000000000}, std::int64_t{-3000000000}); },
     "5000000000 -3000000000"},
    {"arguments after a wide integer stay aligned",
     [] { return calyxPrintf("%i %s %i %g", std::int64_t{1} << 40, "x", std::int64_t{-1}, 0.5); },
     "1099511627776 x -1 0.5"},
    {"flags, width and precision are kept",
     [] {
         return calyxPrintf("%5i|%-5d|%05i|%+i|%.3i", std::int64_t{42}, std::int64_t{-7},
                            std::int64_t{3}, std::int64_t{9}, std::int64_t{4});
     },
     "   42|-7   |00003|+9|004"},
    {"a star width still takes an int", [] { return calyxPrintf("%*i|", 6, std::int64_t{12}); },
     "    12|"},
    {"an explicit length is left alone", [] { return calyxPrintf("%ld %lld", 1L << 33, 7LL); },
     "8589934592 7"},
    {"percent and strings",
     [] { return calyxPrintf("100%% of %s: %i%%\n", "rows", std::int64_t{7}); },
     "100% of rows: 7%\n"},
    {"empty", [] { return calyxPrintf("%s", ""); }, ""},
};

TEST(Printf, FormatsAsTheModuleMeansIt) {
    std::string text;
    const auto previous = numora::setPrintSink([&](std::string_view s) { text += s; });
    for (const PrintfCase& c : kPrintf) {
        text.clear();
        EXPECT_EQ(c.print(), static_cast<int>(c.expected.size())) << c.name;
        EXPECT_EQ(text, c.expected) << c.name;
    }
    numora::setPrintSink(previous);
}

// A library that cannot be opened is the binding's and the tool's test.
TEST(Module, LibraryWithoutTheEntryPointsIsRefused) {
    const auto [identifier, text] = raised([] { numora::Module m("libm.so.6"); });
    EXPECT_EQ(identifier, "numora:module:missingEntryPoint");
    EXPECT_NE(text.find("calyxfilerequiredapiversion"), std::string::npos) << text;
}

}  // namespace

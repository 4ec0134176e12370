#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "host/numora_host.hpp"

namespace {

using numora::ArrayPtr;

struct UserError : numora::MessageException<UserError> {
    UserError() : MessageException(numora::Message{"user:crit", "Broken", {}}) {}
};

// outputs[0] = 2 * inputs[0], as a double scalar.
void twice(int, cxArray** outputs, int, cxArray** inputs) {
    outputs[0] = cxCreateNumericMatrix(1, 1, cxDOUBLE_CLASS, cxREAL);
    *static_cast<double*>(cxGetData(outputs[0])) = 2.0 * cxGetScalar(inputs[0]);
}

ArrayPtr scalar(double v) {
    ArrayPtr a(cxCreateNumericMatrix(1, 1, cxDOUBLE_CLASS, cxREAL));
    *static_cast<double*>(cxGetData(a.get())) = v;
    return a;
}

TEST(HostFunctions, CallByName) {
    numora::registerFunction("twice", twice);
    ArrayPtr in = scalar(21.0);
    cxArray* inputs[1] = {in.get()};
    cxArray* outputs[1] = {nullptr};
    calyxCallNumora(1, outputs, 1, inputs, "twice");
    ArrayPtr out(outputs[0]);
    EXPECT_EQ(cxGetScalar(out.get()), 42.0);

    numora::unregisterFunction("twice");
    try {
        calyxCallNumora(1, outputs, 1, inputs, "twice");
        FAIL() << "no exception";
    } catch (const numora::Exception& e) {
        EXPECT_EQ(e.identifier(), "numora:function:unknown");
        EXPECT_NE(e.text().find("twice"), std::string::npos) << e.text();
    }
}

TEST(HostFunctions, TrapReturnsNullOnSuccess) {
    numora::registerFunction("twice", twice);
    ArrayPtr in = scalar(1.5);
    cxArray* inputs[1] = {in.get()};
    cxArray* outputs[1] = {nullptr};
    EXPECT_EQ(calyxCallNumoraWithTrap(1, outputs, 1, inputs, "twice"), nullptr);
    ArrayPtr out(outputs[0]);
    EXPECT_EQ(cxGetScalar(out.get()), 3.0);
    numora::unregisterFunction("twice");
}

TEST(HostFunctions, TrappedErrorIsRaisedAgainWithItsType) {
    numora::registerFunction("broken", [](int, cxArray**, int, cxArray**) {
        UserError e;
        cxErrorMsgId(e);
    });
    ArrayPtr trapped(calyxCallNumoraWithTrap(0, nullptr, 0, nullptr, "broken"));
    ASSERT_NE(trapped, nullptr);
    EXPECT_EQ(cxGetClassID(trapped.get()), cxEXCEPTION_CLASS);
    EXPECT_TRUE(numora::cxGetException(trapped.get()));

    cxArray* inputs[1] = {trapped.get()};
    EXPECT_THROW(calyxCallNumora(0, nullptr, 1, inputs, "throw"), UserError);
    numora::unregisterFunction("broken");
}

TEST(HostFunctions, TrapCatchesAnyException) {
    numora::registerFunction("std", [](int, cxArray**, int, cxArray**) {
        throw std::out_of_range("plain");
    });
    ArrayPtr trapped(calyxCallNumoraWithTrap(0, nullptr, 0, nullptr, "std"));
    cxArray* inputs[1] = {trapped.get()};
    EXPECT_THROW(calyxCallNumora(0, nullptr, 1, inputs, "throw"), std::out_of_range);
    numora::unregisterFunction("std");

    // An unknown function is trapped too.
    ArrayPtr unknown(calyxCallNumoraWithTrap(0, nullptr, 0, nullptr, "no such function"));
    EXPECT_EQ(cxGetClassID(unknown.get()), cxEXCEPTION_CLASS);
}

TEST(HostFunctions, ThrowNeedsAnExceptionObject) {
    ArrayPtr notAnException = scalar(1.0);
    cxArray* inputs[1] = {notAnException.get()};
    try {
        calyxCallNumora(0, nullptr, 1, inputs, "throw");
        FAIL() << "no exception";
    } catch (const numora::Exception& e) {
        EXPECT_EQ(e.identifier(), "numora:function:throw:badInput");
    }
}

TEST(HostFunctions, ConcurrentCallsWhileTheRegistryChanges) {
    numora::registerFunction("twice", twice);
    std::atomic<int> good{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < 4; ++t) {
        workers.emplace_back([&good, t] {
            for (int i = 0; i < 500; ++i) {
                ArrayPtr in = scalar(t + i);
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
}

}  // namespace

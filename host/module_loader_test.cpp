#include <string>

#include <gtest/gtest.h>

#include "host/numora_host.hpp"

namespace {

TEST(Module, MissingFileIsAModuleError) {
    const std::string path = "/nonexistent/libnothing.so";
    try {
        numora::Module m(path);
        FAIL() << "loaded a file that does not exist";
    } catch (const numora::Exception& e) {
        EXPECT_EQ(e.identifier(), "numora:module:cannotOpen");
        EXPECT_NE(e.text().find(path), std::string::npos) << e.text();
    }
}

TEST(Module, LibraryWithoutEntryPointsIsRefused) {
    try {
        numora::Module m("libm.so.6");
        FAIL() << "accepted a library that is no module";
    } catch (const numora::Exception& e) {
        EXPECT_EQ(e.identifier(), "numora:module:missingEntryPoint");
        EXPECT_NE(e.text().find("calyxfilerequiredapiversion"), std::string::npos) << e.text();
    }
}

#ifdef ARBOLIN_MODULE_PATH
TEST(Module, LoadsTheTreeModuleAndPassesItsErrorsOn) {
    numora::Module m(ARBOLIN_MODULE_PATH);
    EXPECT_EQ(m.path(), ARBOLIN_MODULE_PATH);
    try {
        m.call(0, nullptr, 0, nullptr);  // no inputs: refused by the module
        FAIL() << "no exception";
    } catch (const numora::Exception& e) {
        EXPECT_EQ(e.identifier(),
                  "tallix:silvan:learning:treeutils:weaveCanopy:BadNumberOfInputArgs");
    }
    EXPECT_FALSE(numora::interruptRequested());
}
#endif

}  // namespace

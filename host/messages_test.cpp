#include <string>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include "host/numora_host.hpp"

namespace {

using numora::Message;
using numora::MessageArg;

const std::string kTree = "tallix:silvan:learning:treeutils:";

// Message exceptions as the module declares them: one type per message.
struct TooManyLevels : numora::MessageException<TooManyLevels> {
    explicit TooManyLevels(std::int64_t limit)
        : MessageException(Message{kTree + "ClassificationNominalSplitFinder:exact",
                                   "TooManyLevels", {limit}}) {}
};

struct TypeMismatch : numora::MessageException<TypeMismatch> {
    TypeMismatch(std::wstring name, std::string type)
        : MessageException(Message{kTree + "CustomClassificationSplitCriterion:kids",
                                   "TypeMismatch", {std::move(name), std::move(type)}}) {}
};

TEST(Errors, RaiserThrowsTheDynamicTypeWithFormattedText) {
    TooManyLevels error(64);
    try {
        cxErrorMsgId(error);
        FAIL() << "the raiser returned";
    } catch (const TooManyLevels& e) {
        EXPECT_EQ(e.identifier(), kTree + "ClassificationNominalSplitFinder:exact:TooManyLevels");
        EXPECT_NE(e.text().find("64"), std::string::npos) << e.text();
        EXPECT_STREQ(e.what(), e.text().c_str());
    }
}

TEST(Errors, CaughtAsTheBaseTheTypeIsStillTheMessages) {
    TypeMismatch error(L"critf\u00e9", "single");
    try {
        cxErrorMsgId(error);
        FAIL() << "the raiser returned";
    } catch (const numora::Exception& e) {
        EXPECT_EQ(typeid(e), typeid(TypeMismatch));
        EXPECT_NE(e.text().find("critf\xc3\xa9"), std::string::npos) << e.text();  // UTF-8
        EXPECT_NE(e.text().find("single"), std::string::npos) << e.text();
    }
}

TEST(Errors, NullResourceText) {
    vellum::contextmgr::NullResource e;
    EXPECT_EQ(e.identifier(), "vellum:contextmgr:null");
    EXPECT_EQ(cxMessageText(e.message()), "Unable to access null resource");
}

TEST(Catalog, KnowsEveryMessageOfTheModule) {
    struct Case {
        std::string id;
        std::vector<MessageArg> args;
        std::string mustContain;
    };
    const std::vector<Case> cases{
        {"weaveCanopy:BadNumberOfInputArgs", {std::int64_t{20}}, "20"},
        {"weaveCanopy:BadNumberOfOutputArgs", {std::int64_t{22}}, "22"},
        {"Tree:init:BadCrit", {}, ""},
        {"SplitCriteriaFactory:make:BadCriterion", {}, ""},
        {"IndexedColumn:findNominalSplitWithBestGain:BadAlgCat", {}, ""},
        {"ClassificationNominalSplitFinder:exact:TooManyLevels", {std::int64_t{64}}, "64"},
        {"ClassificationNominalSplitFinder:pca:MemoryLessThanXBytes", {std::int64_t{8192}},
         "8192"},
        {"ClassificationNominalSplitFinder:pca:BadDSYEVXInput", {}, ""},
        {"ClassificationNominalSplitFinder:pca:BadDSYEVXOutput", {}, ""},
        {"CustomClassificationSplitCriterion:parent:BadUserFunctionCall", {std::string("pf")},
         "'pf'"},
        {"CustomClassificationSplitCriterion:parent:TypeMismatch",
         {std::string("pf"), std::string("double")}, "double"},
        {"CustomClassificationSplitCriterion:kids:BadUserFunctionCall", {std::string("kf")},
         "'kf'"},
        {"CustomClassificationSplitCriterion:kids:TypeMismatch",
         {std::string("kf"), std::string("single")}, "single"},
    };
    for (const auto& c : cases) {
        const std::string full = kTree + c.id;
        const auto colon = full.rfind(':');
        const std::string text =
            cxMessageText(Message{full.substr(0, colon), full.substr(colon + 1), c.args});
        EXPECT_EQ(text.find("no text"), std::string::npos) << full;
        EXPECT_EQ(text.find('{'), std::string::npos) << full << ": " << text;
        EXPECT_NE(text.find(c.mustContain), std::string::npos) << full << ": " << text;
    }
}

TEST(Catalog, UnknownIdentifierIsNamedInTheText) {
    const std::string text = cxMessageText(Message{"made:up", "Thing", {std::int64_t{5}}});
    EXPECT_NE(text.find("made:up:Thing"), std::string::npos) << text;
    EXPECT_NE(text.find('5'), std::string::npos) << text;
}

TEST(Warnings, ReachTheSinkWithTheirIdentifier) {
    std::vector<std::pair<std::string, std::string>> seen;
    auto previous = numora::setWarningSink([&](const Message& m, const std::string& text) {
        seen.emplace_back(m.identifier(), text);
    });
    const Message warning{kTree + "ClassificationNominalSplitFinder:pca", "BadDSYEVXOutput", {}};
    cxWarningMsgId(warning);
    numora::setWarningSink(previous);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].first, kTree + "ClassificationNominalSplitFinder:pca:BadDSYEVXOutput");
    EXPECT_EQ(seen[0].second, cxMessageText(warning));
}

TEST(Warnings, WithoutASinkArePrinted) {
    auto previousWarning = numora::setWarningSink(nullptr);
    std::string printed;
    auto previousPrint = numora::setPrintSink([&](std::string_view s) { printed += s; });
    cxWarningMsgId(Message{"vellum:contextmgr", "null", {}});
    numora::setPrintSink(previousPrint);
    numora::setWarningSink(previousWarning);
    EXPECT_EQ(printed, "Warning: Unable to access null resource\n");
}

}  // namespace

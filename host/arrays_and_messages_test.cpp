// Host arrays and messages, where the binding's round trips of every array
// class (test_binding.py) do not look: dims, scalars, ownership, deep copies,
// failing allocations, and the texts of errors and warnings.
#include <cstdint>
#include <cstring>
#include <string>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include "host/numora_host.hpp"

namespace {

using numora::ArrayPtr;
using numora::Message;
using numora::MessageArg;

template <class T>
T* dataOf(const ArrayPtr& a) {
    return static_cast<T*>(cxGetData(a.get()));
}

TEST(NumericArrays, EveryClassHasZeroedRoomForDoubles) {
    // The module may read a single or integer array as doubles (8 bytes each).
    ArrayPtr a(cxCreateNumericMatrix(3, 2, cxSINGLE_CLASS, cxREAL));
    for (int i = 0; i < 6; ++i) EXPECT_EQ(dataOf<double>(a)[i], 0.0) << i;
    ArrayPtr b(cxCreateNumericMatrix(5, 1, cxINT8_CLASS, cxREAL));
    for (int i = 0; i < 5; ++i) EXPECT_EQ(dataOf<double>(b)[i], 0.0) << i;
    ArrayPtr empty(cxCreateNumericMatrix(0, 0, cxDOUBLE_CLASS, cxREAL));
    EXPECT_TRUE(cxIsEmpty(empty.get()));
    EXPECT_NE(cxGetData(empty.get()), nullptr);
    EXPECT_THROW((void)ArrayPtr(cxCreateNumericMatrix(1, 1, cxCELL_CLASS, cxREAL)),
                 numora::Exception);
}

TEST(NumericArrays, DimsArePaddedToTwoAndTrailingOnesDropped) {
    const std::uint64_t dims[3] = {2, 3, 4};
    ArrayPtr a(numora::cxCreateNumericArray(3, dims, cxDOUBLE_CLASS));
    EXPECT_EQ(cxGetM(a.get()), 2u);
    EXPECT_EQ(cxGetN(a.get()), 12u);  // all dims but the first
    const std::uint64_t trailing[3] = {2, 3, 1};
    ArrayPtr b(numora::cxCreateNumericArray(3, trailing, cxDOUBLE_CLASS));
    EXPECT_EQ(cxGetNumberOfDimensions(b.get()), 2u);
    const std::uint64_t one[1] = {5};
    ArrayPtr c(numora::cxCreateNumericArray(1, one, cxUINT16_CLASS));
    EXPECT_EQ(cxGetNumberOfDimensions(c.get()), 2u);
    EXPECT_EQ(cxGetN(c.get()), 1u);
    ArrayPtr text(cxCreateCharArray(0, nullptr));  // no dims: the empty text, 0 by 0
    EXPECT_EQ(cxGetClassID(text.get()), cxCHAR_CLASS);
    EXPECT_EQ(cxGetM(text.get()) + cxGetN(text.get()), 0u);
    EXPECT_EQ(cxGetString(text.get()), "");
}

TEST(NumericArrays, ScalarReadsTheFirstElementOfAnyClass) {
    ArrayPtr i64(cxCreateNumericMatrix(1, 1, cxINT64_CLASS, cxREAL));
    *dataOf<std::int64_t>(i64) = -5;
    EXPECT_EQ(cxGetScalar(i64.get()), -5.0);
    ArrayPtr u8(cxCreateNumericMatrix(1, 1, cxUINT8_CLASS, cxREAL));
    *dataOf<std::uint8_t>(u8) = 200;
    EXPECT_EQ(cxGetScalar(u8.get()), 200.0);
    ArrayPtr s(cxCreateNumericMatrix(2, 1, cxSINGLE_CLASS, cxREAL));
    dataOf<float>(s)[0] = 1.5f;
    dataOf<float>(s)[1] = 9.0f;
    EXPECT_EQ(cxGetScalar(s.get()), 1.5);
    ArrayPtr l(numora::cxCreateLogicalScalar(true));
    EXPECT_EQ(cxGetScalar(l.get()), 1.0);
    ArrayPtr empty(cxCreateNumericMatrix(0, 3, cxDOUBLE_CLASS, cxREAL));
    EXPECT_EQ(cxGetScalar(empty.get()), 0.0);
}

TEST(LogicalArrays, OnlyATrueLogicalScalarIsTrue) {
    ArrayPtr t(cxCreateLogicalMatrix(1, 1));
    EXPECT_FALSE(cxIsLogicalScalarTrue(t.get()));  // created false
    cxGetLogicals(t.get())[0] = true;
    EXPECT_TRUE(cxIsLogicalScalarTrue(t.get()));
    ArrayPtr two(cxCreateLogicalMatrix(1, 2));
    cxGetLogicals(two.get())[0] = cxGetLogicals(two.get())[1] = true;
    EXPECT_FALSE(cxIsLogicalScalarTrue(two.get()));
    ArrayPtr d(numora::cxCreateDoubleScalar(1.0));
    EXPECT_FALSE(cxIsLogicalScalarTrue(d.get()));
    EXPECT_EQ(cxGetLogicals(d.get()), nullptr);
}

TEST(CellArrays, OwnTheirElements) {
    ArrayPtr cell(cxCreateCellMatrix(2, 2));
    cxArray* first = numora::cxCreateDoubleScalar(4.0);
    cxSetCell(cell.get(), 3, first);
    EXPECT_EQ(cxGetCell(cell.get(), 3), first);  // by pointer, not a copy
    cxSetCell(cell.get(), 3, first);             // storing it again keeps it alive
    EXPECT_EQ(cxGetScalar(cxGetCell(cell.get(), 3)), 4.0);
    cxSetCell(cell.get(), 3, numora::cxCreateString("x"));  // replaces (and frees) the old
    EXPECT_EQ(cxGetString(cxGetCell(cell.get(), 3)), "x");
    EXPECT_EQ(cxGetCell(cell.get(), 4), nullptr);
    try {
        cxSetCell(cell.get(), 4, numora::cxCreateString("y"));
        FAIL() << "no exception";
    } catch (const numora::Exception& e) {
        EXPECT_EQ(e.identifier(), "numora:array:indexOutOfRange");
    }
}

TEST(ObjectArrays, PropertiesAreHandedOutAsDeepCopies) {
    // A cell of a number and an object with a property of its own.
    ArrayPtr object(numora::cxCreateObject("Thing", 2));
    EXPECT_EQ(cxGetNumberOfElements(object.get()), 2u);
    cxArray* value = cxCreateCellMatrix(1, 2);
    cxSetCell(value, 0, numora::cxCreateDoubleScalar(7.0));
    cxSetCell(value, 1, numora::cxCreateObject("Inner"));
    numora::cxSetProperty(cxGetCell(value, 1), 0, "P", numora::cxCreateString("p"));
    numora::cxSetProperty(object.get(), 1, "Size", value);
    ArrayPtr copy(cxGetProperty(object.get(), 1, "Size"));
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy.get(), value);
    EXPECT_NE(cxGetCell(copy.get(), 0), cxGetCell(value, 0));
    *static_cast<double*>(cxGetData(cxGetCell(copy.get(), 0))) = -1.0;
    numora::cxSetProperty(cxGetCell(copy.get(), 1), 0, "P", numora::cxCreateString("changed"));
    ArrayPtr again(cxGetProperty(object.get(), 1, "Size"));
    EXPECT_EQ(cxGetScalar(cxGetCell(again.get(), 0)), 7.0);
    ArrayPtr p(cxGetProperty(cxGetCell(again.get(), 1), 0, "P"));
    EXPECT_EQ(cxGetString(p.get()), "p");
    EXPECT_EQ(numora::cxGetObjectClassName(cxGetCell(again.get(), 1)), "Inner");

    EXPECT_EQ(cxGetProperty(object.get(), 0, "Size"), nullptr);  // other element
    EXPECT_EQ(cxGetProperty(object.get(), 1, "size"), nullptr);  // names are exact
    EXPECT_EQ(cxGetProperty(object.get(), 2, "Size"), nullptr);  // out of range
    EXPECT_EQ(cxGetProperty(again.get(), 0, "Size"), nullptr);   // not an object
}

TEST(Memory, NthAllocationFailsOnceWhateverAllocates) {
    const numora::AllocationCounts start = numora::allocationCounts();
    auto made = [&] { return numora::allocationCounts().made - start.made; };
    auto live = [&] { return numora::allocationCounts().live - start.live; };

    numora::failNthAllocation(3);
    void* buffer = cxMallocEx(16);            // 1
    ArrayPtr cell(cxCreateCellMatrix(1, 2));  // 2
    try {
        (void)cxCreateLogicalMatrix(2, 3);  // 3
        FAIL() << "no memory error";
    } catch (const numora::Exception& e) {
        EXPECT_EQ(e.identifier(), "numora:memory:outOfMemory");
        EXPECT_EQ(e.text().rfind("Out of memory: ", 0), 0u) << e.text();
        EXPECT_GE(boost::get<std::int64_t>(e.message().args.at(0)), 6 * 8);
    }
    cxSetCell(cell.get(), 0, numora::cxCreateString("ab"));     // 4
    cxSetCell(cell.get(), 1, numora::cxCreateDoubleScalar(2));  // 5
    EXPECT_EQ(made(), 5u);
    EXPECT_EQ(live(), 4u);  // the failed one never existed

    // A copy makes one array per element; when its third fails, the part
    // already copied goes with it.
    numora::failNthAllocation(3);
    EXPECT_THROW((void)numora::cxDuplicateArray(cell.get()), numora::Exception);
    EXPECT_EQ(made(), 8u);
    EXPECT_EQ(live(), 4u);
    ArrayPtr copy = numora::cxDuplicateArray(cell.get());
    EXPECT_EQ(made(), 11u);
    EXPECT_EQ(cxGetScalar(cxGetCell(copy.get(), 1)), 2.0);

    // cxMallocEx gives null rather than raising; the next one succeeds.
    numora::failNthAllocation(1);
    EXPECT_EQ(cxMallocEx(8), nullptr);
    void* second = cxMallocEx(8);
    ASSERT_NE(second, nullptr);
    // The fail switch for cxMallocEx passes arrays by.
    numora::failNextAllocation();
    ArrayPtr spared(cxCreateLogicalMatrix(1, 1));
    EXPECT_EQ(cxMallocEx(8), nullptr);
    // Cancelled before its turn, a failure never comes.
    numora::failNthAllocation(2);
    numora::failNthAllocation(0);
    ArrayPtr a(cxCreateCellMatrix(1, 1)), b(cxCreateCellMatrix(1, 1));

    cxFreeEx(buffer);
    cxFreeEx(second);
    cxFreeEx(nullptr);
    cxDestroyArray(nullptr);
    for (ArrayPtr* p : {&cell, &copy, &spared, &a, &b}) p->reset();
    EXPECT_EQ(live(), 0u);
}

const std::string kTree = "tallix:silvan:learning:treeutils:";

// A message exception as the module declares one: a type per message. Its
// identifier and arguments reach the user through the binding's HostError.
struct TypeMismatch : numora::MessageException<TypeMismatch> {
    TypeMismatch(std::wstring name, std::string type)
        : MessageException(Message{kTree + "CustomClassificationSplitCriterion:kids",
                                   "TypeMismatch",
                                   {std::move(name), std::move(type)}}) {}
};

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
    vellum::contextmgr::NullResource null;
    EXPECT_EQ(null.identifier(), "vellum:contextmgr:null");
    EXPECT_EQ(cxMessageText(null.message()), "Unable to access null resource");
}

TEST(Catalog, KnowsEveryMessageOfTheModule) {
    using namespace std::string_literals;
    const std::pair<std::string, std::vector<MessageArg>> cases[] = {
        {"weaveCanopy:BadNumberOfInputArgs", {std::int64_t{20}}},
        {"weaveCanopy:BadNumberOfOutputArgs", {std::int64_t{22}}},
        {"Tree:init:BadCrit", {}},
        {"SplitCriteriaFactory:make:BadCriterion", {}},
        {"IndexedColumn:findNominalSplitWithBestGain:BadAlgCat", {}},
        {"ClassificationNominalSplitFinder:exact:TooManyLevels", {std::int64_t{64}}},
        {"ClassificationNominalSplitFinder:pca:MemoryLessThanXBytes", {std::int64_t{8192}}},
        {"ClassificationNominalSplitFinder:pca:BadDSYEVXInput", {}},
        {"ClassificationNominalSplitFinder:pca:BadDSYEVXOutput", {}},
        {"CustomClassificationSplitCriterion:parent:BadUserFunctionCall", {"pf"s}},
        {"CustomClassificationSplitCriterion:parent:TypeMismatch", {"pf"s, "double"s}},
        {"CustomClassificationSplitCriterion:kids:BadUserFunctionCall", {"kf"s}},
        {"CustomClassificationSplitCriterion:kids:TypeMismatch", {"kf"s, "single"s}},
    };
    for (const auto& [id, args] : cases) {
        const std::string full = kTree + id;
        const auto colon = full.rfind(':');
        const std::string text =
            cxMessageText(Message{full.substr(0, colon), full.substr(colon + 1), args});
        EXPECT_EQ(text.find("no text"), std::string::npos) << full;
        EXPECT_EQ(text.find('{'), std::string::npos) << full << ": " << text;
        for (const MessageArg& arg : args) {
            const auto* number = boost::get<std::int64_t>(&arg);
            const std::string shown =
                number ? std::to_string(*number) : boost::get<std::string>(arg);
            EXPECT_NE(text.find(shown), std::string::npos) << full << ": " << text;
        }
    }
    // An identifier the catalog lacks is named in the text, with its arguments.
    const std::string text = cxMessageText(Message{"made:up", "Thing", {std::int64_t{5}}});
    EXPECT_NE(text.find("made:up:Thing"), std::string::npos) << text;
    EXPECT_NE(text.find('5'), std::string::npos) << text;
}

TEST(Warnings, ReachTheSinkWithTheirIdentifierOrElseArePrinted) {
    std::vector<std::pair<std::string, std::string>> seen;
    auto previous = numora::setWarningSink([&](const Message& m, const std::string& text) {
        seen.emplace_back(m.identifier(), text);
    });
    const Message warning{kTree + "ClassificationNominalSplitFinder:pca", "BadDSYEVXOutput", {}};
    cxWarningMsgId(warning);
    numora::setWarningSink(nullptr);
    std::string printed;
    auto previousPrint = numora::setPrintSink([&](std::string_view s) { printed += s; });
    cxWarningMsgId(Message{"vellum:contextmgr", "null", {}});
    numora::setPrintSink(previousPrint);
    numora::setWarningSink(previous);

    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].first, kTree + "ClassificationNominalSplitFinder:pca:BadDSYEVXOutput");
    EXPECT_EQ(seen[0].second, cxMessageText(warning));
    EXPECT_EQ(printed, "Warning: Unable to access null resource\n");
}

}  // namespace

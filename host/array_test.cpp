#include <cstdint>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "host/numora_host.hpp"

namespace {

using numora::ArrayPtr;

template <class T>
T* dataOf(const ArrayPtr& a) {
    return static_cast<T*>(cxGetData(a.get()));
}

TEST(NumericArrays, SinglesHaveZeroedRoomForDoubles) {
    // The module may read a single array as doubles (8 bytes per element).
    ArrayPtr a(cxCreateNumericMatrix(3, 2, cxSINGLE_CLASS, cxREAL));
    EXPECT_EQ(cxGetClassID(a.get()), cxSINGLE_CLASS);
    const double* asDouble = dataOf<double>(a);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(asDouble[i], 0.0) << i;
    ArrayPtr b(cxCreateNumericMatrix(5, 1, cxINT8_CLASS, cxREAL));
    for (int i = 0; i < 5; ++i) EXPECT_EQ(dataOf<double>(b)[i], 0.0) << i;
    ArrayPtr empty(cxCreateNumericMatrix(0, 0, cxDOUBLE_CLASS, cxREAL));
    EXPECT_TRUE(cxIsEmpty(empty.get()));
    EXPECT_NE(cxGetData(empty.get()), nullptr);
}

TEST(NumericArrays, DimensionsAndColumnCount) {
    const std::uint64_t dims[3] = {2, 3, 4};
    ArrayPtr a(numora::cxCreateNumericArray(3, dims, cxDOUBLE_CLASS));
    EXPECT_EQ(cxGetNumberOfDimensions(a.get()), 3u);
    EXPECT_EQ(cxGetM(a.get()), 2u);
    EXPECT_EQ(cxGetN(a.get()), 12u);
    EXPECT_EQ(cxGetNumberOfElements(a.get()), 24u);
    EXPECT_EQ(cxGetDimensions(a.get())[2], 4u);

    const std::uint64_t trailing[3] = {2, 3, 1};
    ArrayPtr b(numora::cxCreateNumericArray(3, trailing, cxDOUBLE_CLASS));
    EXPECT_EQ(cxGetNumberOfDimensions(b.get()), 2u);

    const std::uint64_t one[1] = {5};
    ArrayPtr c(numora::cxCreateNumericArray(1, one, cxUINT16_CLASS));
    EXPECT_EQ(cxGetM(c.get()), 5u);
    EXPECT_EQ(cxGetN(c.get()), 1u);
}

TEST(NumericArrays, ScalarOfEveryClass) {
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
    ArrayPtr l(cxCreateLogicalMatrix(1, 1));
    cxGetLogicals(l.get())[0] = true;
    EXPECT_EQ(cxGetScalar(l.get()), 1.0);
    ArrayPtr empty(cxCreateNumericMatrix(0, 3, cxDOUBLE_CLASS, cxREAL));
    EXPECT_EQ(cxGetScalar(empty.get()), 0.0);
}

TEST(NumericArrays, NonNumericClassIsRefused) {
    EXPECT_THROW((void)ArrayPtr(cxCreateNumericMatrix(1, 1, cxCELL_CLASS, cxREAL)),
                 numora::Exception);
}

TEST(LogicalArrays, OnlyATrueLogicalScalarIsTrue) {
    ArrayPtr t(cxCreateLogicalMatrix(1, 1));
    EXPECT_FALSE(cxIsLogicalScalarTrue(t.get()));  // created false
    cxGetLogicals(t.get())[0] = true;
    EXPECT_TRUE(cxIsLogicalScalarTrue(t.get()));

    ArrayPtr two(cxCreateLogicalMatrix(1, 2));
    cxGetLogicals(two.get())[0] = cxGetLogicals(two.get())[1] = true;
    EXPECT_FALSE(cxIsLogicalScalarTrue(two.get()));

    ArrayPtr d(cxCreateNumericMatrix(1, 1, cxDOUBLE_CLASS, cxREAL));
    *dataOf<double>(d) = 1.0;
    EXPECT_FALSE(cxIsLogicalScalarTrue(d.get()));
    EXPECT_EQ(cxGetLogicals(d.get()), nullptr);
}

TEST(CharArrays, TextRoundTripsAsUtf8Bytes) {
    ArrayPtr s(numora::cxCreateString("gini \xc3\xa9"));
    EXPECT_EQ(cxGetClassID(s.get()), cxCHAR_CLASS);
    EXPECT_EQ(cxGetM(s.get()), 1u);
    EXPECT_EQ(cxGetN(s.get()), 7u);
    EXPECT_EQ(cxGetString(s.get()), "gini \xc3\xa9");
}

TEST(CharArrays, NoDimensionsMakesEmptyText) {
    ArrayPtr e(cxCreateCharArray(0, nullptr));
    EXPECT_EQ(cxGetClassID(e.get()), cxCHAR_CLASS);
    EXPECT_EQ(cxGetM(e.get()), 0u);
    EXPECT_EQ(cxGetN(e.get()), 0u);
    EXPECT_TRUE(cxIsEmpty(e.get()));
    EXPECT_EQ(cxGetString(e.get()), "");

    const std::uint64_t dims[1] = {3};
    ArrayPtr column(cxCreateCharArray(1, dims));
    EXPECT_EQ(cxGetM(column.get()), 3u);
    EXPECT_EQ(cxGetN(column.get()), 1u);
}

TEST(CellArrays, StartUnsetAndOwnTheirElements) {
    ArrayPtr cell(cxCreateCellMatrix(2, 2));
    for (std::uint64_t i = 0; i < 4; ++i) EXPECT_EQ(cxGetCell(cell.get(), i), nullptr);

    cxArray* first = cxCreateNumericMatrix(1, 1, cxDOUBLE_CLASS, cxREAL);
    *static_cast<double*>(cxGetData(first)) = 4.0;
    cxSetCell(cell.get(), 3, first);
    EXPECT_EQ(cxGetCell(cell.get(), 3), first);  // by pointer, not a copy
    cxSetCell(cell.get(), 3, first);              // storing it again keeps it alive
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

TEST(ObjectArrays, PropertiesAreHandedOutAsCopies) {
    ArrayPtr object(numora::cxCreateObject("Thing", 2));
    EXPECT_EQ(cxGetNumberOfElements(object.get()), 2u);
    cxArray* value = cxCreateNumericMatrix(1, 1, cxDOUBLE_CLASS, cxREAL);
    *static_cast<double*>(cxGetData(value)) = 7.0;
    numora::cxSetProperty(object.get(), 1, "Size", value);

    ArrayPtr copy(cxGetProperty(object.get(), 1, "Size"));
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy.get(), value);
    *dataOf<double>(copy) = -1.0;
    ArrayPtr again(cxGetProperty(object.get(), 1, "Size"));
    EXPECT_EQ(cxGetScalar(again.get()), 7.0);

    EXPECT_EQ(cxGetProperty(object.get(), 0, "Size"), nullptr);  // other element
    EXPECT_EQ(cxGetProperty(object.get(), 1, "size"), nullptr);  // names are exact
    EXPECT_EQ(cxGetProperty(object.get(), 2, "Size"), nullptr);  // out of range
    EXPECT_EQ(cxGetProperty(again.get(), 0, "Size"), nullptr);   // not an object
}

TEST(Duplicate, IsDeep) {
    ArrayPtr outer(cxCreateCellMatrix(1, 2));
    cxSetCell(outer.get(), 0, cxCreateNumericMatrix(1, 1, cxDOUBLE_CLASS, cxREAL));
    cxSetCell(outer.get(), 1, numora::cxCreateObject("Inner"));
    numora::cxSetProperty(cxGetCell(outer.get(), 1), 0, "P", numora::cxCreateString("p"));

    ArrayPtr copy = numora::cxDuplicateArray(outer.get());
    *static_cast<double*>(cxGetData(cxGetCell(outer.get(), 0))) = 3.0;
    numora::cxSetProperty(cxGetCell(outer.get(), 1), 0, "P", numora::cxCreateString("changed"));

    EXPECT_NE(cxGetCell(copy.get(), 0), cxGetCell(outer.get(), 0));
    EXPECT_EQ(cxGetScalar(cxGetCell(copy.get(), 0)), 0.0);
    ArrayPtr p(cxGetProperty(cxGetCell(copy.get(), 1), 0, "P"));
    EXPECT_EQ(cxGetString(p.get()), "p");
    EXPECT_EQ(numora::cxGetObjectClassName(cxGetCell(copy.get(), 1)), "Inner");
}

TEST(Memory, FailNextAllocationIsOneShot) {
    numora::failNextAllocation();
    EXPECT_EQ(cxMallocEx(64), nullptr);
    void* p = cxMallocEx(64);
    ASSERT_NE(p, nullptr);
    std::memset(p, 1, 64);
    cxFreeEx(p);
    cxFreeEx(nullptr);
    cxDestroyArray(nullptr);
}

TEST(Memory, NthAllocationFailsOnceWhateverAllocates) {
    const numora::AllocationCounts start = numora::allocationCounts();
    auto made = [&] { return numora::allocationCounts().made - start.made; };
    auto live = [&] { return numora::allocationCounts().live - start.live; };

    numora::failNthAllocation(3);
    void* buffer = cxMallocEx(16);               // 1
    ArrayPtr cell(cxCreateCellMatrix(1, 2));     // 2
    try {
        (void)cxCreateLogicalMatrix(2, 3);       // 3
        FAIL() << "no memory error";
    } catch (const numora::Exception& e) {
        EXPECT_EQ(e.identifier(), "numora:memory:outOfMemory");
        EXPECT_EQ(e.text().rfind("Out of memory: ", 0), 0u) << e.text();
        EXPECT_GE(boost::get<std::int64_t>(e.message().args.at(0)), 6 * 8);
    }
    cxSetCell(cell.get(), 0, numora::cxCreateString("ab"));    // 4
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
    cell.reset();
    copy.reset();
    spared.reset();
    a.reset();
    b.reset();
    EXPECT_EQ(live(), 0u);
}

TEST(Numbers, NaN) {
    EXPECT_TRUE(cxIsNaN(cxGetNaN()));
    EXPECT_FALSE(cxIsNaN(1.0));
}

}  // namespace

// A cost file from arbitrary bytes, read against a fixed list of three
// classes. The first byte picks how: bits 0-2 the delimiter (detected, or
// one of , ; tab |), bit 3 Latin-1, bit 4 single precision, bit 5 classes
// that are numbers. A bad file must end in UserError; anything else
// escaping is a finding, and so is a matrix the module could not take.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "cli/csv.hpp"
#include "frontend/values.hpp"

namespace {

void check(bool ok) {
    if (!ok) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace arbolin::cli;
    using namespace arbolin::frontend;
    if (size == 0) return 0;
    const std::uint8_t mode = data[0];
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    static const Levels kLabels = Levels::fromValues({"setosa", "versicolor", "virginica"});
    static const Levels kNumbers = Levels::fromValues({"1", "2", "10"});
    const Levels& classes = (mode & 32) != 0 ? kNumbers : kLabels;
    constexpr char kDelimiters[] = {0, ',', ';', '\t', '|'};
    CsvFormat format;
    format.delimiter = kDelimiters[(mode & 7) % 5];
    format.encoding = (mode & 8) != 0 ? Encoding::Latin1 : Encoding::Utf8;
    const bool single = (mode & 16) != 0;
    try {
        Notices notices;
        const std::vector<double> cost =
            parseCostFile(bytes, "fuzz.csv", classes, format, single, notices);
        const std::uint64_t K = classes.size();
        check(cost.size() == K * K);
        for (std::uint64_t i = 0; i < K; ++i) {
            for (std::uint64_t j = 0; j < K; ++j) {
                const double c = cost[i + j * K];
                check(std::isfinite(c) && c >= 0 && (i != j || c == 0));
                check(!single || fitsSingle(c));
            }
        }
    } catch (const UserError&) {
        // The expected outcome for a bad file.
    }
    return 0;
}

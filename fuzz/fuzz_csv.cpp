// A CSV file from arbitrary bytes. The first byte picks how it is read:
// bits 0-2 the delimiter (detected, or one of , ; tab |), bit 3 Latin-1,
// bit 4 no header row, and for the preparation that follows, bit 5 an extra
// missing-value token and bit 6 single precision. A table with a header is
// then prepared for growing as fit prepares it, which codes the values,
// decides nominal columns, classes and weights. A bad file must end in
// UserError; anything else escaping is a finding, and so is a result that
// breaks what the tool relies on.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include <nlohmann/json.hpp>

#include "cli/csv.hpp"
#include "frontend/data.hpp"
#include "frontend/model.hpp"

namespace {

using namespace arbolin::cli;
using namespace arbolin::frontend;

void check(bool ok) {
    if (!ok) __builtin_trap();
}

void checkTable(const CsvTable& table) {
    check(table.rowCount() > 0 && table.columnCount() > 0);
    nlohmann::json text = table.header();  // a model writes names and levels as JSON
    for (std::uint64_t r = 0; r < table.rowCount(); ++r) {
        check(r == 0 || table.line(r) > table.line(r - 1));
        for (std::uint64_t c = 0; c < table.columnCount(); ++c) {
            text.push_back(std::string(table.field(r, c)));
        }
    }
    (void)text.dump();  // throws on bytes that are not UTF-8
}

void checkData(const TrainingData& data, const CsvTable& table) {
    const std::uint64_t N = data.rows;
    const std::uint64_t D = data.predictors.size();
    check(N > 0 && N + data.leftOut == table.rowCount());
    check(D > 0 && data.x.size() == N * D && data.y.size() == N && data.w.size() == N);
    double total = 0;
    for (const double w : data.w) {
        check(w >= 0 && std::isfinite(w));
        total += w;
    }
    check(std::abs(total - 1) < 1e-9);
    for (const double y : data.y) {
        check(std::isfinite(y));
        if (data.classification) check(y >= 0 && y < double(data.classes.size()));
    }
    for (std::uint64_t j = 0; j < D; ++j) {
        const Predictor& p = data.predictors[j];
        for (std::uint64_t i = 0; i < N; ++i) {
            const double x = data.x[j * N + i];
            if (std::isnan(x)) continue;
            check(std::isfinite(x));
            if (p.kind == PredictorKind::Nominal) check(x >= 0 && x < double(p.levels.size()));
        }
        (void)nlohmann::json(p.levels.labels()).dump();
    }
    (void)nlohmann::json(data.classes.labels()).dump();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::uint8_t mode = data[0];
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    constexpr char kDelimiters[] = {0, ',', ';', '\t', '|'};
    CsvFormat format;
    format.delimiter = kDelimiters[(mode & 7) % 5];
    format.encoding = (mode & 8) != 0 ? Encoding::Latin1 : Encoding::Utf8;
    const auto header = (mode & 16) != 0 ? CsvTable::Header::None : CsvTable::Header::Required;
    try {
        const CsvTable table = CsvTable::parse(bytes, "fuzz.csv", format, header);
        checkTable(table);
        if (header == CsvTable::Header::None) return 0;
        RawOptions options;
        if ((mode & 32) != 0) options.lists["missing"] = {"-", "n/a"};
        options.flags["single"] = (mode & 64) != 0;
        const TrainingData prepared = prepareTrainingData(table, options);
        checkData(prepared, table);
        (void)optionsJson(Settings::resolve(options, prepared.shape()));
    } catch (const UserError&) {
        // The expected outcome for a bad file.
    }
    return 0;
}

#include "cli/csv_table.hpp"

#include <csv.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include "cli/values.hpp"

namespace arbolin::cli {

// The state that libcsv's callbacks fill. Exceptions must not cross the C
// library, so the first problem is recorded here and raised after it returns.
struct CsvParse {
    explicit CsvParse(CsvTable& t) : table(t) {}

    CsvTable& table;
    std::uint64_t line = 0;         // physical line being parsed
    std::uint64_t field = 0;        // fields so far in this record
    std::uint64_t recordLine = 0;   // where this record started
    std::uint64_t lastEnd = 0;      // line of the last complete record
    bool inHeader = true;
    bool headerOptional = false;
    std::optional<std::string> problem;

    void fail(std::uint64_t at, std::uint64_t column, const std::string& text) {
        if (problem) return;
        Place place{table.path_, at, column, {}};
        if (column != 0 && column <= table.header_.size()) {
            place.columnName = table.header_[column - 1];
        }
        problem = describe(place) + ": " + text;
    }

    void onField(const char* data, std::size_t size) {
        if (problem) return;
        if (field == 0) {
            // A line break inside the first field puts its start lines back.
            recordLine = line - static_cast<std::uint64_t>(std::count(data, data + size, '\n'));
        }
        std::string_view text(data, size);
        if (inHeader) {
            if (field == 0 && text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
            table.header_.emplace_back(text);
        } else if (field < table.columns_.size()) {
            auto& column = table.columns_[field];
            column.text.append(text);
            column.ends.push_back(column.text.size());
        }
        ++field;
    }

    void onRecord() {
        if (problem) return;
        if (inHeader) {
            finishHeader();
        } else if (field != table.header_.size()) {
            fail(recordLine, 0,
                 "this row has " + std::to_string(field) + " fields, but the header has " +
                     std::to_string(table.header_.size()));
        } else {
            table.lines_.push_back(recordLine);
        }
        field = 0;
        lastEnd = line;
    }

    void finishHeader() {
        inHeader = false;
        if (headerOptional && allNumbers(table.header_)) {
            // No header: the first row is data, and the columns have no names.
            table.hasHeader_ = false;
            table.columns_.resize(table.header_.size());
            for (std::uint64_t c = 0; c < table.header_.size(); ++c) {
                table.columns_[c].text = std::move(table.header_[c]);
                table.columns_[c].ends.push_back(table.columns_[c].text.size());
                table.header_[c].clear();
            }
            table.lines_.push_back(recordLine);
            return;
        }
        const auto& names = table.header_;
        for (std::uint64_t c = 0; c < names.size(); ++c) {
            if (names[c].empty()) {
                fail(recordLine, c + 1, "the header gives this column no name");
            } else if (std::find(names.begin(), names.begin() + c, names[c]) != names.begin() + c) {
                fail(recordLine, c + 1, "the column name \"" + names[c] + "\" is used twice");
            }
        }
        table.columns_.resize(names.size());
    }
};

namespace {

void fieldCallback(void* data, std::size_t size, void* state) {
    static_cast<CsvParse*>(state)->onField(static_cast<const char*>(data), size);
}

void recordCallback(int, void* state) { static_cast<CsvParse*>(state)->onRecord(); }

struct ParserDeleter {
    void operator()(csv_parser* p) const noexcept {
        csv_free(p);
        delete p;
    }
};

}  // namespace

CsvTable CsvTable::read(const std::string& path, Header header) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw UserError("cannot open " + path + ": " + std::strerror(errno));
    CsvTable table;
    table.path_ = path;
    std::unique_ptr<csv_parser, ParserDeleter> parser(new csv_parser);
    if (csv_init(parser.get(), CSV_STRICT | CSV_STRICT_FINI) != 0) {
        throw UserError("cannot set up the CSV parser for " + path);
    }
    CsvParse state(table);
    state.headerOptional = header == Header::Optional;
    std::string text;
    while (std::getline(in, text)) {
        ++state.line;
        if (!in.eof()) text.push_back('\n');
        const std::size_t used = csv_parse(parser.get(), text.data(), text.size(),
                                           fieldCallback, recordCallback, &state);
        if (used != text.size() && !state.problem) {
            state.fail(state.line, 0,
                       csv_error(parser.get()) == CSV_EPARSE
                           ? "broken quoting: a quote inside an unquoted field, or text after "
                             "a closing quote"
                           : csv_strerror(csv_error(parser.get())));
        }
        if (state.problem) throw UserError(*state.problem);
    }
    if (in.bad()) throw UserError("cannot read " + path + ": " + std::strerror(errno));
    if (csv_fini(parser.get(), fieldCallback, recordCallback, &state) != 0 && !state.problem) {
        state.fail(state.lastEnd + 1, 0, "a quoted field is not closed by the end of the file");
    }
    if (state.problem) throw UserError(*state.problem);
    if (table.header_.empty()) throw UserError(path + ": the file is empty; it needs a header row");
    if (table.lines_.empty()) throw UserError(path + ": the file has a header but no data rows");
    return table;
}

std::string_view CsvTable::field(std::uint64_t row, std::uint64_t column) const {
    const Column& c = columns_[column];
    const std::uint64_t begin = row == 0 ? 0 : c.ends[row - 1];
    return std::string_view(c.text).substr(begin, c.ends[row] - begin);
}

Place CsvTable::place(std::uint64_t row, std::uint64_t column) const {
    return Place{path_, lines_[row], column + 1, header_[column]};
}

std::optional<std::uint64_t> CsvTable::find(std::string_view name) const {
    const auto it = std::find(header_.begin(), header_.end(), name);
    if (it == header_.end()) return std::nullopt;
    return static_cast<std::uint64_t>(it - header_.begin());
}

std::uint64_t CsvTable::require(std::string_view name, std::string_view option) const {
    if (auto column = find(name)) return *column;
    std::string known;
    for (const std::string& h : header_) known += (known.empty() ? "" : ", ") + h;
    const std::string problem =
        "no column \"" + std::string(name) + "\" in " + path_ + " (its columns: " + known + ")";
    if (option.empty()) throw UserError(problem);
    failOption(option, problem);
}

}  // namespace arbolin::cli

#include "cli/csv.hpp"

#include <csv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace arbolin::cli {

using frontend::failOption;
using frontend::Notices;
using frontend::UserError;

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// The offset of the first byte that is not part of a well-formed UTF-8
// sequence (no overlong forms, surrogates or code points past U+10FFFF),
// or npos.
std::size_t invalidUtf8(std::string_view s) {
    std::size_t i = 0;
    while (i < s.size()) {
        const auto lead = static_cast<unsigned char>(s[i]);
        if (lead < 0x80) {
            ++i;
            continue;
        }
        std::size_t more = 0;
        unsigned char low = 0x80;  // bounds of the second byte
        unsigned char high = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            more = 1;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            more = 2;
            if (lead == 0xE0) low = 0xA0;
            if (lead == 0xED) high = 0x9F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            more = 3;
            if (lead == 0xF0) low = 0x90;
            if (lead == 0xF4) high = 0x8F;
        } else {
            return i;
        }
        if (s.size() - i <= more) return i;
        for (std::size_t k = 1; k <= more; ++k) {
            const auto b = static_cast<unsigned char>(s[i + k]);
            if (b < (k == 1 ? low : 0x80) || b > (k == 1 ? high : 0xBF)) return i;
        }
        i += more + 1;
    }
    return std::string_view::npos;
}

// Line breaks are LF, CR LF or a lone CR, as libcsv ends records on each.
std::uint64_t lineBreaks(std::string_view text) {
    std::uint64_t count = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool lone = text[i] == '\r' && (i + 1 == text.size() || text[i + 1] != '\n');
        count += text[i] == '\n' || lone;
    }
    return count;
}

// The end of the line that starts at `start`, after its line break.
std::size_t lineEnd(std::string_view text, std::size_t start) {
    const std::size_t stop = text.find_first_of("\r\n", start);
    if (stop == std::string_view::npos) return text.size();
    return stop + (text[stop] == '\r' && stop + 1 < text.size() && text[stop + 1] == '\n' ? 2 : 1);
}

// Every byte of 0x80..0xFF is the code point of the same number.
std::string latin1ToUtf8(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size() + bytes.size() / 8);
    for (const char c : bytes) {
        const auto b = static_cast<unsigned char>(c);
        if (b < 0x80) {
            text.push_back(c);
        } else {
            text.push_back(static_cast<char>(0xC0 | (b >> 6)));
            text.push_back(static_cast<char>(0x80 | (b & 0x3F)));
        }
    }
    return text;
}

// Of comma, semicolon and tab, the one that occurs most often outside
// quotes in the first line; comma when none does better.
char detectDelimiter(std::string_view text) {
    constexpr std::array<char, 3> kCandidates{',', ';', '\t'};
    std::array<std::uint64_t, 3> counts{};
    bool quoted = false;
    for (const char c : text) {
        if (c == '"') {
            quoted = !quoted;  // a doubled quote toggles twice
        } else if (!quoted) {
            if (c == '\n' || c == '\r') break;
            for (std::size_t k = 0; k < kCandidates.size(); ++k) counts[k] += c == kCandidates[k];
        }
    }
    const auto best = std::max_element(counts.begin(), counts.end());  // the first of equals
    return kCandidates[static_cast<std::size_t>(best - counts.begin())];
}

// The option's value as given, or its default; one of its choices.
std::string choice(const frontend::RawOptions& options, std::string_view name) {
    const auto rows = frontend::fitOptions();
    const auto row = std::find_if(rows.begin(), rows.end(),
                                  [&](const frontend::OptionRow& r) { return r.name == name; });
    if (row == rows.end()) throw std::logic_error("no option " + std::string(name));
    const std::string text = options.value(name).value_or(std::string(row->value));
    if (text.empty()) return text;
    const auto words = frontend::choiceList(row->choices(frontend::DataShape{}));
    if (std::find(words.begin(), words.end(), text) == words.end()) {
        failOption(name, "\"" + text + "\" is not one of " + frontend::joinChoices(words));
    }
    return text;
}

const char* delimiterPlural(char delimiter) {
    switch (delimiter) {
        case ';': return "semicolons";
        case '\t': return "tabs";
        case '|': return "| characters";
        default: return "commas";
    }
}

}  // namespace

// The state that libcsv's callbacks fill. Exceptions must not cross the C
// library, so the first problem is recorded here and raised after it returns.
struct CsvParse {
    explicit CsvParse(CsvTable& t) : table(t) {}

    CsvTable& table;
    std::uint64_t line = 0;        // physical line being parsed
    std::uint64_t field = 0;       // fields so far in this record
    std::uint64_t recordLine = 0;  // where this record started
    std::uint64_t lastEnd = 0;     // line of the last complete record
    bool inHeader = true;
    bool headerIsData = false;
    bool checkUtf8 = true;
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
        std::string_view text(data, size);
        if (field == 0) {
            // A line break inside the first field puts its start lines back.
            recordLine = line - lineBreaks(text);
        }
        if (inHeader && field == 0 && text.starts_with(kByteOrderMark)) {
            text.remove_prefix(kByteOrderMark.size());
        }
        if (checkUtf8) {
            if (const std::size_t bad = invalidUtf8(text); bad != std::string_view::npos) {
                char byte[8];
                std::snprintf(byte, sizeof byte, "0x%02X", static_cast<unsigned char>(text[bad]));
                fail(line - lineBreaks(text.substr(bad)), field + 1,
                     std::string("byte ") + byte +
                         " is not valid UTF-8; if the file is Latin-1, read it with "
                         "--encoding latin1");
                return;
            }
        }
        if (inHeader) {
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
        } else if (field != table.columns_.size()) {
            fail(recordLine, 0,
                 "this row has " + std::to_string(field) + " fields, but the " +
                     (table.hasHeader_ ? "header has " : "first row has ") +
                     std::to_string(table.columns_.size()));
        } else {
            table.lines_.push_back(recordLine);
        }
        field = 0;
        lastEnd = line;
    }

    void finishHeader() {
        inHeader = false;
        if (headerIsData) {
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

struct FileCloser {
    void operator()(std::FILE* f) const noexcept { std::fclose(f); }
};

}  // namespace

namespace {

std::unique_ptr<std::FILE, FileCloser> openFile(const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
        throw UserError(path + " is a folder, not a CSV file");
    }
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
    if (!file) throw UserError("cannot open " + path + ": " + std::strerror(errno));
    return file;
}

// Appends up to `size` bytes of the file; false at its end.
bool readPiece(std::FILE* file, const std::string& path, std::string& to, std::size_t size) {
    const std::size_t had = to.size();
    to.resize(had + size);
    const std::size_t got = std::fread(to.data() + had, 1, size, file);
    to.resize(had + got);
    if (std::ferror(file)) throw UserError("cannot read " + path + ": " + std::strerror(errno));
    return got != 0;
}

// Whether the first line ends within `text`: a line break outside quotes.
bool firstLineEnds(std::string_view text) {
    bool quoted = false;
    for (const char c : text) {
        if (c == '"') {
            quoted = !quoted;
        } else if (!quoted && (c == '\n' || c == '\r')) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::string readFileBytes(const std::string& path) {
    const auto file = openFile(path);
    std::string bytes;
    while (readPiece(file.get(), path, bytes, 1 << 16)) {
    }
    return bytes;
}

CsvTable CsvTable::read(const std::string& path, const CsvFormat& format, Header header) {
    // A piece at a time: the file is never held whole beside its table.
    const auto file = openFile(path);
    return parseStream([&](std::string& to) { return readPiece(file.get(), path, to, 1 << 20); },
                       path, format, header);
}

CsvTable CsvTable::parse(std::string_view bytes, const std::string& name, const CsvFormat& format,
                         Header header) {
    bool given = false;
    return parseStream(
        [&](std::string& to) {
            if (given) return false;
            to.append(bytes);
            given = true;
            return true;
        },
        name, format, header);
}

template <class More>
CsvTable CsvTable::parseStream(More&& more, const std::string& name, const CsvFormat& format,
                               Header header) {
    CsvTable table;
    table.path_ = name;
    // The bytes not parsed yet, converted to UTF-8; `end` once `more` has
    // given everything.
    std::string pending;
    bool end = false;
    auto fill = [&] {
        std::string piece;
        if (!more(piece)) {
            end = true;
        } else if (format.encoding == Encoding::Latin1) {
            pending += latin1ToUtf8(piece);
        } else {
            pending += piece;
        }
    };
    // The first line whole, for the byte order marks and the delimiter.
    while (!end && !firstLineEnds(pending)) fill();
    if (format.encoding != Encoding::Latin1 &&
        (pending.starts_with("\xFF\xFE") || pending.starts_with("\xFE\xFF"))) {
        throw UserError(name +
                        ": the file is UTF-16 (it starts with a UTF-16 byte order mark); "
                        "save it as UTF-8");
    }
    table.delimiter_ = format.delimiter != 0 ? format.delimiter : detectDelimiter(pending);
    if (format.delimiter == 0 && table.delimiter_ != ',') {
        table.notices_.note(name + ": fields separated by " + delimiterPlural(table.delimiter_) +
                            ", which split the first line most (--delimiter sets another)");
    }

    std::unique_ptr<csv_parser, ParserDeleter> parser(new csv_parser);
    if (csv_init(parser.get(), CSV_STRICT | CSV_STRICT_FINI) != 0) {
        throw UserError("cannot set up the CSV parser for " + name);
    }
    csv_set_delim(parser.get(), static_cast<unsigned char>(table.delimiter_));
    CsvParse state(table);
    state.headerIsData = header == Header::None;
    state.checkUtf8 = format.encoding == Encoding::Utf8;
    // One physical line at a time, so that the callbacks know the line. A
    // line is taken once its end is certain: a final \r may be half of \r\n.
    std::size_t start = 0;
    for (;;) {
        while (start < pending.size()) {
            const std::size_t stop = pending.find_first_of("\r\n", start);
            const bool whole =
                stop != std::string::npos && (pending[stop] == '\n' || stop + 1 < pending.size());
            if (!whole && !end) break;
            const std::size_t next = lineEnd(pending, start);
            ++state.line;
            const std::size_t used = csv_parse(parser.get(), pending.data() + start, next - start,
                                               fieldCallback, recordCallback, &state);
            if (used != next - start && !state.problem) {
                state.fail(state.line, 0,
                           csv_error(parser.get()) == CSV_EPARSE
                               ? "broken quoting: a quote inside an unquoted field, or text "
                                 "after a closing quote"
                               : csv_strerror(csv_error(parser.get())));
            }
            if (state.problem) throw UserError(*state.problem);
            start = next;
        }
        if (end) break;
        pending.erase(0, start);
        start = 0;
        fill();
    }
    if (csv_fini(parser.get(), fieldCallback, recordCallback, &state) != 0 && !state.problem) {
        state.fail(state.lastEnd + 1, 0, "a quoted field is not closed by the end of the file");
    }
    if (state.problem) throw UserError(*state.problem);
    if (table.header_.empty()) {
        throw UserError(name + ": the file is empty" +
                        (header == Header::Required ? "; it needs a header row" : ""));
    }
    if (table.lines_.empty()) throw UserError(name + ": the file has a header but no data rows");
    return table;
}

std::string_view CsvTable::field(std::uint64_t row, std::uint64_t column) const {
    const Column& c = columns_[column];
    const std::uint64_t begin = row == 0 ? 0 : c.ends[row - 1];
    return std::string_view(c.text).substr(begin, c.ends[row] - begin);
}

double CsvTable::number(std::uint64_t, std::uint64_t) const {
    throw std::logic_error("a CSV table holds text only");
}

std::string CsvTable::place(std::optional<std::uint64_t> row, std::uint64_t column) const {
    return describe(Place{path_, row ? lines_[*row] : 0, column + 1, header_[column]});
}

std::string CsvTable::rowName(std::uint64_t row) const {
    return "line " + std::to_string(lines_[row]);
}

std::optional<std::uint64_t> CsvTable::find(std::string_view name) const {
    if (!hasHeader_) return std::nullopt;
    return DataTable::find(name);
}

std::string describe(const Place& place) {
    std::string text = place.file;
    if (place.line != 0) text += ", line " + std::to_string(place.line);
    if (place.column != 0) {
        text += ", column " + std::to_string(place.column);
        if (!place.columnName.empty()) text += " (" + place.columnName + ")";
    }
    return text;
}

CsvFormat csvFormat(const frontend::RawOptions& options) {
    CsvFormat format;
    const std::string delimiter = choice(options, "delimiter");
    if (!delimiter.empty()) format.delimiter = delimiter == "tab" ? '\t' : delimiter.front();
    format.encoding = choice(options, "encoding") == "latin1" ? Encoding::Latin1 : Encoding::Utf8;
    return format;
}

std::vector<double> readCostFile(const std::string& path, const frontend::Levels& classes,
                                 const CsvFormat& format, bool single, Notices& notices) {
    return parseCostFile(readFileBytes(path), path, classes, format, single, notices);
}

std::vector<double> parseCostFile(std::string_view bytes, const std::string& name,
                                  const frontend::Levels& classes, const CsvFormat& format,
                                  bool single, Notices& notices) {
    const CsvTable table = CsvTable::parse(bytes, name, format, CsvTable::Header::None);
    notices.append(table.notices());
    return frontend::readCostMatrix(table, classes, single, notices);
}

void writeCsvRow(std::ostream& out, const std::vector<std::string>& fields) {
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const std::string& f = fields[i];
        if (i != 0) out << ',';
        const bool quote = f.find_first_of(",\"\r\n") != std::string::npos ||
                           (!f.empty() && (f.front() == ' ' || f.back() == ' '));
        if (!quote) {
            out << f;
            continue;
        }
        out << '"';
        for (char c : f) {
            if (c == '"') out << '"';
            out << c;
        }
        out << '"';
    }
    out << '\n';
}

}  // namespace arbolin::cli

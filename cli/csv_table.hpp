// A CSV file with a header row, held column by column as the text of each
// field. Quoted fields may hold delimiters, quotes ("") and line breaks.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/errors.hpp"
#include "cli/notices.hpp"

namespace arbolin::cli {

enum class Encoding { Utf8, Latin1 };

// How the bytes of a CSV file are read.
struct CsvFormat {
    // ',', ';', '\t' or '|'; 0 takes the one of ',', ';' and tab that splits
    // the header line into the most fields outside quotes (',' on a tie).
    char delimiter = 0;
    // Latin-1 bytes are converted to UTF-8 as they are read; UTF-8 is checked.
    Encoding encoding = Encoding::Utf8;
};

// The bytes of a file; a folder, or a file that cannot be read, throws
// UserError naming it.
std::string readFileBytes(const std::string& path);

class CsvTable {
public:
    // None: every row is data, and the columns have no names.
    enum class Header { Required, None };

    // Throws UserError for a file that cannot be opened or is a folder, is
    // empty, has no data rows, an empty or repeated column name, a ragged
    // row, broken quoting or bytes that are not UTF-8; the message names
    // the file, line and column.
    static CsvTable read(const std::string& path, const CsvFormat& format = {},
                         Header header = Header::Required);
    // The same from bytes in memory; `name` stands for the file in messages.
    static CsvTable parse(std::string_view bytes, const std::string& name,
                          const CsvFormat& format = {}, Header header = Header::Required);

    const std::string& path() const noexcept { return path_; }
    const std::vector<std::string>& header() const noexcept { return header_; }  // "" without one
    bool hasHeader() const noexcept { return hasHeader_; }
    std::uint64_t columnCount() const noexcept { return columns_.size(); }
    std::uint64_t rowCount() const noexcept { return lines_.size(); }
    std::string_view field(std::uint64_t row, std::uint64_t column) const;
    std::uint64_t line(std::uint64_t row) const { return lines_[row]; }
    Place place(std::uint64_t row, std::uint64_t column) const;
    char delimiter() const noexcept { return delimiter_; }
    // A note of the delimiter found, when it is not a comma.
    const Notices& notices() const noexcept { return notices_; }

    std::optional<std::uint64_t> find(std::string_view name) const;
    // The column called `name`; a missing one is an error of `option`
    // (or of the file, when no option named it).
    std::uint64_t require(std::string_view name, std::string_view option) const;

private:
    friend struct CsvParse;
    struct Column {
        std::string text;
        std::vector<std::uint64_t> ends;  // end of each field in `text`
    };
    std::string path_;
    std::vector<std::string> header_;
    bool hasHeader_ = true;
    std::vector<Column> columns_;
    std::vector<std::uint64_t> lines_;  // the line each row starts on
    char delimiter_ = ',';
    Notices notices_;
};

}  // namespace arbolin::cli

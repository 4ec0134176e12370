// CSV files: a table read from one, with a header row, held column by
// column as the text of each field (quoted fields may hold delimiters,
// quotes ("") and line breaks); how the options say to read them; and rows
// written back.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/data.hpp"
#include "frontend/errors.hpp"
#include "frontend/options.hpp"

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

// From --delimiter and --encoding; a value that is not one of the option's
// choices throws UserError naming the option.
CsvFormat csvFormat(const frontend::RawOptions& options);

// A cell of a CSV file: line and column are 1-based; 0 leaves them out.
struct Place {
    std::string file;
    std::uint64_t line = 0;
    std::uint64_t column = 0;
    std::string columnName;
};

// "iris.csv, line 4, column 5 (species)"
std::string describe(const Place& place);

// The bytes of a file; a folder, or a file that cannot be read, throws
// UserError naming it.
std::string readFileBytes(const std::string& path);

class CsvTable : public frontend::DataTable {
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

    // Every column is Text; names are "" without a header.
    const std::string& name() const override { return path_; }
    const std::vector<std::string>& header() const override { return header_; }
    std::uint64_t rowCount() const override { return lines_.size(); }
    ColumnType type(std::uint64_t) const override { return ColumnType::Text; }
    std::string_view field(std::uint64_t row, std::uint64_t column) const override;
    double number(std::uint64_t row, std::uint64_t column) const override;
    std::string place(std::optional<std::uint64_t> row, std::uint64_t column) const override;
    std::string rowName(std::uint64_t row) const override;
    std::optional<std::uint64_t> find(std::string_view name) const override;

    bool hasHeader() const noexcept { return hasHeader_; }
    std::uint64_t columnCount() const noexcept { return columns_.size(); }
    std::uint64_t line(std::uint64_t row) const { return lines_[row]; }
    char delimiter() const noexcept { return delimiter_; }
    // A note of the delimiter found, when it is not a comma.
    const frontend::Notices& notices() const noexcept { return notices_; }

private:
    friend struct CsvParse;
    // Parses what `more(std::string&)` appends, piece by piece, until it
    // returns false.
    template <class More>
    static CsvTable parseStream(More&& more, const std::string& name, const CsvFormat& format,
                                Header header);
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
    frontend::Notices notices_;
};

// A cost file read with the data file's format (frontend::readCostMatrix
// says what it holds); `notices` gets the delimiter found too.
std::vector<double> readCostFile(const std::string& path, const frontend::Levels& classes,
                                 const CsvFormat& format, bool single, frontend::Notices& notices);
// The same from bytes in memory; `name` stands for the file in messages.
std::vector<double> parseCostFile(std::string_view bytes, const std::string& name,
                                  const frontend::Levels& classes, const CsvFormat& format,
                                  bool single, frontend::Notices& notices);

// One row, quoting fields where needed.
void writeCsvRow(std::ostream& out, const std::vector<std::string>& fields);

}  // namespace arbolin::cli

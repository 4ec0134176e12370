// A CSV file with a header row, held column by column as the text of each
// field. Quoted fields may hold commas, quotes ("") and line breaks.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/errors.hpp"

namespace arbolin::cli {

class CsvTable {
public:
    // Optional: the first row is data when every field of it is a number.
    enum class Header { Required, Optional };

    // Throws UserError for a file that cannot be opened, is empty, has no
    // data rows, an empty or repeated column name, a ragged row, or broken
    // quoting; the message names the file, line and column.
    static CsvTable read(const std::string& path, Header header = Header::Required);

    const std::string& path() const noexcept { return path_; }
    const std::vector<std::string>& header() const noexcept { return header_; }  // "" without one
    bool hasHeader() const noexcept { return hasHeader_; }
    std::uint64_t rowCount() const noexcept { return lines_.size(); }
    std::string_view field(std::uint64_t row, std::uint64_t column) const;
    Place place(std::uint64_t row, std::uint64_t column) const;

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
};

}  // namespace arbolin::cli

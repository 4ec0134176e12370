// How a command reads its CSV files, from the options that say so
// (--delimiter, --encoding, --missing), checked before any file is read.
#pragma once

#include <nlohmann/json.hpp>

#include "cli/csv_table.hpp"
#include "cli/settings.hpp"
#include "cli/values.hpp"

namespace arbolin::cli {

// A value that is not one of the option's choices throws UserError naming
// the option.
CsvFormat csvFormat(const RawOptions& options);
MissingValues missingValues(const RawOptions& options);
// For predict: those of the options, and those a model was grown with (the
// "missing" list in its options).
MissingValues missingValues(const RawOptions& options, const nlohmann::ordered_json& grownWith);

}  // namespace arbolin::cli

// A misclassification cost matrix from a CSV file.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/csv_table.hpp"
#include "cli/levels.hpp"
#include "cli/notices.hpp"

namespace arbolin::cli {

// K rows of K finite numbers, 0 or more, with zeros on the diagonal: row i
// is the true class i, column j the predicted class j, classes in code
// order. A first row of class labels gives the order of both rows and
// columns instead; a first row with a number, NaN, an infinity or a blank
// in it is data. With `single`, every cost must fit in single precision.
// Returns the matrix column-major, as the module reads it; `notices` gets
// the delimiter found and a warning when every cost is 0.
std::vector<double> readCostMatrix(const std::string& path, const Levels& classes,
                                   const CsvFormat& format, bool single, Notices& notices);
// The same from bytes in memory; `name` stands for the file in messages.
std::vector<double> parseCostMatrix(std::string_view bytes, const std::string& name,
                                    const Levels& classes, const CsvFormat& format, bool single,
                                    Notices& notices);

}  // namespace arbolin::cli

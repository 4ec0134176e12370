// A misclassification cost matrix from a CSV file.
#pragma once

#include <string>
#include <vector>

#include "cli/levels.hpp"

namespace arbolin::cli {

// K rows of K finite numbers, 0 or more: row i is the true class i,
// column j the predicted class j, classes in code order. An optional header
// row of class labels gives the order of both rows and columns instead.
// Returns the matrix column-major, as the module reads it.
std::vector<double> readCostMatrix(const std::string& path, const Levels& classes);

}  // namespace arbolin::cli

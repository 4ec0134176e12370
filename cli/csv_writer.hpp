// Writing CSV rows, quoting fields where needed.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace arbolin::cli {

void writeCsvRow(std::ostream& out, const std::vector<std::string>& fields);

}  // namespace arbolin::cli

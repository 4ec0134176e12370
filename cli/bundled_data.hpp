// The data sets that come with the tool, reachable by name ("iris").
#pragma once

#include <string>
#include <vector>

namespace arbolin::cli {

// $ARBOLIN_DATA, or the data folder of the source tree.
std::string dataDirectory();
std::vector<std::string> bundledNames();

// `name` itself when it is a file; otherwise the bundled data set of that
// name. Throws UserError when it is neither.
std::string resolveDataFile(const std::string& name);

}  // namespace arbolin::cli

#include "cli/bundled_data.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "frontend/errors.hpp"

namespace arbolin::cli {

using frontend::UserError;

namespace fs = std::filesystem;

std::string dataDirectory() {
    const char* dir = std::getenv("ARBOLIN_DATA");
    return dir != nullptr && *dir != '\0' ? dir : ARBOLIN_DATA_DIR;
}

std::vector<std::string> bundledNames() {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(dataDirectory(), error)) {
        if (entry.path().extension() == ".csv") names.push_back(entry.path().stem().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string resolveDataFile(const std::string& name) {
    std::error_code error;
    if (fs::exists(name, error)) return name;
    const bool plainName = name.find('/') == std::string::npos && !name.empty();
    if (plainName) {
        for (const std::string& candidate : {name, name + ".csv"}) {
            const fs::path path = fs::path(dataDirectory()) / candidate;
            if (fs::is_regular_file(path, error)) return path.string();
        }
    }
    std::string known;
    for (const std::string& n : bundledNames()) known += (known.empty() ? "" : ", ") + n;
    throw UserError("no file " + name + ", and no bundled data set of that name (bundled: " +
                    (known.empty() ? "none found in " + dataDirectory() : known) + ")");
}

}  // namespace arbolin::cli

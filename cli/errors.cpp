#include "cli/errors.hpp"

namespace arbolin::cli {

std::string describe(const Place& place) {
    std::string text = place.file;
    if (place.line != 0) text += ", line " + std::to_string(place.line);
    if (place.column != 0) {
        text += ", column " + std::to_string(place.column);
        if (!place.columnName.empty()) text += " (" + place.columnName + ")";
    }
    return text;
}

void failAt(const Place& place, const std::string& problem) {
    throw UserError(describe(place) + ": " + problem);
}

void failOption(std::string_view option, const std::string& problem) {
    throw UserError("option --" + std::string(option) + ": " + problem, kExitBadUsage);
}

}  // namespace arbolin::cli

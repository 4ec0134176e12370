// JSON for people and programs: objects one member a line, but each array
// object of the module (one that has a "class" and a "shape") on a single
// line, so that a model of many nodes stays short.
#pragma once

#include <ostream>

#include <nlohmann/json.hpp>

namespace arbolin::cli {

void writePrettyJson(std::ostream& out, const nlohmann::ordered_json& json, int depth = 0);

}  // namespace arbolin::cli

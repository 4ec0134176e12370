// Host arrays as JSON and back. An array is an object with its class, its
// shape and its elements in column-major order, as the host holds them:
//   {"class": "double", "shape": [2, 3], "data": [1, 2, null, ...]}
// NaN is null and an infinity "Inf" or "-Inf"; single values are written
// as the doubles they equal. A cell's data holds arrays, or null for an
// element that is unset; a char array has "text" instead of "data".
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "host/numora_host.hpp"

namespace arbolin::cli {

nlohmann::ordered_json arrayToJson(const cxArray* a);

// A value as a message quotes it: its JSON, cut short when long.
std::string jsonExcerpt(const nlohmann::ordered_json& json);

// Throws UserError naming `where` when the JSON is not such an array.
numora::ArrayPtr arrayFromJson(const nlohmann::ordered_json& json, const std::string& where,
                               int depth = 0);

}  // namespace arbolin::cli

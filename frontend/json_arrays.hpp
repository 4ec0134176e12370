// Host arrays as JSON and back, and JSON written for people; shared by the
// model file's two sources only, so that few files compile the JSON library.
//
// An array is an object with its class, its shape and its elements in
// column-major order, as the host holds them:
//   {"class": "double", "shape": [2, 3], "data": [1, 2, null, ...]}
// NaN is null and an infinity "Inf" or "-Inf"; single values are written
// as the doubles they equal. A cell's data holds arrays, or null for an
// element that is unset; a char array has "text" instead of "data".
#pragma once

#include <ostream>
#include <string>

#include <nlohmann/json.hpp>

#include "host/numora_host.hpp"

namespace arbolin::frontend {

nlohmann::ordered_json arrayToJson(const cxArray* a);

// A value as a message quotes it: its JSON, cut short when long.
std::string jsonExcerpt(const nlohmann::ordered_json& json);

// Throws UserError naming `where` when the JSON is not such an array.
numora::ArrayPtr arrayFromJson(const nlohmann::ordered_json& json, const std::string& where,
                               int depth = 0);

// Objects one member a line, but each array object of the module (one that
// has a "class" and a "shape") on a single line, so that a model of many
// nodes stays short.
void writePrettyJson(std::ostream& out, const nlohmann::ordered_json& json, int depth = 0);

}  // namespace arbolin::frontend

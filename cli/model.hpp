// A grown tree with what it takes to read and apply it: the predictors by
// name and kind, the labels behind the codes of levels and classes, the
// options used, and the module's twenty-two outputs as they came back.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli/levels.hpp"
#include "cli/predictor.hpp"
#include "host/numora_host.hpp"

namespace arbolin::cli {

struct Model {
    std::vector<Predictor> predictors;
    std::string response;
    bool classification = false;
    Levels classes;       // classification only
    std::string weights;  // "" for none
    bool single = false;  // grown on single-precision data
    nlohmann::ordered_json options = nlohmann::ordered_json::object();
    nlohmann::ordered_json training = nlohmann::ordered_json::object();
    std::vector<numora::ArrayPtr> outputs;  // all twenty-two, in order
};

nlohmann::ordered_json modelToJson(const Model& model);
// Throws UserError naming `path` and the entry when the JSON is not a model.
Model modelFromJson(const nlohmann::ordered_json& json, const std::string& path);

// Written to a temporary file beside `path`, then renamed over it.
void saveModel(const Model& model, const std::string& path);
Model loadModel(const std::string& path);

}  // namespace arbolin::cli

// A grown tree with what it takes to read and apply it: the predictors by
// name and kind, the labels behind the codes of levels and classes, the
// options used, and the module's twenty-two outputs as they came back.
#pragma once

#include <string>
#include <string_view>
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
    // Misclassification costs, K by K column-major (row: true class,
    // column: predicted class); empty for none. With costs a node predicts
    // the class of least expected cost.
    std::vector<double> costs;
    std::string weights;  // "" for none
    bool single = false;  // grown on single-precision data
    nlohmann::ordered_json options = nlohmann::ordered_json::object();
    nlohmann::ordered_json training = nlohmann::ordered_json::object();
    std::vector<numora::ArrayPtr> outputs;  // all twenty-two, in order
};

nlohmann::ordered_json modelToJson(const Model& model);
// Throws UserError naming `path` and the entry when the JSON is not a model.
Model modelFromJson(const nlohmann::ordered_json& json, const std::string& path);

// Written as OutputFile writes: a regular file through a temporary file
// beside it, renamed over it. Throws UserError naming `path` and the reason.
void saveModel(const Model& model, const std::string& path);
// Throws UserError naming the file (or `name`) and the problem.
Model loadModel(const std::string& path);
Model loadModelFromMemory(std::string_view bytes, const std::string& name);

}  // namespace arbolin::cli

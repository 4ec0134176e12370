#include "cli/model.hpp"

#include <cmath>
#include <set>

#include "cli/array_json.hpp"
#include "cli/errors.hpp"
#include "cli/outputs.hpp"

namespace arbolin::cli {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kFormat = "arbolin model";
constexpr int kVersion = 1;

Json levelsJson(const Levels& levels) { return levels.labels(); }

// Reads one entry, with its place in the file in every complaint.
class Reader {
public:
    // `path` is the file, `prefix` the entry that holds `json` ("" for the top).
    Reader(const Json& json, std::string path, std::string prefix)
        : json_(json), path_(std::move(path)), prefix_(std::move(prefix)) {}

    const Json& at(const std::string& key, Json::value_t type, const char* what) const {
        const auto it = json_.find(key);
        if (it == json_.end()) fail(key, "is missing");
        const bool ok = type == Json::value_t::number_unsigned ? it->is_number_unsigned()
                                                               : it->type() == type;
        if (!ok) fail(key, std::string("should be ") + what);
        return *it;
    }
    std::string text(const std::string& key) const {
        return at(key, Json::value_t::string, "text").get<std::string>();
    }
    bool flag(const std::string& key) const {
        return at(key, Json::value_t::boolean, "true or false").get<bool>();
    }
    std::vector<std::string> texts(const std::string& key) const {
        const Json& list = at(key, Json::value_t::array, "a list of texts");
        std::vector<std::string> out;
        for (const Json& e : list) {
            if (!e.is_string()) fail(key, "should hold texts only");
            out.push_back(e.get<std::string>());
        }
        return out;
    }
    [[noreturn]] void fail(const std::string& key, const std::string& problem) const {
        const std::string name = prefix_.empty() ? key : key.empty() ? prefix_ : prefix_ + "." + key;
        throw UserError(path_ + ": the entry " + name + " " + problem);
    }

private:
    const Json& json_;
    std::string path_;
    std::string prefix_;
};

// Row i holds the costs of predicting each class for true class i.
Json costRows(const std::vector<double>& cost, std::uint64_t K) {
    Json rows = Json::array();
    for (std::uint64_t i = 0; i < K; ++i) {
        std::vector<double> row;
        for (std::uint64_t j = 0; j < K; ++j) row.push_back(cost[i + j * K]);
        rows.push_back(row);
    }
    return rows;
}

// The costs of entry `key`, column-major; none for null.
std::vector<double> readCosts(const Reader& r, const Json& rows, const std::string& key,
                              std::uint64_t K) {
    if (rows.is_null()) return {};
    const std::string shape = "should be " + std::to_string(K) + " rows of " + std::to_string(K) +
                              " costs, one row and column per class";
    if (!rows.is_array() || rows.size() != K) r.fail(key, shape);
    for (const Json& row : rows) {
        if (!row.is_array() || row.size() != K) r.fail(key, shape);
    }
    std::vector<double> cost(K * K);
    for (std::uint64_t i = 0; i < K; ++i) {
        for (std::uint64_t j = 0; j < K; ++j) {
            const Json& v = rows[i][j];
            if (!v.is_number() || !(v.get<double>() >= 0) || !std::isfinite(v.get<double>())) {
                r.fail(key, "holds " + jsonExcerpt(v) + ", not a finite cost of 0 or more");
            }
            cost[i + j * K] = v.get<double>();
        }
    }
    return cost;
}

Levels readLevels(const Reader& r, const std::string& key, const std::string& numbersKey) {
    std::vector<std::string> labels = r.texts(key);
    std::set<std::string> distinct(labels.begin(), labels.end());
    if (distinct.size() != labels.size()) r.fail(key, "repeats a label");
    return Levels::fromLabels(std::move(labels), r.flag(numbersKey));
}

}  // namespace

Json modelToJson(const Model& model) {
    Json json = Json::object();
    json["format"] = kFormat;
    json["version"] = kVersion;
    json["task"] = model.classification ? "classification" : "regression";
    Json response = {{"name", model.response}};
    if (model.classification) {
        response["classes"] = levelsJson(model.classes);
        response["classes_are_numbers"] = model.classes.numbers();
        if (!model.costs.empty()) {
            response["cost_matrix"] = costRows(model.costs, model.classes.size());
        }
    }
    json["response"] = std::move(response);
    Json predictors = Json::array();
    for (const Predictor& p : model.predictors) {
        Json entry = {{"name", p.name},
                      {"kind", p.kind == PredictorKind::Nominal ? "nominal" : "numeric"}};
        if (p.kind == PredictorKind::Nominal) {
            entry["levels"] = levelsJson(p.levels);
            entry["levels_are_numbers"] = p.levels.numbers();
        }
        predictors.push_back(std::move(entry));
    }
    json["predictors"] = std::move(predictors);
    json["weights"] = model.weights.empty() ? Json(nullptr) : Json(model.weights);
    json["precision"] = model.single ? "single" : "double";
    json["options"] = model.options;
    json["training"] = model.training;
    Json outputs = Json::object();
    for (int i = 0; i < kOutputCount; ++i) {
        outputs[std::string(kOutputNames[i])] = arrayToJson(model.outputs[i].get());
    }
    json["outputs"] = std::move(outputs);
    return json;
}

Model modelFromJson(const Json& json, const std::string& path) {
    if (!json.is_object()) throw UserError(path + ": not an arbolin model (not a JSON object)");
    const Reader top(json, path, "");
    if (!json.contains("format") || json["format"] != kFormat) {
        throw UserError(path + ": not an arbolin model (\"format\" is not \"" + kFormat + "\")");
    }
    if (top.at("version", Json::value_t::number_unsigned, "a number") != kVersion) {
        top.fail("version", "should be 1");
    }
    Model model;
    const std::string task = top.text("task");
    if (task != "classification" && task != "regression") {
        top.fail("task", "should be \"classification\" or \"regression\"");
    }
    model.classification = task == "classification";
    const Reader response(top.at("response", Json::value_t::object, "an object"), path,
                          "response");
    model.response = response.text("name");
    if (model.classification) {
        model.classes = readLevels(response, "classes", "classes_are_numbers");
        if (model.classes.size() == 0) response.fail("classes", "is empty");
    }
    const Json& responseJson = json["response"];
    if (responseJson.contains("cost_matrix")) {
        if (!model.classification && !responseJson["cost_matrix"].is_null()) {
            response.fail("cost_matrix", "belongs to no regression model");
        }
        if (model.classification) {
            model.costs = readCosts(response, responseJson["cost_matrix"], "cost_matrix",
                                    model.classes.size());
        }
    } else if (model.classification && json.contains("training") && json["training"].is_object() &&
               json["training"].contains("cost_matrix")) {
        // Where models kept their costs before they had a place of their own.
        const Reader training(json["training"], path, "training");
        model.costs = readCosts(training, json["training"]["cost_matrix"], "cost_matrix",
                                model.classes.size());
    }
    const Json& predictors = top.at("predictors", Json::value_t::array, "a list");
    if (predictors.empty()) top.fail("predictors", "is empty");
    std::set<std::string> names;
    for (std::size_t j = 0; j < predictors.size(); ++j) {
        const Reader r(predictors[j], path, "predictors[" + std::to_string(j) + "]");
        if (!predictors[j].is_object()) r.fail("", "should be an object");
        Predictor p;
        p.name = r.text("name");
        if (!names.insert(p.name).second) r.fail("name", "repeats " + p.name);
        const std::string kind = r.text("kind");
        if (kind == "nominal") {
            p.kind = PredictorKind::Nominal;
            p.levels = readLevels(r, "levels", "levels_are_numbers");
        } else if (kind != "numeric") {
            r.fail("kind", "should be \"numeric\" or \"nominal\"");
        }
        model.predictors.push_back(std::move(p));
    }
    if (json.contains("weights") && json["weights"].is_string()) {
        model.weights = json["weights"].get<std::string>();
    }
    const std::string precision = top.text("precision");
    if (precision != "single" && precision != "double") {
        top.fail("precision", "should be \"single\" or \"double\"");
    }
    model.single = precision == "single";
    if (json.contains("options")) model.options = json["options"];
    if (json.contains("training")) model.training = json["training"];
    const Json& outputs = top.at("outputs", Json::value_t::object, "an object");
    for (int i = 0; i < kOutputCount; ++i) {
        const std::string name(kOutputNames[i]);
        const auto it = outputs.find(name);
        if (it == outputs.end()) top.fail("outputs." + name, "is missing");
        model.outputs.push_back(arrayFromJson(*it, path + ": the entry outputs." + name));
    }
    return model;
}

}  // namespace arbolin::cli

// The model file: a model as JSON and back, read from a file or from
// bytes, with every entry checked.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <set>
#include <sstream>

#include "frontend/json_arrays.hpp"
#include "frontend/model.hpp"
#include "gateway/contract.hpp"

namespace arbolin::frontend {

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
        const bool ok =
            type == Json::value_t::number_unsigned ? it->is_number_unsigned() : it->type() == type;
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
        const std::string name = prefix_.empty() ? key
                                 : key.empty()   ? prefix_
                                                 : prefix_ + "." + key;
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

// The tokens a model was grown with: the "missing" list of its options.
std::vector<std::string> grownMissing(const Json& options) {
    std::vector<std::string> tokens;
    if (!options.is_object()) return tokens;
    const auto it = options.find("missing");
    if (it == options.end() || !it->is_array()) return tokens;
    for (const auto& token : *it) {
        if (token.is_string()) tokens.push_back(token.get<std::string>());
    }
    return tokens;
}

// The pruning sequence as columns, one entry a subtree; NaN (no
// cross-validation) is null.
Json pruningJson(const PruningRecord& record) {
    Json alpha = Json::array(), leaves = Json::array(), risk = Json::array(),
         cvRisk = Json::array(), cvError = Json::array();
    const auto number = [](double v) { return std::isfinite(v) ? Json(v) : Json(nullptr); };
    for (const PruningStep& step : record.steps) {
        alpha.push_back(step.alpha);
        leaves.push_back(step.leaves);
        risk.push_back(step.risk);
        cvRisk.push_back(number(step.cvRisk));
        cvError.push_back(number(step.cvError));
    }
    Json json = {{"chosen", record.chosen}, {"folds", record.folds}};
    json["rule"] = record.rule.empty() ? Json(nullptr) : Json(record.rule);
    json["alpha"] = std::move(alpha);
    json["leaves"] = std::move(leaves);
    json["risk"] = std::move(risk);
    json["cv_risk"] = std::move(cvRisk);
    json["cv_error"] = std::move(cvError);
    return json;
}

PruningRecord readPruning(const Json& json, const std::string& path) {
    const Reader r(json, path, "pruning");
    if (!json.is_object()) r.fail("", "should be an object");
    PruningRecord record;
    const Json& leaves = r.at("leaves", Json::value_t::array, "a list");
    const std::uint64_t n = leaves.size();
    if (n == 0) r.fail("leaves", "is empty");
    const auto column = [&](const char* key, bool nullable) {
        const Json& list = r.at(key, Json::value_t::array, "a list");
        if (list.size() != n) r.fail(key, "should have one entry a subtree, as leaves has");
        std::vector<double> out;
        for (const Json& v : list) {
            if (nullable && v.is_null()) {
                out.push_back(std::nan(""));
            } else if (!v.is_number() || !std::isfinite(v.get<double>()) || v.get<double>() < 0) {
                r.fail(key, "holds " + jsonExcerpt(v) + ", not a finite number of 0 or more");
            } else {
                out.push_back(v.get<double>());
            }
        }
        return out;
    };
    const std::vector<double> alpha = column("alpha", false), risk = column("risk", false),
                              cvRisk = column("cv_risk", true), cvError = column("cv_error", true);
    for (std::uint64_t k = 0; k < n; ++k) {
        if (!leaves[k].is_number_unsigned() || leaves[k].get<std::uint64_t>() == 0) {
            r.fail("leaves", "holds " + jsonExcerpt(leaves[k]) + ", not a count of leaves");
        }
        record.steps.push_back(
            {alpha[k], leaves[k].get<std::uint64_t>(), risk[k], cvRisk[k], cvError[k]});
    }
    record.chosen = r.at("chosen", Json::value_t::number_unsigned, "a number").get<std::uint64_t>();
    if (record.chosen >= n) r.fail("chosen", "names no subtree of the sequence");
    record.folds = r.at("folds", Json::value_t::number_unsigned, "a number").get<std::uint64_t>();
    if (json.contains("rule") && json["rule"].is_string()) record.rule = json["rule"];
    return record;
}

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
    json["options"] = Json::parse(model.options);
    json["training"] = Json::parse(model.training);
    if (model.pruning) json["pruning"] = pruningJson(*model.pruning);
    Json outputs = Json::object();
    for (const contract::Argument& output : contract::kOutputs) {
        outputs[std::string(output.name)] =
            arrayToJson(model.outputs[contract::slot(output.position)].get());
    }
    json["outputs"] = std::move(outputs);
    return json;
}

// Throws UserError naming `path` and the entry when the JSON is not a model.
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
    const Reader response(top.at("response", Json::value_t::object, "an object"), path, "response");
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
    if (json.contains("options")) {
        model.options = json["options"].dump();
        model.missing = grownMissing(json["options"]);
    }
    if (json.contains("training")) model.training = json["training"].dump();
    if (json.contains("pruning")) model.pruning = readPruning(json["pruning"], path);
    const Json& outputs = top.at("outputs", Json::value_t::object, "an object");
    for (const contract::Argument& output : contract::kOutputs) {
        const std::string name(output.name);
        const auto it = outputs.find(name);
        if (it == outputs.end()) top.fail("outputs." + name, "is missing");
        model.outputs.push_back(arrayFromJson(*it, path + ": the entry outputs." + name));
    }
    return model;
}

// A model nests about ten deep; a deeper file is not one, and copying or
// printing such JSON recurses once per level.
constexpr int kMostNesting = 64;

// The library's messages start with a tag such as "[json.exception.parse_error.101] ".
std::string withoutTag(const std::string& what) {
    const auto end = what.find("] ");
    return end == std::string::npos ? what : what.substr(end + 2);
}

bool nestsTooDeeply(std::string_view text) {
    int depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') {
                ++i;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > kMostNesting) return true;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return false;
}

std::string readModelFile(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ENOENT) throw UserError("no model file " + path);
        throw UserError("cannot open " + path + ": " + std::strerror(errno));
    }
    struct Closer {
        int fd;
        ~Closer() { ::close(fd); }
    } closer{fd};
    struct stat info {};
    if (::fstat(fd, &info) == 0 && S_ISDIR(info.st_mode)) {
        throw UserError(path + " is a folder, not a model file");
    }
    std::string bytes;
    char block[1 << 16];
    for (;;) {
        const ssize_t n = ::read(fd, block, sizeof block);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) throw UserError("cannot read " + path + ": " + std::strerror(errno));
        if (n == 0) break;
        bytes.append(block, static_cast<std::size_t>(n));
    }
    return bytes;
}

}  // namespace

std::string optionsJson(const Settings& settings) {
    Json json = Json::object();
    for (const OptionRow& option : fitOptions()) {
        const Settings::Value& v = settings.value(option.name);
        Json& entry = json[std::string(option.name)];
        if (std::holds_alternative<double>(v)) {
            const double d = std::get<double>(v);
            if (option.kind == OptionKind::Code) {
                entry = choiceList(option.choices(settings.shape()))[static_cast<std::size_t>(d)];
            } else if (option.kind == OptionKind::Count) {
                entry = static_cast<std::uint64_t>(d);
            } else {
                entry = d;
            }
        } else if (std::holds_alternative<bool>(v)) {
            entry = std::get<bool>(v);
        } else if (std::holds_alternative<std::string>(v)) {
            entry = std::get<std::string>(v);
        } else if (std::holds_alternative<std::vector<std::string>>(v)) {
            entry = std::get<std::vector<std::string>>(v);
        }
    }
    return json.dump();
}

std::string trainingJson(const TrainingSummary& summary) {
    Json json = Json::object();
    if (!summary.file.empty()) json["file"] = summary.file;
    json["rows"] = summary.rows;
    json["rows_left_out"] = summary.leftOut;
    json["fit_seconds"] = summary.fitSeconds;
    json["module"] = summary.module;
    return json.dump();
}

std::string modelText(const Model& model) {
    std::ostringstream text;
    writePrettyJson(text, modelToJson(model));
    text << '\n';
    return text.str();
}

Model loadModelFromMemory(std::string_view bytes, const std::string& name) {
    if (bytes.find_first_not_of(" \t\r\n") == std::string_view::npos) {
        throw UserError(name + " is empty, not a model file");
    }
    if (nestsTooDeeply(bytes)) {
        throw UserError(name + ": not an arbolin model (it nests too deeply)");
    }
    Json json;
    try {
        json = Json::parse(bytes.begin(), bytes.end());
    } catch (const nlohmann::json::exception& e) {
        // "...at line 3, column 7: ..." is in the library's own text.
        throw UserError(name + ": not valid JSON: " + withoutTag(e.what()));
    }
    try {
        return modelFromJson(json, name);
    } catch (const nlohmann::json::exception& e) {
        // What the checks let through, the library still refuses.
        throw UserError(name + ": not an arbolin model: " + withoutTag(e.what()));
    }
}

Model loadModel(const std::string& path) { return loadModelFromMemory(readModelFile(path), path); }

}  // namespace arbolin::frontend

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "cli/errors.hpp"
#include "cli/model.hpp"
#include "cli/pretty_json.hpp"

namespace arbolin::cli {

namespace {

using Json = nlohmann::ordered_json;

// The library's messages start with a tag such as "[json.exception.parse_error.101] ".
std::string withoutTag(const std::string& what) {
    const auto end = what.find("] ");
    return end == std::string::npos ? what : what.substr(end + 2);
}

}  // namespace

void saveModel(const Model& model, const std::string& path) {
    const std::string temporary = path + ".part";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!out) throw UserError("cannot write " + path + ": " + std::strerror(errno));
        writePrettyJson(out, modelToJson(model));
        out << '\n';
        out.flush();
        if (!out) {
            std::remove(temporary.c_str());
            throw UserError("cannot write " + path + ": " + std::strerror(errno));
        }
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        const std::string reason = std::strerror(errno);
        std::remove(temporary.c_str());
        throw UserError("cannot write " + path + ": " + reason);
    }
}

Model loadModel(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw UserError("cannot open " + path + ": " + std::strerror(errno));
    Json json;
    try {
        json = Json::parse(in);
    } catch (const nlohmann::json::parse_error& e) {
        // "...at line 3, column 7: ..." is in the library's own text.
        throw UserError(path + ": not valid JSON: " + withoutTag(e.what()));
    }
    try {
        return modelFromJson(json, path);
    } catch (const nlohmann::json::exception& e) {
        // What the checks let through, the library still refuses.
        throw UserError(path + ": not an arbolin model: " + withoutTag(e.what()));
    }
}

}  // namespace arbolin::cli

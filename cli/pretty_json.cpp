#include "cli/pretty_json.hpp"

#include <string>

namespace arbolin::cli {

namespace {

bool compact(const nlohmann::ordered_json& json) {
    if (json.is_object()) return json.contains("class") && json.contains("shape");
    if (json.is_array()) {
        for (const auto& e : json) {
            if (e.is_structured()) return false;
        }
    }
    return true;
}

}  // namespace

void writePrettyJson(std::ostream& out, const nlohmann::ordered_json& json, int depth) {
    if (compact(json) || json.empty()) {
        out << json.dump();
        return;
    }
    const std::string inner(2 * (depth + 1), ' ');
    const bool object = json.is_object();
    out << (object ? '{' : '[') << '\n';
    bool first = true;
    for (auto it = json.begin(); it != json.end(); ++it) {
        out << (first ? "" : ",\n") << inner;
        first = false;
        if (object) out << nlohmann::ordered_json(it.key()).dump() << ": ";
        writePrettyJson(out, it.value(), depth + 1);
    }
    out << '\n' << std::string(2 * depth, ' ') << (object ? '}' : ']');
}

}  // namespace arbolin::cli

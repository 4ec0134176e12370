#include "frontend/json_arrays.hpp"

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "frontend/errors.hpp"

namespace arbolin::frontend {

namespace {

using Json = nlohmann::ordered_json;

const char* className(cxClassID id) {
    switch (id) {
        case cxDOUBLE_CLASS: return "double";
        case cxSINGLE_CLASS: return "single";
        case cxLOGICAL_CLASS: return "logical";
        case cxCHAR_CLASS: return "char";
        case cxCELL_CLASS: return "cell";
        default: return nullptr;
    }
}

Json number(double v) {
    if (std::isnan(v)) return nullptr;
    if (std::isinf(v)) return v > 0 ? "Inf" : "-Inf";
    return v;
}

bool compact(const nlohmann::ordered_json& json) {
    if (json.is_object()) return json.contains("class") && json.contains("shape");
    if (json.is_array()) {
        for (const auto& e : json) {
            if (e.is_structured()) return false;
        }
    }
    return true;
}

[[noreturn]] void bad(const std::string& where, const std::string& problem) {
    throw UserError(where + ": " + problem);
}

double readElement(const Json& e, const std::string& where) {
    if (e.is_null()) return std::numeric_limits<double>::quiet_NaN();
    if (e.is_number()) return e.get<double>();
    if (e == "Inf") return std::numeric_limits<double>::infinity();
    if (e == "-Inf") return -std::numeric_limits<double>::infinity();
    bad(where, "an element is " + jsonExcerpt(e) + ", not a number, null, \"Inf\" or \"-Inf\"");
}

std::vector<std::uint64_t> readShape(const Json& json, const std::string& where,
                                     std::uint64_t& count) {
    const auto it = json.find("shape");
    if (it == json.end() || !it->is_array() || it->size() < 2) {
        bad(where, "needs a \"shape\" of two or more sizes");
    }
    std::vector<std::uint64_t> dims;
    count = 1;
    for (const Json& d : *it) {
        if (!d.is_number_unsigned()) bad(where, "a size in \"shape\" is " + jsonExcerpt(d));
        dims.push_back(d.get<std::uint64_t>());
        if (__builtin_mul_overflow(count, dims.back(), &count)) {
            bad(where, "the shape is too large");
        }
    }
    return dims;
}

const Json& readData(const Json& json, const std::string& where, std::uint64_t count) {
    const auto it = json.find("data");
    if (it == json.end() || !it->is_array() || it->size() != count) {
        bad(where, "needs \"data\", a list of " + std::to_string(count) + " elements");
    }
    return *it;
}

}  // namespace

std::string jsonExcerpt(const Json& json) {
    constexpr std::size_t kLongest = 40;
    std::string text = json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    if (text.size() > kLongest) text = text.substr(0, kLongest - 3) + "...";
    return text;
}

Json arrayToJson(const cxArray* a) {
    Json json = Json::object();
    const cxClassID id = cxGetClassID(a);
    const char* name = className(id);
    if (name == nullptr) throw UserError("the module returned an array of an unexpected class");
    json["class"] = name;
    const std::uint64_t* dims = cxGetDimensions(a);
    json["shape"] = std::vector<std::uint64_t>(dims, dims + cxGetNumberOfDimensions(a));
    const std::uint64_t count = cxGetNumberOfElements(a);
    if (id == cxCHAR_CLASS) {
        json["text"] = cxGetString(a);
        return json;
    }
    Json data = Json::array();
    for (std::uint64_t i = 0; i < count; ++i) {
        switch (id) {
            case cxDOUBLE_CLASS:
                data.push_back(number(static_cast<const double*>(cxGetData(a))[i]));
                break;
            case cxSINGLE_CLASS:
                data.push_back(number(static_cast<const float*>(cxGetData(a))[i]));
                break;
            case cxLOGICAL_CLASS: data.push_back(cxGetLogicals(a)[i]); break;
            default: {
                const cxArray* element = cxGetCell(a, i);
                data.push_back(element == nullptr ? Json(nullptr) : arrayToJson(element));
            }
        }
    }
    json["data"] = std::move(data);
    return json;
}

numora::ArrayPtr arrayFromJson(const Json& json, const std::string& where, int depth) {
    // The module nests cells two deep; a deeper file is not one of its models.
    if (depth > 4) bad(where, "nests cells too deeply");
    if (!json.is_object() || !json.contains("class") || !json["class"].is_string()) {
        bad(where, "is not an array: it needs a \"class\"");
    }
    const std::string cls = json["class"].get<std::string>();
    std::uint64_t count = 0;
    const std::vector<std::uint64_t> dims = readShape(json, where, count);
    if (cls == "char") {
        const auto text = json.find("text");
        if (text == json.end() || !text->is_string() || text->get<std::string>().size() != count) {
            bad(where, "needs \"text\" of " + std::to_string(count) + " characters");
        }
        numora::ArrayPtr a(cxCreateCharArray(dims.size(), dims.data()));
        if (count != 0) std::memcpy(cxGetData(a.get()), text->get<std::string>().data(), count);
        return a;
    }
    const Json& data = readData(json, where, count);
    numora::ArrayPtr a;
    if (cls == "double" || cls == "single") {
        const bool single = cls == "single";
        a.reset(numora::cxCreateNumericArray(dims.size(), dims.data(),
                                             single ? cxSINGLE_CLASS : cxDOUBLE_CLASS));
        for (std::uint64_t i = 0; i < count; ++i) {
            const double v = readElement(data[i], where);
            if (single) {
                static_cast<float*>(cxGetData(a.get()))[i] = static_cast<float>(v);
            } else {
                static_cast<double*>(cxGetData(a.get()))[i] = v;
            }
        }
    } else if (cls == "logical") {
        if (dims.size() != 2) bad(where, "a logical array has two sizes");
        a.reset(cxCreateLogicalMatrix(dims[0], dims[1]));
        for (std::uint64_t i = 0; i < count; ++i) {
            if (!data[i].is_boolean()) {
                bad(where, "an element is " + jsonExcerpt(data[i]) + ", not true or false");
            }
            cxGetLogicals(a.get())[i] = data[i].get<bool>();
        }
    } else if (cls == "cell") {
        a.reset(numora::cxCreateCellArray(dims.size(), dims.data()));
        for (std::uint64_t i = 0; i < count; ++i) {
            if (data[i].is_null()) continue;
            const std::string element = where + "[" + std::to_string(i) + "]";
            cxSetCell(a.get(), i, arrayFromJson(data[i], element, depth + 1).release());
        }
    } else {
        bad(where, "the class \"" + cls + "\" is not double, single, logical, char or cell");
    }
    return a;
}

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

}  // namespace arbolin::frontend

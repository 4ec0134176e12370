#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "cli/errors.hpp"
#include "cli/model.hpp"
#include "cli/output_file.hpp"
#include "cli/pretty_json.hpp"

namespace arbolin::cli {

namespace {

using Json = nlohmann::ordered_json;

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

void saveModel(const Model& model, const std::string& path) {
    OutputFile file(path);
    writePrettyJson(file.stream(), modelToJson(model));
    file.stream() << '\n';
    file.commit();
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

}  // namespace arbolin::cli

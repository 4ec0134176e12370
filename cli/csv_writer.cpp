#include "cli/csv_writer.hpp"

namespace arbolin::cli {

void writeCsvRow(std::ostream& out, const std::vector<std::string>& fields) {
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const std::string& f = fields[i];
        if (i != 0) out << ',';
        const bool quote = f.find_first_of(",\"\r\n") != std::string::npos ||
                           (!f.empty() && (f.front() == ' ' || f.back() == ' '));
        if (!quote) {
            out << f;
            continue;
        }
        out << '"';
        for (char c : f) {
            if (c == '"') out << '"';
            out << c;
        }
        out << '"';
    }
    out << '\n';
}

}  // namespace arbolin::cli

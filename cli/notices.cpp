#include "cli/notices.hpp"

#include <iostream>

namespace arbolin::cli {

void Notices::print(std::ostream& err) const {
    if (list_.empty()) return;
    std::cout.flush();
    for (const Notice& n : list_) {
        err << "arbolin: " << (n.level == Level::Note ? "note: " : "warning: ") << n.text << '\n';
    }
}

}  // namespace arbolin::cli

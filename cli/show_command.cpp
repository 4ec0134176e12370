#include "cli/commands.hpp"
#include "cli/output_file.hpp"
#include "frontend/render.hpp"

namespace arbolin::cli {

using namespace arbolin::frontend;

void runShow(const ShowArgs& args) {
    const Model model = loadModel(args.model);
    const TreeView tree = readTree(model, args.model);
    OutputFile out(args.output);
    if (args.format == "dot") {
        renderDot(out.stream(), model, tree);
    } else {
        renderText(out.stream(), model, tree);
    }
    out.commit();
}

}  // namespace arbolin::cli

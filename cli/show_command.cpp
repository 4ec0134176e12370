#include "cli/commands.hpp"
#include "cli/output_file.hpp"
#include "cli/render.hpp"

namespace arbolin::cli {

void runShow(const ShowArgs& args) {
    const Model model = frontend::loadModel(args.model);
    const TreeView tree = frontend::readTree(model, args.model);
    OutputFile out(args.output);
    if (args.format == "dot") {
        renderDot(out.stream(), model, tree);
    } else {
        renderText(out.stream(), model, tree);
    }
    out.commit();
}

}  // namespace arbolin::cli

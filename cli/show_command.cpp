#include <CLI/CLI.hpp>

#include "cli/commands.hpp"
#include "cli/errors.hpp"
#include "cli/model.hpp"
#include "cli/output_file.hpp"
#include "cli/render.hpp"
#include "cli/tree_view.hpp"

namespace arbolin::cli {

CLI::App* addShowCommand(CLI::App& app, ShowArgs& args) {
    CLI::App* show = app.add_subcommand("show", "print a saved tree as rules or as Graphviz");
    show->add_option("model", args.model, "model JSON written by arbolin fit")
        ->required()
        ->type_name("MODEL.json");
    show->add_option("--format", args.format, "text: indented rules; dot: Graphviz [default: text]")
        ->check(CLI::IsMember({"text", "dot"}))
        ->type_name("{text|dot}");
    show->add_option("--output", args.output, "write to this file [default: standard output]")
        ->type_name("FILE");
    return show;
}

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

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "cli/commands.hpp"
#include "cli/errors.hpp"
#include "cli/model.hpp"
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
    std::ofstream file;
    if (!args.output.empty()) {
        file.open(args.output, std::ios::trunc);
        if (!file) throw UserError("cannot write " + args.output + ": " + std::strerror(errno));
    }
    std::ostream& out = args.output.empty() ? std::cout : file;
    if (args.format == "dot") {
        renderDot(out, model, tree);
    } else {
        renderText(out, model, tree);
    }
    out.flush();
    if (!out) throw UserError("cannot write " + (args.output.empty() ? "the output" : args.output));
}

}  // namespace arbolin::cli

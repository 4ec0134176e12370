// Loading the module and growing one tree with it.
#pragma once

#include <string>
#include <vector>

#include "cli/module_inputs.hpp"

namespace arbolin::cli {

// $ARBOLIN_MODULE, or the module built beside this program.
std::string modulePath();

// All twenty-two outputs. Errors of the host and the module pass as
// numora::Exception, Ctrl-C as numora::Interrupt.
std::vector<numora::ArrayPtr> growTree(ModuleInputs& inputs);

}  // namespace arbolin::cli

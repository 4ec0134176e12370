#include "host/catalog.hpp"

#include <string>
#include <unordered_map>

namespace numora::detail {

namespace {

#define TREEUTILS "tallix:silvan:learning:treeutils:"

const std::unordered_map<std::string_view, std::string_view>& catalog() {
    static const std::unordered_map<std::string_view, std::string_view> texts{
        // The tree grower.
        {TREEUTILS "weaveCanopy:BadNumberOfInputArgs",
         "The tree grower takes exactly {1} input arguments."},
        {TREEUTILS "weaveCanopy:BadNumberOfOutputArgs",
         "The tree grower returns at most {1} output arguments."},
        {TREEUTILS "Tree:init:BadCrit",
         "The tree has neither a classification nor a regression split criterion."},
        {TREEUTILS "SplitCriteriaFactory:make:BadCriterion",
         "Unknown split criterion. Use 'gdi' (or 'gini'), 'deviance', 'twoing' or 'error' "
         "for classification, 'mse' for regression, or a cell of one or two function "
         "names for a custom criterion."},
        {TREEUTILS "IndexedColumn:findNominalSplitWithBestGain:BadAlgCat",
         "Unknown search method for a nominal predictor. Use 0 (automatic), 1 (exact), "
         "2 (pull left), 3 (principal component) or 4 (one class against all)."},
        {TREEUTILS "ClassificationNominalSplitFinder:exact:TooManyLevels",
         "Exact search supports nominal predictors with fewer than {1} levels. Choose "
         "another search method for nominal predictors or merge some levels."},
        {TREEUTILS "ClassificationNominalSplitFinder:pca:MemoryLessThanXBytes",
         "Out of memory in the principal component search of a nominal predictor: "
         "{1} bytes could not be allocated."},
        {TREEUTILS "ClassificationNominalSplitFinder:pca:BadDSYEVXInput",
         "The eigenvalue solver rejected its input in the principal component search "
         "of a nominal predictor."},
        {TREEUTILS "ClassificationNominalSplitFinder:pca:BadDSYEVXOutput",
         "The eigenvalue solver did not converge in the principal component search of "
         "a nominal predictor; that method finds no split here."},
        {TREEUTILS "CustomClassificationSplitCriterion:parent:BadUserFunctionCall",
         "The split criterion function '{1}' failed on the class weights of a node."},
        {TREEUTILS "CustomClassificationSplitCriterion:parent:TypeMismatch",
         "The split criterion function '{1}' must return a value of class {2}."},
        {TREEUTILS "CustomClassificationSplitCriterion:kids:BadUserFunctionCall",
         "The split criterion function '{1}' failed on the class weights of two "
         "children."},
        {TREEUTILS "CustomClassificationSplitCriterion:kids:TypeMismatch",
         "The split criterion function '{1}' must return a value of class {2}."},

        // The host.
        {"vellum:contextmgr:null", "Unable to access null resource"},
        {"numora:interrupt", "Operation terminated by user."},
        {"numora:module:cannotOpen", "Cannot load module '{1}': {2}"},
        {"numora:module:missingEntryPoint",
         "Module '{1}' does not export '{2}': {3}"},
        {"numora:module:versionMismatch",
         "Module '{1}' requires interface version {2}, but this host provides {3}."},
        {"numora:function:unknown", "There is no host function named '{1}'."},
        {"numora:function:throw:badInput",
         "The host function 'throw' takes one exception object."},
        {"numora:memory:outOfMemory", "Out of memory: {1} bytes could not be allocated."},
        {"numora:array:tooLarge", "The array is too large for the memory of this machine."},
        {"numora:array:badNumericClass", "A numeric array cannot be of class {1}."},
        {"numora:array:complexUnsupported", "Complex arrays are not supported."},
        {"numora:array:wrongClass", "{1} needs an array of class {2}."},
        {"numora:array:indexOutOfRange",
         "Index {1} is out of range for an array of {2} elements."},
        {"numora:lotstream:badDraw",
         "Cannot draw {1} distinct integers from the range 1 to {2}."},
    };
    return texts;
}

#undef TREEUTILS

}  // namespace

std::optional<std::string_view> catalogText(std::string_view identifier) {
    const auto& texts = catalog();
    auto it = texts.find(identifier);
    if (it == texts.end()) return std::nullopt;
    return it->second;
}

}  // namespace numora::detail

// The messages that the module raises, one exception type each, so that the
// host can tell them apart by type.
#pragma once

#include <cstdint>
#include <string>

#include "gateway/numora.hpp"

namespace arbolin {

// A message of the tree utilities; `Tag` supplies `component` and `key`.
template <class Tag>
class TreeMessage : public numora::MessageException<Tag> {
public:
    template <class... Args>
    explicit TreeMessage(Args&&... args)
        : numora::MessageException<Tag>(
              numora::Message{Tag::component, Tag::key, {numora::MessageArg(args)...}}) {}
};

// Hands an error to the host, and throws it all the same should the host's
// raiser return.
template <class Error>
[[noreturn]] void raise(Error error) {
    cxErrorMsgId(error);
    throw error;
}

// Reports a warning through the host; the work goes on.
template <class Warning>
void warn(const Warning& warning) {
    cxWarningMsgId(warning.message());
}

}  // namespace arbolin

#define ARBOLIN_MESSAGE(Name, Component)                    \
    struct Name final : ::arbolin::TreeMessage<Name> {      \
        using TreeMessage::TreeMessage;                     \
        static constexpr const char* component = Component; \
        static constexpr const char* key = #Name;           \
    }

namespace tallix::silvan::learning::treeutils {

namespace weaveCanopy {
ARBOLIN_MESSAGE(BadNumberOfInputArgs, "tallix:silvan:learning:treeutils:weaveCanopy");
ARBOLIN_MESSAGE(BadNumberOfOutputArgs, "tallix:silvan:learning:treeutils:weaveCanopy");
}  // namespace weaveCanopy

namespace Tree::init {
ARBOLIN_MESSAGE(BadCrit, "tallix:silvan:learning:treeutils:Tree:init");
}

namespace SplitCriteriaFactory::make {
ARBOLIN_MESSAGE(BadCriterion, "tallix:silvan:learning:treeutils:SplitCriteriaFactory:make");
}

namespace IndexedColumn::findNominalSplitWithBestGain {
ARBOLIN_MESSAGE(BadAlgCat,
                "tallix:silvan:learning:treeutils:IndexedColumn:findNominalSplitWithBestGain");
}

namespace ClassificationNominalSplitFinder::exact {
ARBOLIN_MESSAGE(TooManyLevels,
                "tallix:silvan:learning:treeutils:ClassificationNominalSplitFinder:exact");
}

namespace ClassificationNominalSplitFinder::pca {
ARBOLIN_MESSAGE(MemoryLessThanXBytes,
                "tallix:silvan:learning:treeutils:ClassificationNominalSplitFinder:pca");
ARBOLIN_MESSAGE(BadDSYEVXInput,
                "tallix:silvan:learning:treeutils:ClassificationNominalSplitFinder:pca");
ARBOLIN_MESSAGE(BadDSYEVXOutput,
                "tallix:silvan:learning:treeutils:ClassificationNominalSplitFinder:pca");
}  // namespace ClassificationNominalSplitFinder::pca

namespace CustomClassificationSplitCriterion::parent {
ARBOLIN_MESSAGE(BadUserFunctionCall,
                "tallix:silvan:learning:treeutils:CustomClassificationSplitCriterion:parent");
ARBOLIN_MESSAGE(TypeMismatch,
                "tallix:silvan:learning:treeutils:CustomClassificationSplitCriterion:parent");
}  // namespace CustomClassificationSplitCriterion::parent

namespace CustomClassificationSplitCriterion::kids {
ARBOLIN_MESSAGE(BadUserFunctionCall,
                "tallix:silvan:learning:treeutils:CustomClassificationSplitCriterion:kids");
ARBOLIN_MESSAGE(TypeMismatch,
                "tallix:silvan:learning:treeutils:CustomClassificationSplitCriterion:kids");
}  // namespace CustomClassificationSplitCriterion::kids

}  // namespace tallix::silvan::learning::treeutils

#undef ARBOLIN_MESSAGE

// A classification criterion written by the user as host functions.
#pragma once

#include <algorithm>
#include <memory>
#include <string>

#include "criteria/classification_criterion.hpp"
#include "criteria/host_class.hpp"
#include "gateway/messages.hpp"

namespace arbolin {

namespace custom_detail {

struct ArrayGuard {
    cxArray* array = nullptr;
    ~ArrayGuard() { cxDestroyArray(array); }
};

template <class W>
cxArray* toHostColumn(const ClassWeights<W>& v) {
    cxArray* a = cxCreateNumericMatrix(v.size(), 1, hostClassOf<W>(), cxREAL);
    std::copy(v.begin(), v.end(), static_cast<W*>(cxGetData(a)));
    return a;
}

// Shows which function failed, then lets the host raise the user
// function's own error again; control leaves through the host.
template <class Failure>
[[noreturn]] void reraiseUserError(cxArray* trapped, const std::string& name) {
    ArrayGuard guard{trapped};
    const Failure failure(name);
    calyxPrintf("%s\n", cxMessageText(failure.message()).c_str());
    cxArray* inputs[] = {trapped};
    calyxCallNumora(0, nullptr, 1, inputs, "throw");
    raise(failure);  // only if "throw" came back
}

template <class W, class Failure, class Mismatch>
W valueOf(cxArray* trapped, cxArray* output, const std::string& name) {
    if (trapped != nullptr) {
        reraiseUserError<Failure>(trapped, name);
    }
    ArrayGuard guard{output};
    if (output == nullptr || cxGetClassID(output) != hostClassOf<W>()) {
        raise(Mismatch(name, hostClassName<W>()));
    }
    return *static_cast<const W*>(cxGetData(output));
}

}  // namespace custom_detail

template <class Y, class W>
class CustomClassificationSplitCriterion final : public ClassificationSplitCriterion<Y, W> {
public:
    CustomClassificationSplitCriterion(std::string parentFunction, std::string kidsFunction)
        : parentFunction_(std::move(parentFunction)), kidsFunction_(std::move(kidsFunction)) {}

    W parent(const ClassWeights<W>& v) const override {
        namespace msg =
            tallix::silvan::learning::treeutils::CustomClassificationSplitCriterion::parent;
        cxArray* input = custom_detail::toHostColumn(v);
        cxArray* output = nullptr;
        cxArray* trapped = nullptr;
        {
            custom_detail::ArrayGuard inputGuard{input};
            trapped = calyxCallNumoraWithTrap(1, &output, 1, &input, parentFunction_.c_str());
        }
        return custom_detail::valueOf<W, msg::BadUserFunctionCall, msg::TypeMismatch>(
            trapped, output, parentFunction_);
    }

    // Without a kids function, the sum of two parent calls, left first.
    W kids(const ClassWeights<W>& left, const ClassWeights<W>& right) const override {
        namespace msg =
            tallix::silvan::learning::treeutils::CustomClassificationSplitCriterion::kids;
        if (kidsFunction_.empty()) {
            const W l = this->parent(left);
            const W r = this->parent(right);
            return l + r;
        }
        cxArray* inputs[] = {custom_detail::toHostColumn(left), nullptr};
        custom_detail::ArrayGuard leftGuard{inputs[0]};
        inputs[1] = custom_detail::toHostColumn(right);
        custom_detail::ArrayGuard rightGuard{inputs[1]};
        cxArray* output = nullptr;
        cxArray* trapped = calyxCallNumoraWithTrap(1, &output, 2, inputs, kidsFunction_.c_str());
        return custom_detail::valueOf<W, msg::BadUserFunctionCall, msg::TypeMismatch>(
            trapped, output, kidsFunction_);
    }

    // Call-backs reach the host: keep them on the host's thread.
    bool allowsParallel() const override { return false; }

    const std::string& parentFunction() const { return parentFunction_; }
    const std::string& kidsFunction() const { return kidsFunction_; }

private:
    std::string parentFunction_;
    std::string kidsFunction_;
};

}  // namespace arbolin

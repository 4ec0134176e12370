// The interface of every classification split criterion.
#pragma once

#include "core/types.hpp"

namespace arbolin {

// Weight of each class in a set of rows; not normalised, its sum is the
// weight of the set.
template <class W>
using ClassWeights = ScalableVector<W>;

// Impurity of a set on the scale of its weight: smaller is better, and the
// gain of a split is parent minus kids.
template <class Y, class W>
class ClassificationSplitCriterion {
public:
    virtual ~ClassificationSplitCriterion() = default;

    // Writes into `out` the vector that parent and kids are to see; the two
    // may be one object. The base is the identity.
    virtual void correct(const ClassWeights<W>& in, ClassWeights<W>& out) const {
        if (&in != &out) {
            out = in;
        }
    }
    // Whether correct() is anything but the identity.
    virtual bool corrects() const { return false; }
    virtual W parent(const ClassWeights<W>& v) const = 0;
    virtual W kids(const ClassWeights<W>& left, const ClassWeights<W>& right) const {
        const W l = parent(left);
        const W r = parent(right);
        return l + r;
    }
    virtual bool usesParent() const { return true; }
    // False for a criterion whose work must stay on the host's thread.
    virtual bool allowsParallel() const { return true; }
};

}  // namespace arbolin

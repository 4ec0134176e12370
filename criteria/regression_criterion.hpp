// The interface of the regression split criterion.
#pragma once

#include "core/types.hpp"

namespace arbolin {

template <class Y, class W>
class RegressionSplitCriterion {
public:
    virtual ~RegressionSplitCriterion() = default;

    virtual W parent(const Y* y, const W* w, const RowList& rows) const = 0;
    virtual W kids(const Y* y, const W* w, const RowList& left, const RowList& right) const {
        const W l = parent(y, w, left);
        const W r = parent(y, w, right);
        return l + r;
    }
    virtual bool usesParent() const { return true; }
    virtual bool allowsParallel() const { return true; }
};

}  // namespace arbolin

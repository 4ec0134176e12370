// The response as the curvature and interaction tests group it: a row's
// class, or in regression whether its response lies below the node's mean
// (group 0) or not (group 1).
#pragma once

#include <cstdint>

#include "columns/indexed_column.hpp"

namespace arbolin {

template <class X, class Y, class W>
class ResponseGroups {
public:
    explicit ResponseGroups(const IndexedColumn<X, Y, W>& column)
        : y_(column.y_), nodeValue_(column.nodeValue_), classCount_(column.classCount_) {}

    bool byClass() const { return classCount_ > 1; }
    std::uint64_t count() const { return byClass() ? classCount_ : 2; }
    std::uint64_t operator()(std::uint64_t r) const {
        if (byClass()) {
            return classOf(y_[r]);
        }
        return static_cast<W>(y_[r]) < nodeValue_ ? 0 : 1;
    }

private:
    const Y* y_;
    W nodeValue_;
    std::uint64_t classCount_;
};

}  // namespace arbolin

// Copies the grown nodes into the caller's output arrays.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>

#include "core/tree.hpp"
#include "criteria/host_class.hpp"
#include "gateway/numora.hpp"

namespace arbolin {

namespace output_detail {

inline double oneBased(std::uint64_t index) { return static_cast<double>(index + 1); }

// A cell being filled is ours until it is handed on: when the host cannot
// create one of its elements, the cell and the elements already in it go.
struct ArrayDestroyer {
    void operator()(cxArray* a) const noexcept { cxDestroyArray(a); }
};
using OwnedArray = std::unique_ptr<cxArray, ArrayDestroyer>;

// A 1 by m row array of the list, 0 by 0 when the list is empty.
template <class T, class List>
cxArray* rowArray(const List& list) {
    const std::uint64_t m = list.size();
    cxArray* a = cxCreateNumericMatrix(m == 0 ? 0 : 1, m, hostClassOf<T>(), cxREAL);
    std::copy(list.begin(), list.end(), static_cast<T*>(cxGetData(a)));
    return a;
}

// An n by 1 array with one value per node.
template <class T, class Nodes, class Get>
cxArray* perNode(const Nodes& nodes, std::uint64_t n, Get get) {
    cxArray* a = cxCreateNumericMatrix(n, 1, hostClassOf<T>(), cxREAL);
    T* data = static_cast<T*>(cxGetData(a));
    for (std::uint64_t i = 0; i < n; ++i) {
        data[i] = static_cast<T>(get(nodes[i]));
    }
    return a;
}

template <class Nodes, class Get>
cxArray* perNodeFlag(const Nodes& nodes, std::uint64_t n, Get get) {
    cxArray* a = cxCreateLogicalMatrix(n, 1);
    bool* data = cxGetLogicals(a);
    for (std::uint64_t i = 0; i < n; ++i) {
        data[i] = get(nodes[i]);
    }
    return a;
}

// A K by n array whose column i is one list of node i.
template <class T, class Nodes, class Get>
cxArray* perNodeColumns(const Nodes& nodes, std::uint64_t n, std::uint64_t K, Get get) {
    cxArray* a = cxCreateNumericMatrix(K, n, hostClassOf<T>(), cxREAL);
    T* data = static_cast<T*>(cxGetData(a));
    for (std::uint64_t i = 0; i < n; ++i) {
        const auto& list = get(nodes[i]);
        std::copy(list.begin(), list.end(), data + i * K);
    }
    return a;
}

// The curvature (k by 2) or interaction (k by 3) tests of each node, in a
// cell that is n by 1 when the tests were asked for and 0 by 0 otherwise.
template <class W, class Nodes, class Tests, class Columns>
cxArray* testCell(const Nodes& nodes, std::uint64_t n, bool asked, std::uint64_t width,
                  Tests tests, Columns columns) {
    OwnedArray cell(cxCreateCellMatrix(asked ? n : 0, asked ? 1 : 0));
    if (!asked) {
        return cell.release();
    }
    for (std::uint64_t i = 0; i < n; ++i) {
        const auto& list = tests(nodes[i]);
        const std::uint64_t k = list.size();
        if (k == 0) {
            continue;
        }
        cxArray* a = cxCreateNumericMatrix(k, width, hostClassOf<W>(), cxREAL);
        W* data = static_cast<W*>(cxGetData(a));
        for (std::uint64_t r = 0; r < k; ++r) {
            columns(list[r], data + r, k);
        }
        cxSetCell(cell.get(), i, a);
    }
    return cell.release();
}

// An n by 1 cell of one 1 by s array per node (0 by 0 without surrogates),
// or a 0 by 0 cell when no surrogates were asked for.
template <class T, class Nodes, class Get>
cxArray* surrogateCell(const Nodes& nodes, std::uint64_t n, bool asked, Get get) {
    OwnedArray cell(cxCreateCellMatrix(asked ? n : 0, asked ? 1 : 0));
    for (std::uint64_t i = 0; asked && i < n; ++i) {
        cxSetCell(cell.get(), i, get(nodes[i]));
    }
    return cell.release();
}

}  // namespace output_detail

// Creates outputs 1 .. outputCount in order; an output not asked for is
// never made.
template <class X, class Y, class W>
void writeOutputs(const Tree<X, Y, W>& tree, int outputCount, cxArray** outputs) {
    using namespace output_detail;
    using NodeT = typename Tree<X, Y, W>::NodeType;
    const auto& nodes = tree.nodes;
    const std::uint64_t n = tree.nodes.size();
    const std::uint64_t K = tree.settings.classNumber;
    const bool surrogatesAsked = tree.settings.SurrogateCount != 0;

    int position = 0;
    auto store = [&](cxArray* a) {
        outputs[position++] = a;
        return position < outputCount;
    };
    if (outputCount < 1) {
        return;
    }

    // 1: children, 1-based, 0 for none.
    {
        cxArray* a = cxCreateNumericMatrix(2, n, cxDOUBLE_CLASS, cxREAL);
        double* data = static_cast<double*>(cxGetData(a));
        for (std::uint64_t i = 0; i < n; ++i) {
            data[2 * i] = nodes[i].leftChild == 0 ? 0.0 : oneBased(nodes[i].leftChild);
            data[2 * i + 1] = nodes[i].rightChild == 0 ? 0.0 : oneBased(nodes[i].rightChild);
        }
        if (!store(a)) return;
    }
    if (!store(perNodeColumns<Y>(nodes, n, K, [](const NodeT& d) -> const auto& {
            return d.ClassCount;
        })))
        return;
    if (!store(perNodeColumns<W>(nodes, n, K, [](const NodeT& d) -> const auto& {
            return d.ClassProb;
        })))
        return;
    if (!store(testCell<W>(
            nodes, n, tree.settings.CurvatureFlag, 2,
            [](const NodeT& d) -> const auto& { return d.CurvatureTests; },
            [](const CurvatureTest<W>& t, W* row, std::uint64_t k) {
                row[0] = static_cast<W>(t.predictor + 1);
                row[k] = t.pValue;
            })))
        return;
    // 5: the levels of a nominal split, an n by 2 cell.
    {
        OwnedArray cell(cxCreateCellMatrix(n, 2));
        for (std::uint64_t i = 0; i < n; ++i) {
            if (!nodes[i].LeftLevels.empty()) {
                cxSetCell(cell.get(), i, rowArray<X>(nodes[i].LeftLevels));
            }
            if (!nodes[i].RightLevels.empty()) {
                cxSetCell(cell.get(), i + n, rowArray<X>(nodes[i].RightLevels));
            }
        }
        if (!store(cell.release())) return;
    }
    if (!store(perNode<X>(nodes, n, [](const NodeT& d) { return d.CutPoint; }))) return;
    if (!store(perNode<double>(nodes, n, [](const NodeT& d) {
            return static_cast<double>(static_cast<std::uint64_t>(d.CutVar + 1));
        })))
        return;
    if (!store(perNodeFlag(nodes, n, [](const NodeT& d) { return d.HasUnroutedRows; }))) return;
    if (!store(testCell<W>(
            nodes, n, tree.settings.InteractionFlag, 3,
            [](const NodeT& d) -> const auto& { return d.InteractionTests; },
            [](const InteractionTest<W>& t, W* row, std::uint64_t k) {
                row[0] = static_cast<W>(t.first + 1);
                row[k] = static_cast<W>(t.second + 1);
                row[2 * k] = t.pValue;
            })))
        return;
    if (!store(perNodeFlag(nodes, n, [](const NodeT& d) { return d.isBranch(); }))) return;
    if (!store(perNode<W>(nodes, n, [](const NodeT& d) { return d.NodeValue; }))) return;
    if (!store(perNode<W>(nodes, n, [](const NodeT& d) { return d.NodeProb; }))) return;
    if (!store(perNode<double>(nodes, n, [](const NodeT& d) {
            return static_cast<double>(d.NodeSize);
        })))
        return;
    if (!store(perNode<double>(nodes, n, [](const NodeT& d) {
            return static_cast<double>(static_cast<std::uint64_t>(d.parent + 1));
        })))
        return;
    if (!store(perNode<W>(nodes, n, [](const NodeT& d) { return d.NodeRisk; }))) return;
    if (!store(perNode<W>(nodes, n, [](const NodeT& d) { return d.Gain; }))) return;
    // 17: per surrogate, a 1 by 2 cell of its level lists, or an empty text
    // for a surrogate without levels.
    if (!store(surrogateCell<X>(nodes, n, surrogatesAsked, [](const NodeT& d) {
            const auto& s = d.surrogates;
            const std::uint64_t count = s.size();
            OwnedArray levels(cxCreateCellMatrix(count == 0 ? 0 : 1, count));
            for (std::uint64_t j = 0; j < count; ++j) {
                const auto& [left, right] = s.levelPairs[j];
                if (!left.empty() && !right.empty()) {
                    OwnedArray pair(cxCreateCellMatrix(1, 2));
                    cxSetCell(pair.get(), 0, rowArray<X>(left));
                    cxSetCell(pair.get(), 1, rowArray<X>(right));
                    cxSetCell(levels.get(), j, pair.release());
                } else {
                    cxSetCell(levels.get(), j, cxCreateCharArray(0, nullptr));
                }
            }
            return levels.release();
        })))
        return;
    if (!store(surrogateCell<double>(nodes, n, surrogatesAsked, [](const NodeT& d) {
            return rowArray<double>(d.surrogates.directions);
        })))
        return;
    if (!store(surrogateCell<X>(nodes, n, surrogatesAsked, [](const NodeT& d) {
            return rowArray<X>(d.surrogates.cutPoints);
        })))
        return;
    if (!store(surrogateCell<double>(nodes, n, surrogatesAsked, [](const NodeT& d) {
            ScalableVector<double> numbers;
            for (std::uint64_t p : d.surrogates.predictors) {
                numbers.push_back(oneBased(p));
            }
            return rowArray<double>(numbers);
        })))
        return;
    if (!store(surrogateCell<W>(nodes, n, surrogatesAsked, [](const NodeT& d) {
            return rowArray<W>(d.surrogates.gains);
        })))
        return;
    store(surrogateCell<W>(nodes, n, surrogatesAsked, [](const NodeT& d) {
        return rowArray<W>(d.surrogates.associations);
    }));
}

}  // namespace arbolin

// Copies the grown nodes into the caller's output arrays.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>

#include "core/tree.hpp"
#include "criteria/host_class.hpp"
#include "gateway/contract.hpp"
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
cxArray* testCell(const Nodes& nodes, std::uint64_t n, bool asked, std::uint64_t width, Tests tests,
                  Columns columns) {
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

// One maker per output, in the order of the contract; each builds its array
// from the whole tree.
template <class X, class Y, class W>
struct OutputMakers {
    using TreeT = Tree<X, Y, W>;
    using NodeT = typename TreeT::NodeType;
    using Maker = cxArray* (*)(const TreeT&);

    static std::uint64_t count(const TreeT& t) { return t.nodes.size(); }
    static bool surrogatesAsked(const TreeT& t) { return t.settings.SurrogateCount != 0; }

    static constexpr std::array<Maker, contract::kOutputCount> table = {
        // Children: 2 by n, 1-based, 0 for none.
        [](const TreeT& t) {
            const std::uint64_t n = count(t);
            cxArray* a = cxCreateNumericMatrix(2, n, cxDOUBLE_CLASS, cxREAL);
            double* data = static_cast<double*>(cxGetData(a));
            for (std::uint64_t i = 0; i < n; ++i) {
                const NodeT& d = t.nodes[i];
                data[2 * i] = d.leftChild == 0 ? 0.0 : oneBased(d.leftChild);
                data[2 * i + 1] = d.rightChild == 0 ? 0.0 : oneBased(d.rightChild);
            }
            return a;
        },
        // ClassCount.
        [](const TreeT& t) {
            return perNodeColumns<Y>(
                t.nodes, count(t), t.settings.classNumber,
                [](const NodeT& d) -> const auto& { return d.ClassCount; });
        },
        // ClassProb.
        [](const TreeT& t) {
            return perNodeColumns<W>(
                t.nodes, count(t), t.settings.classNumber,
                [](const NodeT& d) -> const auto& { return d.ClassProb; });
        },
        // CurvatureTests.
        [](const TreeT& t) {
            return testCell<W>(
                t.nodes, count(t), t.settings.CurvatureFlag, 2,
                [](const NodeT& d) -> const auto& { return d.detail().CurvatureTests; },
                [](const CurvatureTest<W>& c, W* row, std::uint64_t k) {
                    row[0] = static_cast<W>(c.predictor + 1);
                    row[k] = c.pValue;
                });
        },
        // SplitLevels: the levels of a nominal split, an n by 2 cell.
        [](const TreeT& t) {
            const std::uint64_t n = count(t);
            OwnedArray cell(cxCreateCellMatrix(n, 2));
            for (std::uint64_t i = 0; i < n; ++i) {
                const auto& node = t.nodes[i].detail();
                if (!node.LeftLevels.empty()) {
                    cxSetCell(cell.get(), i, rowArray<X>(node.LeftLevels));
                }
                if (!node.RightLevels.empty()) {
                    cxSetCell(cell.get(), i + n, rowArray<X>(node.RightLevels));
                }
            }
            return cell.release();
        },
        // CutPoint.
        [](const TreeT& t) {
            return perNode<X>(t.nodes, count(t), [](const NodeT& d) { return d.CutPoint; });
        },
        // CutVar.
        [](const TreeT& t) {
            return perNode<double>(t.nodes, count(t), [](const NodeT& d) {
                return static_cast<double>(static_cast<std::uint64_t>(d.CutVar + 1));
            });
        },
        // HasUnroutedRows.
        [](const TreeT& t) {
            return perNodeFlag(t.nodes, count(t), [](const NodeT& d) { return d.HasUnroutedRows; });
        },
        // InteractionTests.
        [](const TreeT& t) {
            return testCell<W>(
                t.nodes, count(t), t.settings.InteractionFlag, 3,
                [](const NodeT& d) -> const auto& { return d.detail().InteractionTests; },
                [](const InteractionTest<W>& c, W* row, std::uint64_t k) {
                    row[0] = static_cast<W>(c.first + 1);
                    row[k] = static_cast<W>(c.second + 1);
                    row[2 * k] = c.pValue;
                });
        },
        // IsBranch.
        [](const TreeT& t) {
            return perNodeFlag(t.nodes, count(t), [](const NodeT& d) { return d.isBranch(); });
        },
        // NodeValue.
        [](const TreeT& t) {
            return perNode<W>(t.nodes, count(t), [](const NodeT& d) { return d.NodeValue; });
        },
        // NodeProb.
        [](const TreeT& t) {
            return perNode<W>(t.nodes, count(t), [](const NodeT& d) { return d.NodeProb; });
        },
        // NodeSize.
        [](const TreeT& t) {
            return perNode<double>(t.nodes, count(t),
                                   [](const NodeT& d) { return static_cast<double>(d.NodeSize); });
        },
        // Parent.
        [](const TreeT& t) {
            return perNode<double>(t.nodes, count(t), [](const NodeT& d) {
                return static_cast<double>(static_cast<std::uint64_t>(d.parent + 1));
            });
        },
        // NodeRisk.
        [](const TreeT& t) {
            return perNode<W>(t.nodes, count(t), [](const NodeT& d) { return d.NodeRisk; });
        },
        // Gain.
        [](const TreeT& t) {
            return perNode<W>(t.nodes, count(t), [](const NodeT& d) { return d.Gain; });
        },
        // SurrogateLevels: per surrogate, a 1 by 2 cell of its level lists,
        // or an empty text for a surrogate without levels.
        [](const TreeT& t) {
            return surrogateCell<X>(t.nodes, count(t), surrogatesAsked(t), [](const NodeT& d) {
                const auto& s = d.detail().surrogates;
                const std::uint64_t k = s.size();
                OwnedArray levels(cxCreateCellMatrix(k == 0 ? 0 : 1, k));
                for (std::uint64_t j = 0; j < k; ++j) {
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
            });
        },
        // SurrogateDirections.
        [](const TreeT& t) {
            return surrogateCell<double>(t.nodes, count(t), surrogatesAsked(t), [](const NodeT& d) {
                return rowArray<double>(d.detail().surrogates.directions);
            });
        },
        // SurrogateCutPoints.
        [](const TreeT& t) {
            return surrogateCell<X>(t.nodes, count(t), surrogatesAsked(t), [](const NodeT& d) {
                return rowArray<X>(d.detail().surrogates.cutPoints);
            });
        },
        // SurrogatePredictors.
        [](const TreeT& t) {
            return surrogateCell<double>(t.nodes, count(t), surrogatesAsked(t), [](const NodeT& d) {
                ScalableVector<double> numbers;
                for (std::uint64_t p : d.detail().surrogates.predictors) {
                    numbers.push_back(oneBased(p));
                }
                return rowArray<double>(numbers);
            });
        },
        // SurrogateGains.
        [](const TreeT& t) {
            return surrogateCell<W>(t.nodes, count(t), surrogatesAsked(t), [](const NodeT& d) {
                return rowArray<W>(d.detail().surrogates.gains);
            });
        },
        // SurrogateAssociations.
        [](const TreeT& t) {
            return surrogateCell<W>(t.nodes, count(t), surrogatesAsked(t), [](const NodeT& d) {
                return rowArray<W>(d.detail().surrogates.associations);
            });
        },
    };
};

}  // namespace output_detail

// Creates outputs 1 .. outputCount in order; an output not asked for is
// never made.
template <class X, class Y, class W>
void writeOutputs(const Tree<X, Y, W>& tree, int outputCount, cxArray** outputs) {
    const auto& makers = output_detail::OutputMakers<X, Y, W>::table;
    const int count = std::min(outputCount, contract::kOutputCount);
    for (int k = 0; k < count; ++k) {
        outputs[k] = makers[k](tree);
    }
}

}  // namespace arbolin

// Choosing the size of a tree by k-fold cross-validation of its pruning
// sequence.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <exception>
#include <limits>
#include <mutex>
#include <thread>

#include "frontend/pruning.hpp"

namespace arbolin::frontend {

namespace {

// A small generator of our own, so that the folds are the same on every
// platform and standard library.
class SplitMix {
public:
    explicit SplitMix(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next() {
        std::uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
        return z ^ (z >> 31);
    }
    std::uint64_t below(std::uint64_t n) { return next() % n; }

private:
    std::uint64_t state_;
};

// The rows of one fold's training part, weights scaled to sum to 1 again
// so that the fold's alphas are in the units of the whole tree's.
TrainingData trainingPart(const TrainingData& data, const std::vector<std::uint64_t>& fold,
                          std::uint64_t held) {
    TrainingData part;
    part.predictors = data.predictors;
    part.response = data.response;
    part.classification = data.classification;
    part.classes = data.classes;
    part.weights = data.weights;
    std::vector<std::uint64_t> rows;
    for (std::uint64_t r = 0; r < data.rows; ++r) {
        if (fold[r] != held) rows.push_back(r);
    }
    part.rows = rows.size();
    const std::uint64_t D = data.predictors.size();
    part.x.resize(part.rows * D);
    for (std::uint64_t j = 0; j < D; ++j) {
        for (std::uint64_t i = 0; i < part.rows; ++i) {
            part.x[i + j * part.rows] = data.x[rows[i] + j * data.rows];
        }
    }
    double total = 0;
    for (std::uint64_t r : rows) total += data.w[r];
    double top = 0;
    for (std::uint64_t r : rows) {
        part.y.push_back(data.y[r]);
        part.w.push_back(total > 0 ? data.w[r] / total : data.w[r]);
        top = std::max(top, data.y[r]);
    }
    // The module counts classes up to the largest present: a fold that
    // lacks the last classes has fewer.
    const auto present = static_cast<std::size_t>(top) + 1;
    if (data.classification && present < data.classes.size()) {
        const std::vector<std::string>& labels = data.classes.labels();
        part.classes = Levels::fromLabels({labels.begin(), labels.begin() + present},
                                          data.classes.numbers());
    }
    return part;
}

// One fold's weighted losses at each step: sums of w l and of w l^2.
struct FoldLosses {
    std::vector<double> sum, squares;
};

FoldLosses heldOutLosses(const numora::Module& module, const TrainingData& data,
                         const Settings& settings, const std::vector<double>& costs,
                         const std::vector<double>& alphas, const std::vector<std::uint64_t>& fold,
                         std::uint64_t held) {
    const TrainingData part = trainingPart(data, fold, held);
    // The costs among the classes the fold has, column-major.
    const std::uint64_t Kpart = part.classes.size(), K = data.classes.size();
    std::vector<double> partCosts;
    for (std::uint64_t j = 0; !costs.empty() && j < Kpart; ++j) {
        for (std::uint64_t i = 0; i < Kpart; ++i) partCosts.push_back(costs[i + j * K]);
    }
    const Grown grown = growModel(module, part, settings, partCosts);
    const TreeView& tree = grown.tree;
    const PruningSequence seq = pruningSequence(grown.model, tree);

    std::vector<std::uint64_t> rows;
    for (std::uint64_t r = 0; r < data.rows; ++r) {
        if (fold[r] == held) rows.push_back(r);
    }
    const std::uint64_t D = data.predictors.size(), m = rows.size();
    std::vector<double> x(m * D);
    for (std::uint64_t j = 0; j < D; ++j) {
        for (std::uint64_t i = 0; i < m; ++i) x[i + j * m] = data.x[rows[i] + j * data.rows];
    }
    const std::vector<std::uint64_t> reached = routeRows(tree, x, m);

    const auto loss = [&](std::uint64_t r, std::uint64_t node) {
        const double predicted = tree.nodes[node].value;
        if (!data.classification) return (data.y[r] - predicted) * (data.y[r] - predicted);
        if (costs.empty()) return data.y[r] == predicted ? 0.0 : 1.0;
        return costs[static_cast<std::uint64_t>(data.y[r]) +
                     static_cast<std::uint64_t>(predicted) * K];
    };
    const std::uint64_t n = tree.nodes.size();
    std::vector<std::uint64_t> parent(n, 0);
    for (std::uint64_t i = 0; i < n; ++i) {
        if (tree.nodes[i].branch()) parent[tree.nodes[i].left] = parent[tree.nodes[i].right] = i;
    }
    // The fold's step for each alpha asked, rising with it.
    std::vector<std::uint64_t> foldStep(alphas.size());
    for (std::size_t k = 0; k < alphas.size(); ++k) foldStep[k] = stepForAlpha(seq.steps, alphas[k]);
    const auto firstAsked = [&](std::uint64_t step) {
        return static_cast<std::uint64_t>(
            std::lower_bound(foldStep.begin(), foldStep.end(), step) - foldStep.begin());
    };
    // A row stops at the node it reaches while that node's parent stays a
    // branch, then at each ancestor in turn as the cuts reach it: steps
    // [cutAt[p], cutAt[parent p]) stop at p, since cuts rise towards the
    // root. Each stretch adds its loss to a run of the alphas asked, kept
    // as differences.
    constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();
    std::vector<double> sum(alphas.size() + 1, 0.0), squares(alphas.size() + 1, 0.0);
    for (std::uint64_t i = 0; i < m; ++i) {
        const std::uint64_t r = rows[i];
        std::uint64_t from = 0;
        for (std::uint64_t p = reached[i];; p = parent[p]) {
            const std::uint64_t to = p == 0 ? kNever : seq.cutAt[parent[p]];
            const std::uint64_t first = firstAsked(from);
            const std::uint64_t last = to == kNever ? alphas.size() : firstAsked(to);
            if (first < last) {
                const double l = loss(r, p);
                sum[first] += data.w[r] * l;
                sum[last] -= data.w[r] * l;
                squares[first] += data.w[r] * l * l;
                squares[last] -= data.w[r] * l * l;
            }
            from = std::max(from, to);
            if (p == 0) break;
        }
    }
    FoldLosses out{std::vector<double>(alphas.size()), std::vector<double>(alphas.size())};
    double runningSum = 0, runningSquares = 0;
    for (std::size_t k = 0; k < alphas.size(); ++k) {
        runningSum += sum[k];
        runningSquares += squares[k];
        out.sum[k] = runningSum;
        out.squares[k] = runningSquares;
    }
    return out;
}

}  // namespace

std::vector<std::uint64_t> assignFolds(const TrainingData& data, std::uint64_t folds,
                                       std::uint64_t seed) {
    SplitMix random(seed);
    std::vector<std::vector<std::uint64_t>> groups(data.classification ? data.classes.size() : 1);
    for (std::uint64_t r = 0; r < data.rows; ++r) {
        groups[data.classification ? static_cast<std::uint64_t>(data.y[r]) : 0].push_back(r);
    }
    std::vector<std::uint64_t> fold(data.rows, 0);
    std::uint64_t dealt = 0;
    for (std::vector<std::uint64_t>& rows : groups) {
        for (std::uint64_t i = rows.size(); i > 1; --i) std::swap(rows[i - 1], rows[random.below(i)]);
        for (std::uint64_t r : rows) fold[r] = dealt++ % folds;
    }
    return fold;
}

void crossValidate(const numora::Module& module, const TrainingData& data,
                   const Settings& settings, const std::vector<double>& costs,
                   std::vector<PruningStep>& steps, const std::vector<std::uint64_t>& fold,
                   unsigned threads, const FoldProgress& progress) {
    const std::uint64_t folds = fold.empty() ? 0 : *std::max_element(fold.begin(), fold.end()) + 1;
    // Each step stands for the alphas from its own to the next one's: the
    // folds are asked at the geometric mean, the last step at any alpha.
    std::vector<double> alphas(steps.size());
    for (std::size_t k = 0; k < steps.size(); ++k) {
        alphas[k] = k + 1 < steps.size() ? std::sqrt(steps[k].alpha * steps[k + 1].alpha)
                                         : std::numeric_limits<double>::infinity();
    }
    // Trees that draw predictors from the host's own stream draw in the
    // order of the calls: those folds go one after another.
    const bool draws = settings.number("predictors-per-node") < double(data.predictors.size());
    if (threads == 0) threads = std::max(1u, std::thread::hardware_concurrency());
    if (draws && !settings.has("seed")) threads = 1;
    threads = static_cast<unsigned>(std::min<std::uint64_t>(threads, folds));

    std::vector<FoldLosses> losses(folds);
    std::vector<std::exception_ptr> errors(folds);
    std::atomic<std::uint64_t> next{0};
    std::mutex mutex;
    std::condition_variable changed;
    std::uint64_t done = 0;
    unsigned active = threads;
    const auto work = [&] {
        for (std::uint64_t f = next++; f < folds; f = next++) {
            try {
                losses[f] = heldOutLosses(module, data, settings, costs, alphas, fold, f);
            } catch (...) {
                errors[f] = std::current_exception();
                next = folds;  // hand out no more folds
            }
            const std::lock_guard<std::mutex> lock(mutex);
            ++done;
            changed.notify_all();
        }
        const std::lock_guard<std::mutex> lock(mutex);
        --active;
        changed.notify_all();
    };
    std::vector<std::thread> pool;
    for (unsigned t = 0; t < threads; ++t) pool.emplace_back(work);
    {
        // Progress is told on the calling thread, as the folds finish.
        std::unique_lock<std::mutex> lock(mutex);
        for (std::uint64_t seen = 0; active > 0;) {
            changed.wait(lock, [&] { return done != seen || active == 0; });
            if (done != seen && progress) {
                seen = done;
                lock.unlock();
                progress(seen, folds);
                lock.lock();
            }
            seen = done;
        }
    }
    for (std::thread& t : pool) t.join();
    for (const std::exception_ptr& e : errors) {
        if (e) std::rethrow_exception(e);
    }

    const double rows = static_cast<double>(data.rows);
    for (std::size_t k = 0; k < steps.size(); ++k) {
        double sum = 0, squares = 0;
        for (const FoldLosses& f : losses) {
            sum += f.sum[k];
            squares += f.squares[k];
        }
        steps[k].cvRisk = sum;
        steps[k].cvError = std::sqrt(std::max(0.0, squares - sum * sum) / rows);
    }
}

std::uint64_t chooseStep(const std::vector<PruningStep>& steps, bool oneStandardError) {
    std::uint64_t best = 0;
    for (std::uint64_t k = 1; k < steps.size(); ++k) {
        if (steps[k].cvRisk <= steps[best].cvRisk) best = k;  // the smaller tree on a tie
    }
    if (!oneStandardError) return best;
    const double bound = steps[best].cvRisk + steps[best].cvError;
    std::uint64_t chosen = best;
    for (std::uint64_t k = best + 1; k < steps.size(); ++k) {
        if (steps[k].cvRisk <= bound) chosen = k;
    }
    return chosen;
}

}  // namespace arbolin::frontend

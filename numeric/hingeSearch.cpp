#include "numeric/hingeSearch.h"

#include "numeric/workArrays.h"

#include <algorithm>
#include <cmath>

// A continuous piecewise-linear function is the sum of its values at the nodes times hat functions, so the
// normal equations of a hinge set are tridiagonal: between two neighbouring nodes a sample has the weight t
// for the right node and w = 1 - t for the left one, and everything the equations need of a segment is five
// sums. Two adjacent segments merge into one by formulas whose x parts have positive terms only, so nothing
// cancels however long the series is. Every node is itself a sample of weight 1 for its own hat alone;
// therefore each pivot is at least 1, and the normal equations lose none of the digits that they are
// notorious for losing.
//
// The values are taken about their mean: a common offset is in the reach of every hinge set and would only
// eat digits. What is compared is the part of the sum of squares that a set explains; it differs from set to
// set by as much as the residual sum of squares does, without the cancellation of the latter near an exact
// fit.

namespace obrin {
namespace {

/// Sums over the samples after a segment's left node up to and with its right node.
struct HatSums {
    double ww = 0.0, wt = 0.0, tt = 0.0, wy = 0.0, ty = 0.0;
};

/// What elimination of all nodes on one side leaves of a node's equation, and the sum of squares explained so
/// far.
struct Elimination {
    double pivot, load, explained;
};

struct Level {
    std::int32_t from;  ///< the node before this hinge
    std::int32_t node;  ///< this hinge
    HatSums segment;    ///< from `from` to `node`
    Elimination before; ///< of `from` by all nodes to its left
};

struct Scale {
    bool usable;
    double centre; ///< a float's value, so that y - centre is exact for values near it
};

/// Not-a-number and infinity survive any sum, and sums of floats cannot overflow a double.
Scale examineSamples(Count M, const float* x, const float* y) {
    double sumX = x[0], sumY = y[0];
    bool ascending = true;
    for (Count i = 1; i < M; ++i) {
        sumX += static_cast<double>(x[i]);
        sumY += static_cast<double>(y[i]);
        ascending &= x[i] >= x[i - 1];
    }
    const bool usable = ascending && std::isfinite(sumX) && std::isfinite(sumY);
    return {usable, usable ? static_cast<double>(static_cast<float>(sumY / M)) : 0.0};
}

bool nodesAreDistinct(Count M, const float* x, Count P, const std::int32_t* positions) {
    std::int32_t previous = 0;
    for (Count p = 0; p < P; ++p) {
        const std::int32_t position = positions[p];
        if (position <= previous || position >= M - 1 || !(x[position] > x[previous])) {
            return false;
        }
        previous = position;
    }
    return x[M - 1] > x[previous];
}

/// One segment out of two adjacent ones of the lengths `leftLength` and `rightLength`.
inline HatSums merge(const HatSums& left, double leftLength, const HatSums& right, double rightLength) {
    const double inverse = 1.0 / (leftLength + rightLength);
    const double a = leftLength * inverse, b = rightLength * inverse;
    HatSums all;
    all.ww = left.ww + b * (2.0 * left.wt + b * (left.tt + right.ww));
    all.wt = a * (left.wt + b * (left.tt + right.ww)) + b * right.wt;
    all.tt = a * (a * (left.tt + right.ww) + 2.0 * right.wt) + right.tt;
    all.wy = left.wy + b * (left.ty + right.wy);
    all.ty = a * (left.ty + right.wy) + right.ty;
    return all;
}

/// Eliminates a node on the left, passing over the segment to the next node.
inline Elimination stepRight(const Elimination& node, const HatSums& segment) {
    const double inverse = 1.0 / (node.pivot + segment.ww);
    const double load = node.load + segment.wy;
    const double factor = segment.wt * inverse;
    return {segment.tt - segment.wt * factor, segment.ty - load * factor,
            node.explained + load * load * inverse};
}

/// Eliminates the last node of all at the right end of the segment.
Elimination eliminateLast(const HatSums& segment) {
    const double inverse = 1.0 / segment.tt;
    const double factor = segment.wt * inverse;
    return {segment.ww - segment.wt * factor, segment.wy - segment.ty * factor,
            segment.ty * segment.ty * inverse};
}

inline double explainedTogether(const Elimination& left, const Elimination& right) {
    const double load = left.load + right.load;
    return left.explained + right.explained + load * load / (left.pivot + right.pivot);
}

/// The sets of one call. Nodes are numbered 0 (first sample), 1 ... P (positions), P + 1 (last sample).
class HingeSets {
public:
    HingeSets(Count M, const float* x, const float* y, double centre, Count P, const std::int32_t* positions,
              Count k);

    /// Calls visit(explained) for each set in lexicographic order until it returns true; node() tells the
    /// set.
    template <class Visit>
    void forEach(Visit visit);

    std::int32_t node(Count hinge) const { return levels_[hinge].node; }

    /// Total sum of squares about the mean.
    double totalSquares() const { return totalSquares_; }

    /// Takes the memory of up to P positions and k hinges.
    static bool reserve(Count P, Count k) noexcept {
        auto* const memory = tryThreadOwn<Memory>();
        return memory != nullptr && memory->intervals.reserve(P + 1) && memory->abscissae.reserve(P + 2) &&
               memory->fromRight.reserve(P + 1) && memory->levels.reserve(k);
    }

private:
    void sumIntervals(Count M, const float* x, const float* y, double centre, const std::int32_t* positions);
    void eliminateFromTheRight();
    void advance(Level& level);
    template <class Visit>
    bool scanLastHinge(Visit& visit);

    struct Memory {
        WorkArray<HatSums> intervals{"hinge_intervals"};
        WorkArray<double> abscissae{"hinge_abscissae"};
        WorkArray<Elimination> fromRight{"hinge_eliminations"};
        WorkArray<Level> levels{"hinge_levels"};
    };
    static Memory& memory() { return threadOwn<Memory>(); }

    Count P_, k_;
    HatSums* intervals_;     ///< [node]: from the node to the next one
    double* abscissae_;      ///< [node]
    Elimination* fromRight_; ///< [node]: by the last sample, with no hinge in between
    Level* levels_;          ///< [hinge]
    double firstValue_ = 0.0, totalSquares_ = 0.0;
};

HingeSets::HingeSets(Count M, const float* x, const float* y, double centre, Count P,
                     const std::int32_t* positions, Count k)
    : P_(P), k_(k), intervals_(memory().intervals.get(P + 1)), abscissae_(memory().abscissae.get(P + 2)),
      fromRight_(memory().fromRight.get(P + 1)), levels_(memory().levels.get(k)) {
    sumIntervals(M, x, y, centre, positions);
    eliminateFromTheRight();
}

void HingeSets::sumIntervals(Count M, const float* x, const float* y, double centre,
                             const std::int32_t* positions) {
    firstValue_ = static_cast<double>(y[0]) - centre;
    double sum = firstValue_, squares = firstValue_ * firstValue_;
    Count i = 1;
    abscissae_[0] = static_cast<double>(x[0]);
    for (Count node = 0; node <= P_; ++node) {
        const Count end = node < P_ ? positions[node] : M - 1;
        const double left = abscissae_[node];
        const double right = abscissae_[node + 1] = static_cast<double>(x[end]);
        const double inverse = 1.0 / (right - left);
        HatSums s;
        for (; i < end; ++i) {
            const double t = (static_cast<double>(x[i]) - left) * inverse, w = 1.0 - t;
            const double value = static_cast<double>(y[i]) - centre;
            s.ww += w * w;
            s.wt += w * t;
            s.tt += t * t;
            s.wy += w * value;
            s.ty += t * value;
            squares += value * value;
        }
        const double value = static_cast<double>(y[i++]) - centre;
        sum += s.wy + s.ty + value;
        s.tt += 1.0;
        s.ty += value;
        squares += value * value;
        intervals_[node] = s;
    }
    totalSquares_ = std::max(0.0, squares - sum * sum / M);
}

void HingeSets::eliminateFromTheRight() {
    HatSums segment = intervals_[P_];
    fromRight_[P_] = eliminateLast(segment);
    for (Count node = P_ - 1; node > 0; --node) {
        segment = merge(intervals_[node], abscissae_[node + 1] - abscissae_[node], segment,
                        abscissae_[P_ + 1] - abscissae_[node + 1]);
        fromRight_[node] = eliminateLast(segment);
    }
}

/// Moves a hinge to the next node, its segment growing by the interval in between.
inline void HingeSets::advance(Level& level) {
    const std::int32_t node = level.node;
    level.segment = merge(level.segment, abscissae_[node] - abscissae_[level.from], intervals_[node],
                          abscissae_[node + 1] - abscissae_[node]);
    level.node = node + 1;
}

template <class Visit>
bool HingeSets::scanLastHinge(Visit& visit) {
    Level& last = levels_[k_ - 1];
    while (last.node < P_) {
        advance(last);
        if (visit(explainedTogether(stepRight(last.before, last.segment), fromRight_[last.node]))) {
            return true;
        }
    }
    return false;
}

template <class Visit>
void HingeSets::forEach(Visit visit) {
    Count depth = 0;
    levels_[0] = {0, 0, {}, {1.0, firstValue_, 0.0}};
    while (depth >= 0) {
        Level& level = levels_[depth];
        if (depth == k_ - 1) {
            if (scanLastHinge(visit)) {
                return;
            }
            --depth;
        } else if (level.node == P_ - (k_ - 1 - depth)) {
            --depth;
        } else {
            advance(level);
            levels_[++depth] = {level.node, level.node, {}, stepRight(level.before, level.segment)};
        }
    }
}

/// The most that a set explains, and the first set within the band below it.
class Leader {
public:
    Leader(const HingeSets& sets, Count k, std::int32_t* nodes)
        : sets_(sets), k_(k), nodes_(nodes), band_(hingeTieBand * sets.totalSquares()) {}

    bool operator()(double explained) {
        if (explained > most_) {
            lead(explained);
        }
        return false;
    }

    double threshold() const { return most_ - band_; }

    /// Whether the first set within the band is not among those kept, because several leads came within one
    /// band.
    bool lost() const { return lost_; }

    void keep(double explained) {
        kept_ = explained;
        for (Count hinge = 0; hinge < k_; ++hinge) {
            nodes_[hinge] = sets_.node(hinge);
        }
    }

private:
    void lead(double explained) {
        const double threshold = explained - band_;
        if (most_ < threshold) {
            keep(explained);
            lost_ = false;
        } else if (kept_ < threshold) {
            lost_ = true;
        }
        most_ = explained;
    }

    const HingeSets& sets_;
    Count k_;
    std::int32_t* nodes_;
    double band_;
    double most_ = -HUGE_VAL, kept_ = -HUGE_VAL;
    bool lost_ = false;
};

} // namespace

bool findBestHinges(Count M, const float* x, const float* y, Count P, const std::int32_t* positions, Count k,
                    std::int32_t* hinges) {
    if (k < 1 || k > P || M < 3 || k >= M - 2 || !nodesAreDistinct(M, x, P, positions)) {
        return false;
    }
    const Scale scale = examineSamples(M, x, y);
    if (!scale.usable) {
        return false;
    }
    HingeSets sets(M, x, y, scale.centre, P, positions, k);
    Leader leader(sets, k, hinges);
    sets.forEach([&leader](double explained) { return leader(explained); });
    if (leader.lost()) {
        sets.forEach([&leader](double explained) {
            const bool found = explained >= leader.threshold();
            if (found) {
                leader.keep(explained);
            }
            return found;
        });
    }
    for (Count hinge = 0; hinge < k; ++hinge) {
        hinges[hinge] = positions[hinges[hinge] - 1];
    }
    return true;
}

bool reserveHingeSearch(Count P, Count k) noexcept {
    return HingeSets::reserve(P, k);
}

} // namespace obrin

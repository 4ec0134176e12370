// Not-a-number helpers and the regularised incomplete gamma and beta
// functions. Called from worker threads by the selection tests, so they hold
// no state and never throw: a bad argument gives NaN.
#include <cmath>
#include <limits>

#include <boost/math/special_functions/beta.hpp>
#include <boost/math/special_functions/gamma.hpp>

#include "gateway/numora.hpp"

double cxGetNaN() { return std::numeric_limits<double>::quiet_NaN(); }

bool cxIsNaN(double v) { return std::isnan(v); }

namespace numfunc {

namespace {

namespace bp = boost::math::policies;

using QuietPolicy =
    bp::policy<bp::domain_error<bp::ignore_error>, bp::pole_error<bp::ignore_error>,
               bp::overflow_error<bp::ignore_error>, bp::underflow_error<bp::ignore_error>,
               bp::denorm_error<bp::ignore_error>, bp::evaluation_error<bp::ignore_error>,
               bp::rounding_error<bp::ignore_error>,
               bp::indeterminate_result_error<bp::ignore_error>>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

double pick(Tail tail, double lower, double upper) { return tail == Tail::Lower ? lower : upper; }

}  // namespace

double gammainc(double x, double a, Tail tail) {
    if (std::isnan(x) || std::isnan(a) || x < 0.0 || a < 0.0) return kNaN;
    if (std::isinf(a)) return std::isinf(x) ? kNaN : pick(tail, 0.0, 1.0);
    // a = 0 is the limit of a distribution with all its mass at zero.
    if (a == 0.0 || std::isinf(x)) return pick(tail, 1.0, 0.0);
    try {
        return tail == Tail::Lower ? boost::math::gamma_p(a, x, QuietPolicy())
                                   : boost::math::gamma_q(a, x, QuietPolicy());
    } catch (...) {
        return kNaN;
    }
}

double betainc(double x, double a, double b, Tail tail) {
    if (std::isnan(x) || std::isnan(a) || std::isnan(b)) return kNaN;
    if (x < 0.0 || x > 1.0 || a < 0.0 || b < 0.0 || (a == 0.0 && b == 0.0)) return kNaN;
    if (std::isinf(a) || std::isinf(b)) return kNaN;
    try {
        return tail == Tail::Lower ? boost::math::ibeta(a, b, x, QuietPolicy())
                                   : boost::math::ibetac(a, b, x, QuietPolicy());
    } catch (...) {
        return kNaN;
    }
}

}  // namespace numfunc

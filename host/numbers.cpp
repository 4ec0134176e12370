// Not-a-number helpers; pure functions, so safe on any thread.
#include <cmath>
#include <limits>

#include "gateway/numora.hpp"

double cxGetNaN() {
    return std::numeric_limits<double>::quiet_NaN();
}

bool cxIsNaN(double v) {
    return std::isnan(v);
}

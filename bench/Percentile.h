#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace norrow::bench {

// The nearest-rank percentile (`p` from 0 to 1) of the samples, in any order.
inline double percentile(std::vector<double> samples, double p) {
    std::sort(samples.begin(), samples.end());
    const auto rank = static_cast<std::size_t>(std::ceil(p * static_cast<double>(samples.size())));
    return samples[std::clamp<std::size_t>(rank, 1, samples.size()) - 1];
}

} // namespace norrow::bench

#pragma once

#include <chrono>

namespace norrow {

// A length of time in seconds held as a double: fractions survive, and so does a negative
// length when the wall clock was set back.
using Seconds = std::chrono::duration<double>;

} // namespace norrow

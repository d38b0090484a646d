#pragma once

#include <QLockFile>
#include <memory>

namespace norrow {

// Holds a lock for as long as this Norrow runs, so that a second launch can tell and leave
// the first one's listener alone. A lock left by a crashed run is taken over.
class SingleInstance {
public:
    SingleInstance();
    // False when another Norrow of this user holds the lock.
    bool acquired() const { return acquired_; }

private:
    std::unique_ptr<QLockFile> lock_;
    bool acquired_ = false;
};

} // namespace norrow

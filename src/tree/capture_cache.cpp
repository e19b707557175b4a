#include "tree/capture_cache.h"

const CapturedValues* CaptureCache::find(const CaptureKey& key, int32_t iterations) const {
    if (iterations != iteration_) return nullptr;
    const auto found = entries_.find(key);
    return found == entries_.end() ? nullptr : &found->second;
}

CapturedValues& CaptureCache::store(const CaptureKey& key, int32_t iterations) {
    if (iterations != iteration_) {
        clear();
        iteration_ = iterations;
    }
    CapturedValues& entry = entries_[key];
    entry.values.set_zero(0);
    entry.weights.set_zero(0);
    return entry;
}

void CaptureCache::clear() {
    // A plain clear keeps the buckets of the largest map ever held.
    std::unordered_map<CaptureKey, CapturedValues, CaptureKeyHash>().swap(entries_);
    iteration_ = -1;
}

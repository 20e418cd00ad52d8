#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <unordered_set>
#include <vector>

#include "dabo/ps/MrvSubscriber.h"

namespace orlo::dabo::ps::queue {

/// The store behind a most-recent-value subscriber: the latest sample of each
/// instance, as far as keyEquals tells instances apart. A read removes nothing.
/// The transport writes into it from its delivering thread.
template <typename T, typename ST>
class MapMrvSubscriber : public MrvSubscriber<T> {
public:
    /// All samples share one bucket: the binding can compare keys but not hash them.
    struct STHash {
        std::size_t operator()(const std::shared_ptr<ST>&) const { return 0; }
    };
    struct STEqual {
        bool operator()(const std::shared_ptr<ST>& a, const std::shared_ptr<ST>& b) const {
            return a->keyEquals(*b);
        }
    };

    MapMrvSubscriber();

    /// Refuses further reads; the store is kept.
    void close() override;
    /// Sleeps `timeout` in full, then returns every sample held.
    std::vector<std::shared_ptr<T>> readMostRecent(const std::chrono::milliseconds& timeout) override;
    ~MapMrvSubscriber() override;

protected:
    /// The writer's rule: `sample` replaces the element of its instance.
    void storeSample(std::shared_ptr<ST> sample);

    std::mutex mutex;
    std::atomic<bool> closed;
    std::unordered_set<std::shared_ptr<ST>, STHash, STEqual> store;
};

}  // namespace orlo::dabo::ps::queue

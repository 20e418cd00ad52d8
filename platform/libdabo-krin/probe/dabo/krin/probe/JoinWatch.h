#pragma once

// A runtime whose publishing endpoints report subscribers joining, so that a
// measured sending side starts only once its peer listens and no sample is
// lost to the time a subscription takes to arrive.

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "dabo/Dabo.h"

namespace orlo::dabo::krin::detail {
class KrinDabo;
}  // namespace orlo::dabo::krin::detail

namespace orlo::dabo::krin::probe {

class JoinWatch {
public:
    explicit JoinWatch(const orlo::dabo::Dabo::Properties& properties);

    const std::shared_ptr<detail::KrinDabo>& runtime() const { return dabo; }

    /// Waits until `subscribers` subscriptions are held; false after `limit`.
    bool await(int subscribers, std::chrono::milliseconds limit);

private:
    struct Count {
        std::mutex mutex;
        std::condition_variable changed;
        int joined = 0;
    };
    std::shared_ptr<Count> count = std::make_shared<Count>();
    std::shared_ptr<detail::KrinDabo> dabo;
};

}  // namespace orlo::dabo::krin::probe

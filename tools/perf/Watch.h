#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "dabo/krin/detail/KrinDaboTestHooks.h"

namespace lumo::perf {

/// A runtime whose bound endpoints report subscribers joining, so that a
/// sending side starts only once its peer listens.
class JoinWatch {
public:
    explicit JoinWatch(const orlo::dabo::Dabo::Properties& properties) {
        orlo::dabo::krin::detail::KrinDaboTestHooks hooks;
        hooks.subscriptionObserver = [this](const std::string&, bool subscribed, const std::string&) {
            {
                std::lock_guard<std::mutex> lock(mutex);
                joined += subscribed ? 1 : -1;
            }
            changed.notify_all();
        };
        dabo = orlo::dabo::krin::detail::KrinDaboTesting::create(properties, hooks);
    }
    const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& runtime() const { return dabo; }

    bool await(int subscribers, std::chrono::milliseconds limit) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, limit, [&] { return joined >= subscribers; });
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    int joined = 0;
    std::shared_ptr<orlo::dabo::krin::detail::KrinDabo> dabo;
};

}  // namespace lumo::perf

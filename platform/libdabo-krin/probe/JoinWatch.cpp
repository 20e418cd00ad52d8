#include "dabo/krin/probe/JoinWatch.h"

#include "dabo/krin/detail/KrinDaboTestHooks.h"

namespace orlo::dabo::krin::probe {

JoinWatch::JoinWatch(const orlo::dabo::Dabo::Properties& properties) {
    detail::KrinDaboTestHooks hooks;
    // The count outlives the runtime's thread, which may still report as the runtime ends.
    hooks.subscriptionObserver = [count = count](const std::string&, bool subscribed, const std::string&) {
        {
            std::lock_guard<std::mutex> lock(count->mutex);
            count->joined += subscribed ? 1 : -1;
        }
        count->changed.notify_all();
    };
    dabo = detail::KrinDaboTesting::create(properties, hooks);
}

bool JoinWatch::await(int subscribers, std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(count->mutex);
    return count->changed.wait_for(lock, limit, [&] { return count->joined >= subscribers; });
}

}  // namespace orlo::dabo::krin::probe

#pragma once

#include <chrono>
#include <memory>
#include <vector>

namespace orlo::dabo::ps {

/// Keeps the most recent sample of each instance of topic `T`.
template <typename T>
class MrvSubscriber {
public:
    virtual void close() = 0;
    /// The samples held after waiting `timeout`.
    virtual std::vector<std::shared_ptr<T>> readMostRecent(const std::chrono::milliseconds& timeout) = 0;
    virtual ~MrvSubscriber() = default;
};

}  // namespace orlo::dabo::ps

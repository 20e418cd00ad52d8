#pragma once

#include <thread>
#include <utility>

#include "dabo/DaboException.h"
#include "dabo/ps/queue/MapMrvSubscriber.h"

namespace orlo::dabo::ps::queue {

template <typename T, typename ST>
MapMrvSubscriber<T, ST>::MapMrvSubscriber() : closed(false) {}

template <typename T, typename ST>
void MapMrvSubscriber<T, ST>::close() {
    closed = true;
}

template <typename T, typename ST>
MapMrvSubscriber<T, ST>::~MapMrvSubscriber() {
    closed = true;
}

template <typename T, typename ST>
std::vector<std::shared_ptr<T>> MapMrvSubscriber<T, ST>::readMostRecent(const std::chrono::milliseconds& timeout) {
    if (closed) {
        throw orlo::dabo::IllegalStateException("KrinMrvSubscriber already closed");
    }
    if (timeout.count() < 0) {
        throw orlo::dabo::DaboException("negative timeout given to Mrv subscriber readMostRecent");
    }
    // Not a wait for data: the caller always gives the writer this long.
    if (timeout.count() > 0) {
        std::this_thread::sleep_for(timeout);
    }
    std::lock_guard<std::mutex> lock(mutex);
    std::vector<std::shared_ptr<T>> result;
    result.reserve(store.size());
    for (const std::shared_ptr<ST>& sample : store) {
        result.push_back(sample);
    }
    return result;
}

template <typename T, typename ST>
void MapMrvSubscriber<T, ST>::storeSample(std::shared_ptr<ST> sample) {
    std::lock_guard<std::mutex> lock(mutex);
    const STEqual sameInstance;
    for (auto it = store.begin(); it != store.end(); ++it) {
        if (sameInstance(sample, *it)) {
            store.erase(it);
            break;
        }
    }
    store.insert(std::move(sample));
}

}  // namespace orlo::dabo::ps::queue

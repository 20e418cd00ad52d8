#pragma once

#include <cassert>
#include <utility>

#include "dabo/ps/queue/DataEventImpl.h"
#include "dabo/ps/queue/InstanceQueue.h"

namespace orlo::dabo::ps::queue {

template <typename T, typename ST>
DataEventImpl<T, ST>::DataEventImpl(std::shared_ptr<T> data, double sourceTimestamp, bool validData,
                                    std::unique_ptr<InstanceState> instanceState, InstanceEvent instanceEvent,
                                    const std::shared_ptr<InstanceQueue<T, ST>>& instanceQueue)
    : sourceTimestamp(sourceTimestamp),
      data(std::move(data)),
      validData(validData),
      instanceState(std::move(instanceState)),
      instanceEvent(instanceEvent) {
    if (instanceQueue) {
        this->instanceQueue = instanceQueue;
    }
}

template <typename T, typename ST>
bool DataEventImpl<T, ST>::hasValidData() const {
    return validData && data;
}

template <typename T, typename ST>
const std::shared_ptr<T>& DataEventImpl<T, ST>::getData() const {
    return data;
}

template <typename T, typename ST>
InstanceState DataEventImpl<T, ST>::getInstanceState() const {
    // While the instance lives, its writer decides, even for an old event.
    if (auto queue = instanceQueue.lock()) {
        return queue->writerGeneration == 0 ? INSTANCE_NOT_ALIVE : INSTANCE_ALIVE;
    }
    if (instanceState) {
        return *instanceState;
    }
    return INSTANCE_NOT_ALIVE;
}

template <typename T, typename ST>
InstanceEvent DataEventImpl<T, ST>::getInstanceEvent() const {
    return instanceEvent;
}

template <typename T, typename ST>
double DataEventImpl<T, ST>::getSourceTimestamp() const {
    return sourceTimestamp;
}

template <typename T, typename ST>
void DataEventImpl<T, ST>::removeFromInstanceQueue() {
    auto queue = instanceQueue.lock();
    if (!queue) {
        return;
    }
    assert(instancePosition && "a linked instance event knows its position");
    queue->events.erase(*instancePosition);
    // Freeze what the instance says now, so that the event keeps a meaningful
    // state once the queue is gone.
    if (!instanceState) {
        instanceState = std::make_unique<InstanceState>(getInstanceState());
    }
    instancePosition.reset();
}

}  // namespace orlo::dabo::ps::queue

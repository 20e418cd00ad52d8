#include "tools/play/TopicPublisher.h"

#include <chrono>
#include <stdexcept>

#include "lumotypes/host/Payload.h"
#include "lumotypes/host/Topics.h"

namespace lumo::play {

namespace {

template <typename T>
class TypedPublisher : public TopicPublisher {
public:
    explicit TypedPublisher(std::unique_ptr<orlo::dabo::ps::Publisher<T>> publisher)
        : publisher(std::move(publisher)), entity(this->publisher->createDataEntity()) {}

    bool publish(const std::string& payload) override {
        if (!lumotypes::host::fromBytes(*entity, payload)) {
            return false;
        }
        publisher->publish(*entity, std::chrono::milliseconds(1000));
        return true;
    }

    void close() override { publisher->close(); }

private:
    std::unique_ptr<orlo::dabo::ps::Publisher<T>> publisher;
    std::shared_ptr<T> entity;
};

}  // namespace

std::unique_ptr<TopicPublisher> makeTopicPublisher(const lumotypes::host::Plugin& plugin, const std::string& topic,
                                                   const std::string& uri,
                                                   const orlo::dabo::Dabo::Properties& properties,
                                                   const lumotypes::host::Runtime& runtime) {
    std::unique_ptr<TopicPublisher> made;
    const bool known = lumotypes::host::withTopic(topic, [&](auto tag) {
        using T = typename decltype(tag)::type;
        made = std::make_unique<TypedPublisher<T>>(plugin.publisher<T>(uri, properties, runtime));
    });
    if (!known) {
        throw std::invalid_argument("'" + topic + "' is not a topic");
    }
    return made;
}

}  // namespace lumo::play

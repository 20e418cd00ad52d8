#include <utility>

#include "dabo/krin/detail/KrinDaboTestHooks.h"

namespace orlo::dabo::krin::detail {

namespace {

/// The runtime's seam, as the hooks say.
class HookedSeam : public RuntimeSeam {
public:
    explicit HookedSeam(KrinDaboTestHooks testHooks) : hooks(std::move(testHooks)) {}

    EventDelivery deliveryOfRegistered() const override { return hooks.registered; }
    EventDelivery deliveryOfUnregistered() const override { return hooks.unregistered; }
    bool registerWaitsForRegistered() const override { return hooks.registeredBeforeRegisterReturns; }

    void called(const char* operation, bool handlerEmpty) override {
        if (hooks.callObserver) {
            hooks.callObserver(operation, handlerEmpty);
        }
    }
    void subscriptionSeen(const std::string& endpoint, bool subscribed, const std::string& filter) override {
        if (hooks.subscriptionObserver) {
            hooks.subscriptionObserver(endpoint, subscribed, filter);
        }
    }
    void messageDropped(const std::string& identity) override {
        if (hooks.messageDropped) {
            hooks.messageDropped(identity);
        }
    }
    bool countsMessages() const override { return !hooks.messagesUncounted; }
    void stopped() override {
        if (hooks.stopped) {
            hooks.stopped();
        }
    }

private:
    const KrinDaboTestHooks hooks;
};

}  // namespace

std::shared_ptr<KrinDabo> KrinDaboTesting::create(const orlo::dabo::Dabo::Properties& properties,
                                                  const KrinDaboTestHooks& hooks) {
    return std::shared_ptr<KrinDabo>(new KrinDabo(properties, std::make_shared<HookedSeam>(hooks)));
}

}  // namespace orlo::dabo::krin::detail

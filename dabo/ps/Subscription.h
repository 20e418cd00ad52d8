#pragma once

namespace orlo::dabo::ps {

/// Handle of a registration made with subscribe or subscribeAsync; closing or
/// destroying it ends the registration.
class Subscription {
public:
    virtual void close() = 0;
    virtual ~Subscription() = default;
};

}  // namespace orlo::dabo::ps

#pragma once

#include <cassert>
#include <memory>
#include <utility>

#include "dabo/ps/LoanedDataEntity.h"

namespace orlo::dabo::ps::queue {

/// A loan of a sample that the engine already handed over for good: the
/// samples live on the heap, so there is nothing to take back on close().
template <typename T, typename ST>
class NoopLoanedDataEntityImpl : public LoanedDataEntity<T> {
public:
    explicit NoopLoanedDataEntityImpl(std::shared_ptr<T> data) : data(std::move(data)) {
        assert(this->data && "a loan always carries a sample");
    }

    T& getData() override { return *data; }
    void close() override {}

private:
    std::shared_ptr<T> data;
};

}  // namespace orlo::dabo::ps::queue

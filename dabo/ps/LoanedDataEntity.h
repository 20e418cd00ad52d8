#pragma once

namespace orlo::dabo::ps {

/// A sample lent to the host until it calls close().
template <typename T>
class LoanedDataEntity {
public:
    virtual T& getData() = 0;
    virtual void close() = 0;
    virtual ~LoanedDataEntity() = default;
};

}  // namespace orlo::dabo::ps

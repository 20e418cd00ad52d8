#pragma once

namespace orlo::dabo::krin::detail::binding {

/// Deleter for a pointer that a `std::shared_ptr` shows but does not own:
/// array views into a wire message and views of sub-messages.
template <typename P>
struct NoopDeleter {
    void operator()(P) const noexcept {}
};

}  // namespace orlo::dabo::krin::detail::binding

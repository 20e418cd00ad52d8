#pragma once

// Stand-in for opentelemetry/trace/provider.h (OpenTelemetry C++ API 1.x).

#include <mutex>

#include "opentelemetry/nostd/shared_ptr.h"
#include "opentelemetry/trace/noop.h"
#include "opentelemetry/trace/tracer_provider.h"

// The global provider must be one object in the whole process, also when the
// modules that use it are built with hidden visibility.
#define OPENTELEMETRY_API_SINGLETON __attribute__((visibility("default")))

namespace opentelemetry {
namespace trace {

/// The process-wide tracer provider; the no-op provider until one is set.
class Provider {
public:
    static nostd::shared_ptr<TracerProvider> GetTracerProvider() noexcept {
        std::lock_guard<std::mutex> guard(GetLock());
        return nostd::shared_ptr<TracerProvider>(GetProvider());
    }

    static void SetTracerProvider(const nostd::shared_ptr<TracerProvider>& tp) noexcept {
        std::lock_guard<std::mutex> guard(GetLock());
        GetProvider() = tp;
    }

private:
    OPENTELEMETRY_API_SINGLETON static nostd::shared_ptr<TracerProvider>& GetProvider() noexcept {
        static nostd::shared_ptr<TracerProvider> provider(std::shared_ptr<TracerProvider>(std::make_shared<NoopTracerProvider>()));
        return provider;
    }

    OPENTELEMETRY_API_SINGLETON static std::mutex& GetLock() noexcept {
        static std::mutex lock;
        return lock;
    }
};

}  // namespace trace
}  // namespace opentelemetry

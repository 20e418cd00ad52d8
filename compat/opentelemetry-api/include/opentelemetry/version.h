#pragma once

// Stand-in for opentelemetry/version.h (OpenTelemetry C++ API 1.x, ABI version 1).
//
// Every name of the API lives in the inline namespace opentelemetry::v1, as in
// the real API, so that code built against these headers refers to the same
// symbols (opentelemetry::v1::trace::Provider and so on) as a host built
// against the real ones.

#define OPENTELEMETRY_ABI_VERSION_NO 1
#define OPENTELEMETRY_ABI_VERSION_NAMESPACE v1

// clang-format off
#define OPENTELEMETRY_BEGIN_NAMESPACE \
    namespace opentelemetry {         \
    inline namespace OPENTELEMETRY_ABI_VERSION_NAMESPACE {

#define OPENTELEMETRY_END_NAMESPACE \
    }                               \
    }
// clang-format on

#define OPENTELEMETRY_NAMESPACE opentelemetry::OPENTELEMETRY_ABI_VERSION_NAMESPACE

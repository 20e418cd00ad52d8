#!/bin/sh
# The plug-in's span calls name the OpenTelemetry API as a host built against
# the real API does: every API symbol that the plug-in exports or needs lies in
# the inline namespace opentelemetry::v1, so the process-wide tracer provider
# that the host's SDK sets is the one the plug-in reads.
#
# Usage: otelSymbols_test.sh PLUGIN
set -eu
plugin=$1

demangled=$(nm -D -C "$plugin" | grep 'opentelemetry::' || true)
if [ -z "$demangled" ]; then
    echo "FAIL: $plugin names no OpenTelemetry symbol"
    exit 1
fi
outside=$(printf '%s\n' "$demangled" | grep -o 'opentelemetry::[A-Za-z0-9_]*' | grep -vx 'opentelemetry::v1' || true)
if [ -n "$outside" ]; then
    printf 'FAIL: OpenTelemetry symbols outside opentelemetry::v1:\n%s\n' "$outside"
    exit 1
fi
# The provider's singleton and its lock, by their mangled names: what the
# dynamic linker unifies with the host's.
for mangled in _ZZN13opentelemetry2v15trace8Provider11GetProviderEvE8provider \
               _ZZN13opentelemetry2v15trace8Provider7GetLockEvE4lock; do
    if ! nm -D "$plugin" | grep -q " $mangled\$"; then
        echo "FAIL: $plugin does not export $mangled"
        exit 1
    fi
done
echo "OpenTelemetry symbols of $plugin:"
printf '%s\n' "$demangled"

// The header frame of every message: any bytes either are refused or give a
// header whose fields survive a trip to bytes and back.

#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzSupport.h"
#include "dabo/util/DaboUtil.h"
#include "krin.pb.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string frame(reinterpret_cast<const char*>(data), size);
    orlo::dabo::krin::rr::KrinHeader header;
    if (!header.ParseFromString(frame)) {
        return 0;
    }
    // What a subscriber reads of a header, and the text it logs it with.
    (void)orlo::dabo::util::hexStr(header.tracecontext());
    (void)orlo::dabo::util::timestampFromDouble(header.sourcetimestamp());
    (void)std::to_string(static_cast<std::int32_t>(header.dataentitytypehash()));

    std::string bytes;
    LUMO_FUZZ_CHECK(header.SerializeToString(&bytes));
    orlo::dabo::krin::rr::KrinHeader again;
    LUMO_FUZZ_CHECK(again.ParseFromString(bytes));
    LUMO_FUZZ_CHECK(again.has_sourcetimestamp() == header.has_sourcetimestamp());
    LUMO_FUZZ_CHECK(again.dataentitytypehash() == header.dataentitytypehash());
    LUMO_FUZZ_CHECK(again.samplesequence() == header.samplesequence());
    LUMO_FUZZ_CHECK(again.topicidhash() == header.topicidhash());
    LUMO_FUZZ_CHECK(again.tracecontext() == header.tracecontext());
    std::string twice;
    LUMO_FUZZ_CHECK(again.SerializeToString(&twice));
    LUMO_FUZZ_CHECK(twice == bytes);
    return 0;
}

// The payload parser of every topic: the first byte picks the topic, the rest
// is the payload. Bytes from outside either are refused or give a sample that
// goes to bytes and back unchanged.

#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzSupport.h"
#include "lumotypes/Lumotypes.h"
#include "lumotypes/krin/LumotypesImpl.h"

namespace {

template <typename ST>
void parse(const std::string& payload) {
    ST entity;
    if (!entity.fromByteArray(payload.data(), payload.size())) {
        return;
    }
    std::string once;
    LUMO_FUZZ_CHECK(entity.toByteArray(once));
    ST again;
    LUMO_FUZZ_CHECK(again.fromByteArray(once));
    std::string twice;
    LUMO_FUZZ_CHECK(again.toByteArray(twice));
    LUMO_FUZZ_CHECK(once == twice);
}

using Parser = void (*)(const std::string&);

#define LUMO_FUZZ_PARSER(T) &parse<::lumotypes::krin::T##Impl>,
const Parser parsers[] = {LUMOTYPES_FOR_EACH_TOPIC(LUMO_FUZZ_PARSER)};
#undef LUMO_FUZZ_PARSER
constexpr std::size_t topicCount = sizeof parsers / sizeof parsers[0];
static_assert(topicCount == 11, "every topic of the package is fuzzed");

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    lumo::fuzz::ByteReader input(data, size);
    const std::size_t topic = input.byte() % topicCount;
    parsers[topic](input.rest());
    return 0;
}

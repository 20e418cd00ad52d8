// The queued subscriber's receive path fed with arbitrary messages of one to
// five frames, with the fuzzer in the runtime's place: it owns the socket the
// subscriber reads and raises one readable event at a time until nothing is
// left. After every input the engine holds only well-formed samples, and a
// good message that follows is still received.
//
// Input: a control byte, then the frames. Control bits 0-2 give the frame
// count (1 + value % 5); bit 3 puts the subscriber's own topic frame first in
// place of the first frame read from the input. Every frame but the last is
// one length byte followed by that many bytes; the last frame is the rest.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>
#include <zmq.hpp>

#include "FuzzSupport.h"
#include "HostSignals.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/krin/detail/ps/subscriber.h"
#include "dabo/util/DaboUtil.h"
#include "krin.pb.h"
#include "lumotypes/krin/LumotypesImpl.h"

namespace {

using Topic = lumotypes::FieldStablizationTopicOut;
using Binding = lumotypes::krin::FieldStablizationTopicOutImpl;
using Subscriber = orlo::dabo::krin::detail::ps::KrinSubscriber<Topic, Binding>;

constexpr std::uint32_t topicTypeHash = 0xF8D457E0u;
const std::string topicPath = "/fuzz/receive/fieldStabilizationOut";
// A port nobody serves: the runtime's own socket for the subscriber stays quiet.
const std::string quietUri = "krin.ps://127.0.0.1:29989" + topicPath;

/// A sample with every required field, as a publisher would send it.
std::string completeSample() {
    static const unsigned char bytes[] = {
        0x08, 0x00, 0x10, 0x01, 0x19, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0x40, 0x25, 0x07, 0x00, 0x00, 0x00,
        0x8A, 0x01, 0x04, 0x00, 0x00, 0x80, 0xBF, 0x95, 0x01, 0x06, 0x00, 0x00, 0x00, 0x99, 0x01, 0x00, 0x00, 0x00,
        0x00, 0x00, 0x00, 0x00, 0x40, 0xA5, 0x01, 0x00, 0x00, 0x80, 0x3F, 0xAD, 0x01, 0x00, 0x00, 0x00, 0x40, 0xB5,
        0x01, 0x00, 0x00, 0x40, 0x40, 0xBD, 0x01, 0x00, 0x00, 0x80, 0x40, 0xC5, 0x01, 0x00, 0x00, 0xA0, 0x40, 0xCD,
        0x01, 0x00, 0x00, 0xC0, 0x40};
    return std::string(reinterpret_cast<const char*>(bytes), sizeof bytes);
}

/// Everything lives for the whole run; it is reachable from here, so the leak
/// checker does not count it.
struct Harness {
    zmq::context_t context{1};
    zmq::socket_t sender{context, zmq::socket_type::pair};
    std::shared_ptr<zmq::socket_t> receiver = std::make_shared<zmq::socket_t>(context, zmq::socket_type::pair);
    std::shared_ptr<orlo::dabo::krin::detail::KrinDabo> dabo = orlo::dabo::krin::detail::KrinDabo::create({});
    std::shared_ptr<Subscriber> subscriber;
    std::string topicFrame = orlo::dabo::krin::detail::createFrame0(
        static_cast<std::uint32_t>(orlo::dabo::util::topicNameHash(topicPath)));
    std::uint32_t marker = 0;

    Harness() {
        sender.set(zmq::sockopt::linger, 0);
        receiver->set(zmq::sockopt::linger, 0);
        receiver->bind("inproc://lumo-fuzz-receive");
        sender.connect("inproc://lumo-fuzz-receive");
        subscriber = std::make_shared<Subscriber>(quietUri, orlo::dabo::krin::detail::ps::QoSList{},
                                                  orlo::dabo::Dabo::Properties{}, dabo);
        subscriber->init();
        subscriber->events(receiver, orlo::dabo::krin::detail::REGISTERED);
    }

    void send(const std::vector<std::string>& frames) {
        for (std::size_t i = 0; i < frames.size(); ++i) {
            const bool more = i + 1 < frames.size();
            LUMO_FUZZ_CHECK(sender.send(zmq::buffer(frames[i]), more ? zmq::send_flags::sndmore
                                                                     : zmq::send_flags::none));
        }
    }

    /// Readable events as the runtime raises them: while a frame is left.
    void deliverAll() {
        zmq::pollitem_t item{static_cast<void*>(*receiver), 0, ZMQ_POLLIN, 0};
        LUMO_FUZZ_CHECK(zmq::poll(&item, 1, std::chrono::seconds(10)) > 0);
        int events = 0;
        while ((receiver->get(zmq::sockopt::events) & ZMQ_POLLIN) != 0) {
            subscriber->events(receiver, orlo::dabo::krin::detail::POLLER_READABLE);
            LUMO_FUZZ_CHECK(++events <= 5);
        }
    }

    std::vector<std::string> goodMessage(std::uint32_t sampleId) const {
        orlo::dabo::krin::rr::KrinHeader header;
        header.set_sourcetimestamp(orlo::dabo::util::timestampToDouble(orlo::dabo::util::currentTimeMillis()));
        header.set_topicidhash(0);
        header.set_samplesequence(0);
        header.set_dataentitytypehash(topicTypeHash);
        Binding sample;
        LUMO_FUZZ_CHECK(sample.fromByteArray(completeSample()));
        sample.setSample_id(sampleId);
        std::string payload;
        LUMO_FUZZ_CHECK(sample.toByteArray(payload));
        return {topicFrame, header.SerializeAsString(), payload};
    }
};

Harness& harness() {
    static Harness* const instance = new Harness();
    return *instance;
}

/// A sample in the engine must be one that the parser would take again.
void requireWellFormed(const std::shared_ptr<Topic>& sample) {
    LUMO_FUZZ_CHECK(sample != nullptr);
    const auto* binding = dynamic_cast<const Binding*>(sample.get());
    LUMO_FUZZ_CHECK(binding != nullptr);
    std::string bytes;
    LUMO_FUZZ_CHECK(binding->toByteArray(bytes));
    Binding again;
    LUMO_FUZZ_CHECK(again.fromByteArray(bytes));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    lumo::fuzz::silenceLogging();
    harness();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Harness& h = harness();
    // As on the runtime's thread: libFuzzer's timer (SIGALRM) would otherwise
    // end a wait of ZeroMQ's early, which it reports as an error.
    const orlo::dabo::krin::detail::HostSignalsHeldBack runtimeThreadsMask;
    lumo::fuzz::ByteReader input(data, size);
    const std::uint8_t control = input.byte();
    const std::size_t frameCount = 1 + (control & 7) % 5;
    std::vector<std::string> frames;
    for (std::size_t i = 0; i + 1 < frameCount; ++i) {
        frames.push_back(input.bytes(input.byte()));
    }
    frames.push_back(input.rest());
    if ((control & 8) != 0) {
        frames.front() = h.topicFrame;
    }

    h.send(frames);
    h.deliverAll();
    for (const auto& sample : h.subscriber->read(0)) {
        requireWellFormed(sample);
    }

    // The stream is in step again: the next good message is the one received.
    h.send(h.goodMessage(++h.marker));
    h.deliverAll();
    const auto after = h.subscriber->read(0);
    LUMO_FUZZ_CHECK(after.size() == 1);
    requireWellFormed(after.front());
    LUMO_FUZZ_CHECK(after.front()->getSample_id() == h.marker);
    return 0;
}

// The wire as an independent peer sees it: a plain ZeroMQ SUB socket, not
// the plug-in's subscriber, connected to the publisher's endpoint, reads the
// frames and parses them with nothing but the schemas.

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>
#include <opentelemetry/trace/provider.h>

#include "Lumotypes.pb.h"
#include "dabo/DaboException.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/krin/detail/ps/createDataEntity.h"
#include "dabo/krin/detail/ps/instancePublisher.h"
#include "dabo/util/DaboUtil.h"
#include "dabo/ps/DataEvent.h"
#include "dabo/ps/DataEventFilter.h"
#include "dabo/ps/Subscriber.h"
#include "dabo/util/Tracing.h"
#include "krin.pb.h"
#include "lumotypes/Lumotypes.h"
#include "lumotypes/krin/LumotypesImpl.h"
#include "publisherTestSupport.h"

extern "C" orlo::dabo::ps::Subscriber<lumotypes::RefPos>* generated_krin_Subscriber_lumotypes_RefPos(
    const std::string& uri, const std::vector<std::shared_ptr<orlo::dabo::ps::qos::QoS>>& qos,
    const orlo::dabo::Dabo::Properties& properties,
    const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo);

namespace {

using namespace std::chrono_literals;
using lumo::test::freePort;
using lumo::test::InspectablePublisher;
using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::ps::createDataEntityInternal;
using orlo::dabo::krin::rr::KrinHeader;

using RefPosPublisher = InspectablePublisher<lumotypes::RefPos, lumotypes::krin::RefPosImpl>;
using Frames = std::vector<std::string>;

const char* const topicPath = "/lumo/wire/refpos";
// Probe samples carry this in refPosX; the tests' own samples never do.
constexpr unsigned int probeMarker = 0xFFFFFFFFu;

/// A SUB socket of its own context: the peer the publisher does not know.
class RawSubscriber {
public:
    RawSubscriber(const std::string& endpoint, const std::string& topicFrame)
        : context(1), socket(context, zmq::socket_type::sub) {
        socket.set(zmq::sockopt::linger, 0);
        socket.set(zmq::sockopt::subscribe, topicFrame);
        socket.connect(endpoint);
    }

    /// The next complete message, or nothing within `within`.
    std::optional<Frames> receive(std::chrono::milliseconds within) {
        zmq::pollitem_t item{static_cast<void*>(socket), 0, ZMQ_POLLIN, 0};
        if (zmq::poll(&item, 1, within) == 0) {
            return std::nullopt;
        }
        Frames frames;
        do {
            zmq::message_t frame;
            (void)socket.recv(frame, zmq::recv_flags::none);
            frames.push_back(frame.to_string());
        } while (socket.get(zmq::sockopt::rcvmore));
        return frames;
    }

private:
    zmq::context_t context;
    zmq::socket_t socket;
};

generated::krin::lumotypes::RefPos payloadOf(const Frames& frames) {
    generated::krin::lumotypes::RefPos message;
    EXPECT_TRUE(message.ParseFromString(frames.back()));
    return message;
}

KrinHeader headerOf(const std::string& frame) {
    KrinHeader header;
    EXPECT_TRUE(header.ParseFromString(frame));
    return header;
}

double wallClockSeconds() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

class WireTest : public ::testing::Test {
protected:
    void SetUp() override {
        dabo = KrinDabo::create({});
        uri = "krin.ps://127.0.0.1:" + std::to_string(freePort()) + topicPath;
        publisher = makePublisher();
        prober = makePublisher();
        peer = std::make_unique<RawSubscriber>(publisher->endpoint(), publisher->topicFrame());
        awaitSubscription();
    }

    std::shared_ptr<RefPosPublisher> makePublisher() {
        auto made = std::make_shared<RefPosPublisher>(uri, orlo::dabo::krin::detail::ps::QoSList{},
                                                      orlo::dabo::Dabo::Properties{}, dabo);
        made->init();
        return made;
    }

    /// A SUB joins asynchronously. A second publisher of the same topic sends
    /// marked probes until one gets through; from then on the peer's
    /// subscription is in place, and the publisher under test has used no
    /// sequence number for it.
    void awaitSubscription() {
        auto probe = refPos(probeMarker, 0);
        for (int attempt = 0; attempt < 200; ++attempt) {
            prober->publish(*probe, 100ms);
            if (peer->receive(50ms)) {
                return;
            }
        }
        FAIL() << "the peer's subscription never became effective";
    }

    /// The next message that is not a probe.
    Frames nextSample() {
        for (;;) {
            auto frames = peer->receive(5000ms);
            if (!frames) {
                ADD_FAILURE() << "no message arrived";
                return {};
            }
            if (payloadOf(*frames).refposx() != probeMarker) {
                return *frames;
            }
        }
    }

    static std::shared_ptr<lumotypes::RefPos> refPos(unsigned int x, unsigned int y) {
        auto entity = createDataEntityInternal<lumotypes::RefPos, lumotypes::krin::RefPosImpl>();
        entity->setRefPosX(x);
        entity->setRefPosY(y);
        entity->setCentBoxWidth(64);
        entity->setCentBoxHeight(48);
        return entity;
    }

    std::shared_ptr<KrinDabo> dabo;
    std::string uri;
    std::shared_ptr<RefPosPublisher> publisher;
    std::shared_ptr<RefPosPublisher> prober;
    std::unique_ptr<RawSubscriber> peer;
};

TEST_F(WireTest, EverySampleArrivesAsTopicFrameHeaderAndPayload) {
    const std::string expectedTopicFrame = orlo::dabo::krin::detail::createFrame0(
        static_cast<unsigned int>(orlo::dabo::util::topicNameHash(topicPath)));
    for (unsigned int i = 0; i < 3; ++i) {
        const double before = wallClockSeconds();
        publisher->publish(*refPos(i, 10 * i), 1000ms);
        const double after = wallClockSeconds();
        const Frames frames = nextSample();
        ASSERT_EQ(frames.size(), 3u);
        EXPECT_EQ(frames[0], expectedTopicFrame);
        const KrinHeader header = headerOf(frames[1]);
        EXPECT_EQ(header.dataentitytypehash(), 0x67C91967u);
        EXPECT_EQ(header.topicidhash(), orlo::dabo::util::topicNameHash(topicPath));
        EXPECT_EQ(header.samplesequence(), i);
        EXPECT_GE(header.sourcetimestamp(), before);
        EXPECT_LE(header.sourcetimestamp(), after);
        const auto payload = payloadOf(frames);
        EXPECT_EQ(payload.refposx(), i);
        EXPECT_EQ(payload.refposy(), 10 * i);
        EXPECT_EQ(payload.centboxwidth(), 64u);
        EXPECT_EQ(payload.centboxheight(), 48u);
    }
}

TEST_F(WireTest, PublishRefusedAfterTheSequenceStepStillUsesUpANumber) {
    publisher->publish(*refPos(1, 1), 1000ms);
    class UnserializableRefPos : public lumotypes::krin::RefPosImpl {
    public:
        using lumotypes::krin::RefPosImpl::toByteArray;
        bool toByteArray(zmq::message_t&) const override { return false; }
    } refused;
    EXPECT_THROW(publisher->publish(refused, 1000ms), orlo::dabo::DaboException);
    publisher->publish(*refPos(2, 2), 1000ms);
    EXPECT_EQ(headerOf(nextSample()[1]).samplesequence(), 0u);
    const Frames third = nextSample();
    EXPECT_EQ(headerOf(third[1]).samplesequence(), 2u);
    EXPECT_EQ(payloadOf(third).refposx(), 2u);
}

TEST_F(WireTest, SameExplicitTimestampGivesSameSourceTimestampAndDifferentSequences) {
    publisher->publish(1234567.125, *refPos(1, 1), 1000ms);
    publisher->publish(1234567.125, *refPos(2, 2), 1000ms);
    const KrinHeader first = headerOf(nextSample()[1]);
    const KrinHeader second = headerOf(nextSample()[1]);
    EXPECT_EQ(first.sourcetimestamp(), 1234567.125);
    EXPECT_EQ(second.sourcetimestamp(), 1234567.125);
    EXPECT_EQ(first.samplesequence(), 0u);
    EXPECT_EQ(second.samplesequence(), 1u);
}

TEST_F(WireTest, NanAndNegativeTimestampsAreSentUnchecked) {
    publisher->publish(std::numeric_limits<double>::quiet_NaN(), *refPos(1, 1), 1000ms);
    publisher->publish(-42.5, *refPos(2, 2), 1000ms);
    EXPECT_TRUE(std::isnan(headerOf(nextSample()[1]).sourcetimestamp()));
    EXPECT_EQ(headerOf(nextSample()[1]).sourcetimestamp(), -42.5);
}

TEST_F(WireTest, SampleTimestampFieldsDoNotChangeTheHeaderTimestamp) {
    publisher->publish(99.0, *refPos(1, 1), 1000ms);
    const Frames frames = nextSample();
    EXPECT_EQ(headerOf(frames[1]).sourcetimestamp(), 99.0);
    EXPECT_EQ(payloadOf(frames).refposx(), 1u);
}

TEST_F(WireTest, InstancePublishersSamplesLookLikeThePublishersOwnOnTheWire) {
    std::shared_ptr<orlo::dabo::krin::detail::ps::KrinPublisher<lumotypes::RefPos, lumotypes::krin::RefPosImpl>>
        base = publisher;
    orlo::dabo::krin::detail::ps::KrinInstancePublisher<lumotypes::RefPos, lumotypes::krin::RefPosImpl>
        instancePublisher(base, *refPos(5, 5));
    publisher->publish(*refPos(1, 1), 1000ms);
    instancePublisher.publish(*refPos(7, 7), 1000ms);
    const Frames first = nextSample();
    const Frames second = nextSample();
    EXPECT_EQ(first[0], second[0]);
    EXPECT_EQ(headerOf(second[1]).samplesequence(), 1u);
    EXPECT_EQ(headerOf(second[1]).dataentitytypehash(), 0x67C91967u);
    EXPECT_EQ(payloadOf(second).refposx(), 7u);
}

TEST_F(WireTest, HeaderHasNoTraceContextWhileTracingIsOff) {
    ASSERT_FALSE(publisher->tracing());
    publisher->publish(*refPos(1, 1), 1000ms);
    EXPECT_FALSE(headerOf(nextSample()[1]).has_tracecontext());
}

TEST_F(WireTest, TracingWithoutAnInstalledProviderSendsTheNoopSpansContext) {
    auto noopSpan = opentelemetry::trace::Provider::GetTracerProvider()->GetTracer("any")->StartSpan("any");
    const std::string expected = orlo::dabo::util::tracing::serializeSpan(noopSpan);
    publisher->switchTracingOn();
    publisher->publish(*refPos(1, 1), 1000ms);
    const Frames frames = nextSample();
    const KrinHeader header = headerOf(frames[1]);
    ASSERT_TRUE(header.has_tracecontext());
    EXPECT_EQ(header.tracecontext(), expected);
    EXPECT_EQ(header.samplesequence(), 0u);
}

TEST_F(WireTest, TracingPublishersSamplesParseForAReaderThatIgnoresTracing) {
    publisher->switchTracingOn();
    publisher->publish(3.5, *refPos(8, 9), 1000ms);
    const Frames frames = nextSample();
    ASSERT_EQ(frames.size(), 3u);
    const KrinHeader header = headerOf(frames[1]);
    EXPECT_EQ(header.sourcetimestamp(), 3.5);
    EXPECT_EQ(header.dataentitytypehash(), 0x67C91967u);
    EXPECT_EQ(payloadOf(frames).refposy(), 9u);
}

TEST_F(WireTest, TracingPublishersSamplesReachThePluginsSubscriberWithoutTracing) {
    std::unique_ptr<orlo::dabo::ps::Subscriber<lumotypes::RefPos>> subscriber(
        generated_krin_Subscriber_lumotypes_RefPos(uri, {}, {}, dabo));
    publisher->switchTracingOn();
    const orlo::dabo::ps::DataEventFilter<lumotypes::RefPos> anyEvent;
    std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<lumotypes::RefPos>>> events;
    // The subscriber joins asynchronously too: send until one arrives.
    for (int attempt = 0; attempt < 200 && events.empty(); ++attempt) {
        publisher->publish(6.5, *refPos(21, 22), 100ms);
        subscriber->readDataEvents(anyEvent, events, 1, 50ms);
    }
    ASSERT_EQ(events.size(), 1u);
    ASSERT_TRUE(events.front()->hasValidData());
    EXPECT_EQ(events.front()->getData()->getRefPosX(), 21u);
    EXPECT_EQ(events.front()->getData()->getRefPosY(), 22u);
    EXPECT_EQ(events.front()->getSourceTimestamp(), 6.5);
    subscriber->close();
}

/// Records what the publisher asks of the tracing API.
class RecordingSpan : public opentelemetry::trace::Span {
public:
    explicit RecordingSpan(std::vector<std::string>& journal) : journal(journal) {}
    void AddEvent(opentelemetry::nostd::string_view) noexcept override { journal.push_back("event"); }
    void SetStatus(opentelemetry::trace::StatusCode, opentelemetry::nostd::string_view) noexcept override {
        journal.push_back("status");
    }
    void UpdateName(opentelemetry::nostd::string_view) noexcept override { journal.push_back("rename"); }
    void End(const opentelemetry::trace::EndSpanOptions&) noexcept override { journal.push_back("end"); }
    opentelemetry::trace::SpanContext GetContext() const noexcept override {
        return opentelemetry::trace::SpanContext::GetInvalid();
    }
    bool IsRecording() const noexcept override { return true; }

private:
    std::vector<std::string>& journal;
};

class RecordingTracer : public opentelemetry::trace::Tracer {
public:
    explicit RecordingTracer(std::vector<std::string>& journal) : journal(journal) {}
    opentelemetry::nostd::shared_ptr<opentelemetry::trace::Span> StartSpan(
        opentelemetry::nostd::string_view name, const opentelemetry::trace::StartSpanOptions& options) noexcept override {
        journal.push_back("start " + std::string(name.data(), name.size()) + " kind " +
                          std::to_string(static_cast<int>(options.kind)));
        return opentelemetry::nostd::shared_ptr<opentelemetry::trace::Span>(
            std::shared_ptr<opentelemetry::trace::Span>(std::make_shared<RecordingSpan>(journal)));
    }

private:
    std::vector<std::string>& journal;
};

class RecordingTracerProvider : public opentelemetry::trace::TracerProvider {
public:
    explicit RecordingTracerProvider(std::vector<std::string>& journal) : journal(journal) {}
    opentelemetry::nostd::shared_ptr<opentelemetry::trace::Tracer> GetTracer(
        opentelemetry::nostd::string_view name, opentelemetry::nostd::string_view version,
        opentelemetry::nostd::string_view schema) noexcept override {
        journal.push_back("tracer " + std::string(name.data(), name.size()) + " version '" +
                          std::string(version.data(), version.size()) + "' schema '" +
                          std::string(schema.data(), schema.size()) + "'");
        return opentelemetry::nostd::shared_ptr<opentelemetry::trace::Tracer>(
            std::shared_ptr<opentelemetry::trace::Tracer>(std::make_shared<RecordingTracer>(journal)));
    }

private:
    std::vector<std::string>& journal;
};

/// Installs a provider for the test's duration and puts the previous one back.
class InstalledProvider {
public:
    explicit InstalledProvider(std::shared_ptr<opentelemetry::trace::TracerProvider> provider)
        : previous(opentelemetry::trace::Provider::GetTracerProvider()) {
        opentelemetry::trace::Provider::SetTracerProvider(
            opentelemetry::nostd::shared_ptr<opentelemetry::trace::TracerProvider>(std::move(provider)));
    }
    ~InstalledProvider() { opentelemetry::trace::Provider::SetTracerProvider(previous); }

private:
    opentelemetry::nostd::shared_ptr<opentelemetry::trace::TracerProvider> previous;
};

TEST_F(WireTest, TracingMakesOneEndedProducerSpanPerSampleNamedAfterTheTopic) {
    std::vector<std::string> journal;
    InstalledProvider installed(std::make_shared<RecordingTracerProvider>(journal));
    publisher->switchTracingOn();
    publisher->publish(*refPos(1, 1), 1000ms);
    publisher->publish(*refPos(2, 2), 1000ms);
    const std::string producerKind = std::to_string(static_cast<int>(opentelemetry::trace::SpanKind::kProducer));
    const std::vector<std::string> onePublish{"tracer KrinPublisherCpp version '' schema ''",
                                              "start publish(RefPos) kind " + producerKind, "end"};
    std::vector<std::string> expected = onePublish;
    expected.insert(expected.end(), onePublish.begin(), onePublish.end());
    EXPECT_EQ(journal, expected);
    EXPECT_EQ(producerKind, "3");
    // The span has an invalid context here; its serialised form travels all the same.
    EXPECT_TRUE(headerOf(nextSample()[1]).has_tracecontext());
}

TEST_F(WireTest, HeaderFrameFailureLetsThePeerSeeAnIncompleteMessageMergedIntoTheRetry) {
    // The first attempt's frame 1 leaves on the real dealer; its frame 2 fails
    // for real on a dealer whose context is gone; the retry starts again at
    // frame 1 on the real dealer, which still has the first frame pending.
    lumo::test::TerminatedDealer broken;
    class Saboteur : public log4cplus::Appender {
    public:
        Saboteur(RefPosPublisher& publisher, zmq::socket_t& failing) : publisher(publisher), failing(failing) {}
        ~Saboteur() override { destructorImpl(); }
        void close() override {}

    protected:
        void append(const log4cplus::spi::InternalLoggingEvent& event) override {
            const std::string& message = event.getMessage();
            if (!done && message.rfind("Publisher's dealer socket sending krinHeaderFrameMsg:", 0) == 0) {
                publisher.exchangeDealer(failing);
                done = exchanged = true;
            } else if (exchanged && message.rfind("Publisher's dealer socket sending topicIdFrame:", 0) == 0) {
                publisher.exchangeDealer(failing);
                exchanged = false;
            }
        }

    private:
        RefPosPublisher& publisher;
        zmq::socket_t& failing;
        bool done = false;
        bool exchanged = false;
    };
    auto logger = log4cplus::Logger::getInstance("vexa.dabo.krin.publisher");
    const auto previousLevel = logger.getLogLevel();
    logger.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
    log4cplus::SharedAppenderPtr saboteur(new Saboteur(*publisher, broken.get()));
    logger.addAppender(saboteur);
    publisher->publish(*refPos(4, 4), 1000ms);
    logger.removeAppender(saboteur);
    logger.setLogLevel(previousLevel);

    const Frames frames = nextSample();
    ASSERT_EQ(frames.size(), 4u);
    EXPECT_EQ(frames[0], publisher->topicFrame());
    EXPECT_EQ(frames[1], publisher->topicFrame());
    EXPECT_EQ(headerOf(frames[2]).samplesequence(), 0u);
    EXPECT_EQ(payloadOf(frames).refposx(), 4u);

    // Afterwards the wire is back to whole messages.
    publisher->publish(*refPos(5, 5), 1000ms);
    const Frames next = nextSample();
    ASSERT_EQ(next.size(), 3u);
    EXPECT_EQ(headerOf(next[1]).samplesequence(), 1u);
}

}  // namespace

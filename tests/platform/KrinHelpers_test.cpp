// The runtime's free functions: URI checks, topic frames, socket identities,
// frame reading and boolean properties.

#include "dabo/krin/detail/KrinHelpers.h"

#include <gtest/gtest.h>

#include <zmq.hpp>

#include "../support/CapturingAppender.h"
#include "dabo/DaboException.h"

namespace {

using namespace orlo::dabo::krin::detail;

std::string refusal(const std::string& uri, bool bindSide, bool requireTopic) {
    try {
        checkKrinUri(uri, bindSide, requireTopic);
    } catch (const orlo::dabo::DaboException& e) {
        return e.what();
    }
    return "accepted";
}

std::string boolPropertyError(const std::string& value) {
    try {
        getDaboBoolProperty({{"krin.ps.disableTypeHashCheck", value}}, "krin.ps.disableTypeHashCheck", false);
    } catch (const orlo::dabo::DaboException& e) {
        return e.what();
    }
    return "no exception";
}

TEST(KrinHelpersTest, UsableUrisAreAccepted) {
    EXPECT_EQ(refusal("krin.ps://127.0.0.1:5555/LumoMode", true, true), "accepted");
    EXPECT_EQ(refusal("krin.ps://127.0.0.1:5555/LumoMode", false, true), "accepted");
    EXPECT_EQ(refusal("krin.ps://localhost:1/a/b", false, true), "accepted");
    EXPECT_EQ(refusal("krin.ps://h:65535/t", false, true), "accepted");
}

TEST(KrinHelpersTest, TextThatIsNoUriIsRefused) {
    EXPECT_EQ(refusal("not a uri", true, true), "Invalid Krin URI 'not a uri': not a valid URI");
}

TEST(KrinHelpersTest, ForeignSchemeIsRefused) {
    EXPECT_EQ(refusal("tcp://h:1/t", true, true), "Invalid Krin URI 'tcp://h:1/t': scheme is not krin.ps");
}

TEST(KrinHelpersTest, MissingHostIsRefused) {
    EXPECT_EQ(refusal("krin.ps://:5555/t", true, true), "Invalid Krin URI 'krin.ps://:5555/t': missing host");
    EXPECT_EQ(refusal("krin.ps:///t", true, true), "Invalid Krin URI 'krin.ps:///t': missing host");
}

TEST(KrinHelpersTest, MissingPortIsRefused) {
    EXPECT_EQ(refusal("krin.ps://h/t", true, true), "Invalid Krin URI 'krin.ps://h/t': missing port");
    EXPECT_EQ(refusal("krin.ps://h:/t", true, true), "Invalid Krin URI 'krin.ps://h:/t': missing port");
}

TEST(KrinHelpersTest, PortOutOfRangeIsRefused) {
    EXPECT_EQ(refusal("krin.ps://h:0/t", true, true), "Invalid Krin URI 'krin.ps://h:0/t': port 0 is out of range 1..65535");
    EXPECT_EQ(refusal("krin.ps://h:65536/t", true, true),
              "Invalid Krin URI 'krin.ps://h:65536/t': port 65536 is out of range 1..65535");
    EXPECT_EQ(refusal("krin.ps://h:99999999999/t", true, true),
              "Invalid Krin URI 'krin.ps://h:99999999999/t': port 99999999999 is out of range 1..65535");
}

TEST(KrinHelpersTest, EmptyTopicPathIsRefusedWhenATopicIsRequired) {
    EXPECT_EQ(refusal("krin.ps://h:1", true, true), "Invalid Krin URI 'krin.ps://h:1': empty topic path");
    EXPECT_EQ(refusal("krin.ps://h:1/", false, true), "Invalid Krin URI 'krin.ps://h:1/': empty topic path");
    EXPECT_EQ(refusal("krin.ps://h:1", true, false), "accepted");
    EXPECT_EQ(refusal("krin.ps://h:1/", false, false), "accepted");
}

TEST(KrinHelpersTest, AllInterfacesHostIsOnlyForTheBindingSide) {
    EXPECT_EQ(refusal("krin.ps://*:5555/t", true, true), "accepted");
    EXPECT_EQ(refusal("krin.ps://*:5555/t", false, true),
              "Invalid Krin URI 'krin.ps://*:5555/t': host * can only be bound, not connected to");
}

TEST(KrinHelpersTest, RefusalIsLoggedAtErrorWithTheSameText) {
    lumo::test::CaptureLog log("vexa.dabo.krin.runtime");
    EXPECT_THROW(checkKrinUri("krin.ps://h/t", true, true), orlo::dabo::DaboException);
    EXPECT_EQ(log.errors(), std::vector<std::string>{"Invalid Krin URI 'krin.ps://h/t': missing port"});
}

TEST(KrinHelpersTest, ParsedUriGivesHostPortTopicAndEndpoint) {
    const KrinTopicAddress address = parseKrinUri("krin.ps://*:5555/Lumo/Mode", true, true);
    EXPECT_EQ(address.host, "*");
    EXPECT_EQ(address.port, 5555u);
    EXPECT_EQ(address.topic, "/Lumo/Mode");
    EXPECT_EQ(address.tcpEndpoint(), "tcp://*:5555");
}

TEST(KrinHelpersTest, TopicFrameIsTheHashInFourBytesMostSignificantFirst) {
    EXPECT_EQ(createFrame0(0x01020304u), std::string("\x01\x02\x03\x04", 4));
    EXPECT_EQ(createFrame0(0u), std::string(4, '\0'));
    EXPECT_EQ(createFrame0(0xffffffffu), std::string(4, '\xff'));
    EXPECT_EQ(createFrame0(0xbf9cf968u), createFrame0(0xbf9cf968u));
    EXPECT_NE(createFrame0(1u), createFrame0(256u));
}

TEST(KrinHelpersTest, SocketIdentityIsTheRoutingId) {
    zmq::context_t context;
    zmq::socket_t dealer(context, zmq::socket_type::dealer);
    dealer.set(zmq::sockopt::routing_id, "dealer-7");
    EXPECT_EQ(getSocketIdentity(dealer), "dealer-7");
}

TEST(KrinHelpersTest, SubscriberIdIsPrintable) {
    EXPECT_EQ(getSubscriberId(std::string("\x01\xab\x00\xff", 4)), "sub-01ab00ff");
}

class FrameReadingTest : public ::testing::Test {
protected:
    FrameReadingTest() {
        reader.bind("inproc://frames");
        writer.connect("inproc://frames");
    }
    void send(const std::vector<std::string>& frames) {
        for (std::size_t i = 0; i < frames.size(); ++i) {
            writer.send(zmq::buffer(frames[i]), i + 1 < frames.size() ? zmq::send_flags::sndmore : zmq::send_flags::none);
        }
        zmq::pollitem_t item{reader.handle(), 0, ZMQ_POLLIN, 0};
        zmq::poll(&item, 1, std::chrono::milliseconds(-1));
    }

    zmq::context_t context;
    zmq::socket_t reader{context, zmq::socket_type::pair};
    zmq::socket_t writer{context, zmq::socket_type::pair};
};

TEST_F(FrameReadingTest, FramesAreReadInOrderAndTheLastOneIsKnown) {
    send({"one", "two", "three"});
    EXPECT_EQ(readFrame(reader), "one");
    EXPECT_NO_THROW(requireMoreFrames(reader));
    EXPECT_EQ(readFrame(reader), "two");
    EXPECT_NO_THROW(requireMoreFrames(reader));
    EXPECT_EQ(readFrame(reader), "three");
    try {
        requireMoreFrames(reader);
        FAIL() << "no exception";
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "Message has no more frames");
    }
}

TEST_F(FrameReadingTest, ReadingWithoutAFrameThrows) {
    try {
        readFrame(reader);
        FAIL() << "no exception";
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "No frame to read");
    }
}

TEST_F(FrameReadingTest, DiscardDropsTheRestOfTheMessageOnly) {
    send({"a1", "a2", "a3"});
    send({"b1", "b2"});
    EXPECT_EQ(readFrame(reader), "a1");
    discardFrames(reader);
    EXPECT_EQ(readFrame(reader), "b1");
}

TEST_F(FrameReadingTest, DiscardAfterTheLastFrameIsHarmless) {
    send({"a1", "a2"});
    send({"b1"});
    EXPECT_EQ(readFrame(reader), "a1");
    EXPECT_EQ(readFrame(reader), "a2");
    discardFrames(reader);
    EXPECT_EQ(readFrame(reader), "b1");
    discardFrames(reader);
    discardFrames(reader);
}

TEST(KrinHelpersTest, BoolPropertyIsReadOrDefaulted) {
    EXPECT_TRUE(getDaboBoolProperty({}, "k", true));
    EXPECT_FALSE(getDaboBoolProperty({}, "k", false));
    EXPECT_TRUE(getDaboBoolProperty({{"k", "true"}}, "k", false));
    EXPECT_TRUE(getDaboBoolProperty({{"k", "TRUE"}}, "k", false));
    EXPECT_FALSE(getDaboBoolProperty({{"k", "false"}}, "k", true));
    EXPECT_FALSE(getDaboBoolProperty({{"k", "False"}}, "k", true));
}

TEST(KrinHelpersTest, BoolPropertyThatIsNoBooleanNamesKeyAndValue) {
    EXPECT_EQ(boolPropertyError("yes"),
              "Property krin.ps.disableTypeHashCheck has value 'yes', which is not a boolean (true or false)");
    EXPECT_EQ(boolPropertyError("1"),
              "Property krin.ps.disableTypeHashCheck has value '1', which is not a boolean (true or false)");
    EXPECT_EQ(boolPropertyError(""),
              "Property krin.ps.disableTypeHashCheck has value '', which is not a boolean (true or false)");
}

}  // namespace

// Samples between two processes over TCP loopback: this process subscribes
// through its runtime, a peer process (krin_test_peer) publishes through its own.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <map>

#include "KrinTestSupport.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"

namespace {

using namespace orlo::dabo::krin::detail;
using lumo::test::frameOf;
using lumo::test::Message;
using lumo::test::RecordingHandler;
using lumo::test::freePort;
using lumo::test::sampleFrames;

constexpr unsigned int samplesPerPublisher = 200;

std::string endpointOf(unsigned int port) {
    return "tcp://127.0.0.1:" + std::to_string(port);
}

std::string uriOf(unsigned int port, const std::string& topic) {
    return "krin.ps://127.0.0.1:" + std::to_string(port) + topic;
}

/// The publishing process, steered through its standard input and output.
class PeerProcess {
public:
    PeerProcess(unsigned int count, std::size_t subscriptions, const std::vector<std::string>& publishers) {
        int toPeer[2];
        int fromPeer[2];
        if (::pipe2(toPeer, O_CLOEXEC) != 0 || ::pipe2(fromPeer, O_CLOEXEC) != 0) {
            throw std::runtime_error("pipe");
        }
        std::vector<std::string> args{KRIN_TEST_PEER, std::to_string(count), std::to_string(subscriptions)};
        args.insert(args.end(), publishers.begin(), publishers.end());
        pid = ::fork();
        if (pid == 0) {
            ::dup2(toPeer[0], STDIN_FILENO);
            ::dup2(fromPeer[1], STDOUT_FILENO);
            std::vector<char*> argv;
            for (auto& arg : args) {
                argv.push_back(arg.data());
            }
            argv.push_back(nullptr);
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        ::close(toPeer[0]);
        ::close(fromPeer[1]);
        input = toPeer[1];
        output = ::fdopen(fromPeer[0], "r");
    }

    ~PeerProcess() {
        if (pid > 0) {
            finish();
        }
    }

    /// The next line the peer prints, without its newline; empty at its end.
    std::string nextLine() {
        char line[256];
        if (std::fgets(line, sizeof line, output) == nullptr) {
            return {};
        }
        std::string text(line);
        if (!text.empty() && text.back() == '\n') {
            text.pop_back();
        }
        return text;
    }

    /// Lets the peer end and returns its exit status.
    int finish() {
        ::close(input);
        std::fclose(output);
        int status = 0;
        ::waitpid(pid, &status, 0);
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t pid = -1;
    int input = -1;
    FILE* output = nullptr;
};

class KrinTransportTest : public ::testing::Test {
protected:
    std::shared_ptr<RecordingHandler> subscribe(const std::string& uri, const std::string& topic) {
        auto subscriber = std::make_shared<RecordingHandler>();
        std::weak_ptr<EventsHandler> handler = subscriber;
        dabo->registerSubscriber(uri, frameOf(topic), handler);
        EXPECT_TRUE(subscriber->waitFor(REGISTERED));
        subscribers.push_back(subscriber);
        return subscriber;
    }

    static std::vector<Message> samplesOf(const std::string& topic, const std::string& sender) {
        std::vector<Message> expected;
        for (unsigned int i = 0; i < samplesPerPublisher; ++i) {
            expected.push_back(sampleFrames(frameOf(topic), sender, i));
        }
        return expected;
    }

    /// The messages of one sender, in the order received.
    static std::vector<Message> from(const std::vector<Message>& received, const std::string& sender) {
        std::vector<Message> picked;
        for (const Message& message : received) {
            if (message.size() == 3 && message[1].rfind(sender + "#", 0) == 0) {
                picked.push_back(message);
            }
        }
        return picked;
    }

    std::shared_ptr<KrinDabo> dabo = KrinDabo::create({});
    std::vector<std::shared_ptr<RecordingHandler>> subscribers;
};

TEST_F(KrinTransportTest, MessagesArriveUnchangedAndInOrderOnEveryMatchingSubscriberAndNoOther) {
    const unsigned int port = freePort();
    auto firstOfA = subscribe(uriOf(port, "/a"), "/a");
    auto secondOfA = subscribe(uriOf(port, "/a"), "/a");
    auto ofB = subscribe(uriOf(port, "/b"), "/b");
    auto ofC = subscribe(uriOf(port, "/c"), "/c");

    PeerProcess peer(samplesPerPublisher, 4, {endpointOf(port) + "|/a", endpointOf(port) + "|/b"});
    ASSERT_EQ(peer.nextLine(), "READY");
    ASSERT_EQ(peer.nextLine(), "SENT");

    ASSERT_TRUE(firstOfA->waitForMessages(samplesPerPublisher));
    ASSERT_TRUE(secondOfA->waitForMessages(samplesPerPublisher));
    ASSERT_TRUE(ofB->waitForMessages(samplesPerPublisher));
    EXPECT_EQ(firstOfA->messages(), samplesOf("/a", "pub0"));
    EXPECT_EQ(secondOfA->messages(), samplesOf("/a", "pub0"));
    EXPECT_EQ(ofB->messages(), samplesOf("/b", "pub1"));
    EXPECT_TRUE(ofC->messages().empty());
    EXPECT_EQ(ofC->count(POLLER_READABLE), 0u);
    EXPECT_EQ(peer.finish(), 0);
}

TEST_F(KrinTransportTest, SeveralPublishersOnOneEndpointShareItAndKeepTheirOwnOrder) {
    const unsigned int port = freePort();
    auto ofX = subscribe(uriOf(port, "/x"), "/x");
    auto ofY = subscribe(uriOf(port, "/y"), "/y");

    PeerProcess peer(samplesPerPublisher, 2,
                     {endpointOf(port) + "|/x", endpointOf(port) + "|/x", endpointOf(port) + "|/y"});
    ASSERT_EQ(peer.nextLine(), "READY");
    ASSERT_EQ(peer.nextLine(), "SENT");

    ASSERT_TRUE(ofX->waitForMessages(2 * samplesPerPublisher));
    ASSERT_TRUE(ofY->waitForMessages(samplesPerPublisher));
    const auto received = ofX->messages();
    EXPECT_EQ(received.size(), 2 * samplesPerPublisher);
    EXPECT_EQ(from(received, "pub0"), samplesOf("/x", "pub0"));
    EXPECT_EQ(from(received, "pub1"), samplesOf("/x", "pub1"));
    EXPECT_EQ(ofY->messages(), samplesOf("/y", "pub2"));
    EXPECT_EQ(peer.finish(), 0);
}

TEST_F(KrinTransportTest, TwoEndpointsKeepTheSameTopicApart) {
    const unsigned int firstPort = freePort();
    const unsigned int secondPort = freePort();
    auto atFirst = subscribe(uriOf(firstPort, "/t"), "/t");
    auto atSecond = subscribe(uriOf(secondPort, "/t"), "/t");

    PeerProcess peer(samplesPerPublisher, 2, {endpointOf(firstPort) + "|/t", endpointOf(secondPort) + "|/t"});
    ASSERT_EQ(peer.nextLine(), "READY");
    ASSERT_EQ(peer.nextLine(), "SENT");

    ASSERT_TRUE(atFirst->waitForMessages(samplesPerPublisher));
    ASSERT_TRUE(atSecond->waitForMessages(samplesPerPublisher));
    EXPECT_EQ(atFirst->messages(), samplesOf("/t", "pub0"));
    EXPECT_EQ(atSecond->messages(), samplesOf("/t", "pub1"));
    EXPECT_EQ(peer.finish(), 0);
}

TEST_F(KrinTransportTest, SubscribersStartingBeforeAndAfterThePublisherBothReceiveEverything) {
    const unsigned int port = freePort();
    auto early = subscribe(uriOf(port, "/late-join"), "/late-join");

    PeerProcess peer(samplesPerPublisher, 2, {endpointOf(port) + "|/late-join"});
    ASSERT_EQ(peer.nextLine(), "READY");
    // The publisher is bound and waits for a second subscriber before sending.
    auto late = subscribe(uriOf(port, "/late-join"), "/late-join");
    ASSERT_EQ(peer.nextLine(), "SENT");

    ASSERT_TRUE(early->waitForMessages(samplesPerPublisher));
    ASSERT_TRUE(late->waitForMessages(samplesPerPublisher));
    EXPECT_EQ(early->messages(), samplesOf("/late-join", "pub0"));
    EXPECT_EQ(late->messages(), samplesOf("/late-join", "pub0"));
    EXPECT_EQ(peer.finish(), 0);
}

}  // namespace

// A publisher that goes away while its subscriber is still behind: every
// message that reached the subscriber's queue before the connection ended is
// delivered, and reading them costs the process nothing.

#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <sstream>

#include "KrinTestSupport.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"

namespace {

using namespace orlo::dabo::krin::detail;
using lumo::test::Message;
using lumo::test::RecordingHandler;

/// Whether this machine still holds a TCP connection, in any state but
/// TIME_WAIT, whose remote port is `port`: a subscriber's side of a
/// connection stays until its I/O thread has read the end and closed it.
bool connectionToPortOpen(unsigned int port) {
    for (const char* table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        std::ifstream lines(table);
        std::string line;
        std::getline(lines, line);  // the heading
        while (std::getline(lines, line)) {
            std::istringstream fields(line);
            std::string slot, local, remote, state;
            fields >> slot >> local >> remote >> state;
            const auto colon = remote.rfind(':');
            if (colon == std::string::npos) {
                continue;
            }
            const bool timeWait = state == "06";
            const bool listening = state == "0A";
            if (!timeWait && !listening && std::stoul(remote.substr(colon + 1), nullptr, 16) == port) {
                return true;
            }
        }
    }
    return false;
}

TEST(DroppedConnectionTest, MessagesQueuedBeforeThePublisherWentAwayAreAllDeliveredAndReadSafely) {
    // No bound on the queue, so the subscriber's I/O thread reads the whole
    // stream, and then the connection's end, while the subscriber is held up.
    auto dabo = KrinDabo::create({{"krin.runtime.highWaterMark", "0"}});
    const unsigned int port = lumo::test::freePort();
    const std::string frame = createFrame0(static_cast<unsigned int>(orlo::dabo::util::topicNameHash("/behind")));

    zmq::context_t peerContext(1);
    zmq::socket_t peer(peerContext, zmq::socket_type::xpub);
    peer.set(zmq::sockopt::sndhwm, 0);
    peer.bind("tcp://127.0.0.1:" + std::to_string(port));

    std::promise<void> peerGone;
    std::promise<void> held;
    auto released = peerGone.get_future().share();
    // Lets the runtime's thread go on whatever the outcome, before the runtime ends.
    struct Release {
        std::promise<void>& gone;
        bool done = false;
        void now() {
            if (!done) {
                done = true;
                gone.set_value();
            }
        }
        ~Release() { now(); }
    } release{peerGone};
    auto subscriber = std::make_shared<RecordingHandler>();
    bool heldOnce = false;
    subscriber->onEvent = [&heldOnce, &held, released](KrinDaboEvent event) {
        if (event == POLLER_READABLE && !heldOnce) {
            heldOnce = true;
            held.set_value();
            released.wait();
        }
    };
    std::weak_ptr<EventsHandler> handler = subscriber;
    dabo->registerSubscriber("krin.ps://127.0.0.1:" + std::to_string(port) + "/behind", frame, handler);
    zmq::message_t subscription;
    ASSERT_TRUE(peer.recv(subscription));

    // More than the runtime serves of one socket in a turn, so that the end
    // of the connection is seen while most of them still wait.
    constexpr unsigned int count = 3000;
    std::vector<Message> sent;
    for (unsigned int i = 0; i < count; ++i) {
        sent.push_back(lumo::test::sampleFrames(frame, "gone", i, 256));
        lumo::test::sendMessage(peer, sent.back());
    }
    ASSERT_EQ(held.get_future().wait_for(lumo::test::patience), std::future_status::ready);
    // Closing the context waits until every message has left; then the
    // subscriber's side reads them all and the connection's end.
    peer.close();
    peerContext.close();
    const auto deadline = std::chrono::steady_clock::now() + lumo::test::patience;
    while (connectionToPortOpen(port) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    ASSERT_FALSE(connectionToPortOpen(port)) << "the subscriber's side of the connection never ended";
    release.now();

    ASSERT_TRUE(subscriber->waitForMessages(count));
    EXPECT_EQ(subscriber->messages(), sent);
}

}  // namespace

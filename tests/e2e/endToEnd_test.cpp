// From one process to another: a publishing host (the e2ePublisher program,
// started with fork and exec) publishes samples of all eleven topics that
// cover every field; this process, another host of the plug-in, receives them
// through the exported subscriber factories and compares field by field.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "E2eSamples.h"
#include "FreePort.h"
#include "dabo/ps/DataEventFilter.h"
#include "dabo/ps/MrvSubscriber.h"
#include "dabo/ps/Subscriber.h"
#include "dabo/ps/qos/QoS.h"
#include "lumotypes/host/Runtime.h"

#ifndef LUMOTYPES_KRIN_PLUGIN_PATH
#error "LUMOTYPES_KRIN_PLUGIN_PATH must name the plug-in to load"
#endif
#ifndef LUMO_E2E_PUBLISHER_PATH
#error "LUMO_E2E_PUBLISHER_PATH must name the publishing helper"
#endif

namespace {

using namespace std::chrono_literals;
const lumotypes::host::Plugin& plugin() {
    static const lumotypes::host::Plugin loaded(LUMOTYPES_KRIN_PLUGIN_PATH);
    return loaded;
}

std::string topicUri(const std::string& port, const std::string& topic) {
    return "krin.ps://127.0.0.1:" + port + "/e2e/" + topic;
}

/// The publishing process, with a pipe to its stdin and one from its stdout.
class PublisherProcess {
public:
    PublisherProcess(const std::string& port, int subscribersPerTopic) {
        int toChild[2];
        int fromChild[2];
        if (::pipe(toChild) != 0 || ::pipe(fromChild) != 0) {
            return;
        }
        pid = ::fork();
        if (pid == 0) {
            ::dup2(toChild[0], STDIN_FILENO);
            ::dup2(fromChild[1], STDOUT_FILENO);
            ::close(toChild[1]);
            ::close(fromChild[0]);
            const std::string count = std::to_string(subscribersPerTopic);
            ::execl(LUMO_E2E_PUBLISHER_PATH, LUMO_E2E_PUBLISHER_PATH, LUMOTYPES_KRIN_PLUGIN_PATH, port.c_str(),
                    count.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        ::close(toChild[0]);
        ::close(fromChild[1]);
        input = toChild[1];
        output = fromChild[0];
    }

    ~PublisherProcess() {
        if (input >= 0) {
            ::close(input);
        }
        if (output >= 0) {
            ::close(output);
        }
        if (pid > 0 && !reaped) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
    }

    /// Waits up to `limit` for a line on the process's stdout.
    std::string readLine(std::chrono::milliseconds limit) {
        std::string line;
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (std::chrono::steady_clock::now() < deadline) {
            pollfd readable{output, POLLIN, 0};
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (::poll(&readable, 1, static_cast<int>(std::max<long>(left.count(), 0))) <= 0) {
                break;
            }
            char c;
            if (::read(output, &c, 1) != 1) {
                break;
            }
            if (c == '\n') {
                return line;
            }
            line.push_back(c);
        }
        return line;
    }

    /// Tells the process to close its publishers and waits for its exit status.
    int quit() {
        const char command[] = "quit\n";
        if (::write(input, command, sizeof(command) - 1) < 0) {
            return -1;
        }
        int status = 0;
        ::waitpid(pid, &status, 0);
        reaped = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t pid = -1;
    int input = -1;
    int output = -1;
    bool reaped = false;
};

/// The expected samples of a topic, made here exactly as the publisher made them.
template <typename T>
std::vector<std::shared_ptr<T>> expectedSamples(const std::function<std::shared_ptr<T>()>& create) {
    std::vector<std::shared_ptr<T>> samples;
    for (int index = 0; index < lumo::e2e::samplesPerTopic; ++index) {
        auto sample = create();
        lumo::e2e::TopicSamples<T>::fill(*sample, index, lumo::e2e::centErrorMaker(plugin()));
        samples.push_back(sample);
    }
    return samples;
}

template <typename T>
std::unique_ptr<orlo::dabo::ps::Subscriber<T>> subscriberOf(const std::string& port,
                                                            const lumotypes::host::Runtime& dabo) {
    const std::string topic = lumo::e2e::TopicSamples<T>::name;
    return plugin().subscriber<T>(topicUri(port, topic), {}, dabo);
}

template <typename T>
std::unique_ptr<orlo::dabo::ps::MrvSubscriber<T>> mrvSubscriberOf(const std::string& port,
                                                                  const lumotypes::host::Runtime& dabo) {
    const std::string topic = lumo::e2e::TopicSamples<T>::name;
    return plugin().mrvSubscriber<T>(topicUri(port, topic), {}, dabo);
}

/// Takes the topic's samples in arrival order and compares them with the expected ones.
template <typename T>
void expectQueuedArrival(orlo::dabo::ps::Subscriber<T>& subscriber) {
    SCOPED_TRACE(lumo::e2e::TopicSamples<T>::name);
    const auto expected = expectedSamples<T>([&] { return subscriber.createDataEntity(); });
    std::vector<std::shared_ptr<T>> received;
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (received.size() < expected.size() && std::chrono::steady_clock::now() < deadline) {
        std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<T>>> events;
        subscriber.readDataEvents(orlo::dabo::ps::DataEventFilter<T>(), events, expected.size() - received.size(),
                                  1000ms);
        for (const auto& event : events) {
            received.push_back(event->getData());
        }
    }
    ASSERT_EQ(received.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(lumo::e2e::TopicSamples<T>::differences(*expected[i], *received[i]), "") << "sample " << i;
    }
    EXPECT_TRUE(subscriber.read(0).empty()) << "more arrived than was sent";
}

/// Reads the store until it holds all samples; the store promises no order,
/// so each expected sample must equal one stored sample of its own.
template <typename T>
void expectStored(orlo::dabo::ps::MrvSubscriber<T>& subscriber, const std::shared_ptr<T>& blank) {
    SCOPED_TRACE(lumo::e2e::TopicSamples<T>::name);
    (void)blank;
    std::vector<std::shared_ptr<T>> stored;
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (stored.size() < static_cast<std::size_t>(lumo::e2e::samplesPerTopic) &&
           std::chrono::steady_clock::now() < deadline) {
        stored = subscriber.readMostRecent(10ms);
    }
    ASSERT_EQ(stored.size(), static_cast<std::size_t>(lumo::e2e::samplesPerTopic));
    const auto maker = [] { return std::shared_ptr<T>(plugin().createDataEntity<T>()); };
    const auto expected = expectedSamples<T>(maker);
    std::vector<bool> matched(stored.size(), false);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        bool found = false;
        for (std::size_t j = 0; j < stored.size() && !found; ++j) {
            if (!matched[j] && lumo::e2e::TopicSamples<T>::differences(*expected[i], *stored[j]).empty()) {
                matched[j] = found = true;
            }
        }
        EXPECT_TRUE(found) << "sample " << i << " is not in the store";
    }
}

template <typename T>
void expectSamplesTellApart() {
    SCOPED_TRACE(lumo::e2e::TopicSamples<T>::name);
    const auto samples = expectedSamples<T>([] { return std::shared_ptr<T>(plugin().createDataEntity<T>()); });
    EXPECT_EQ(lumo::e2e::TopicSamples<T>::differences(*samples[0], *samples[0]), "");
    EXPECT_NE(lumo::e2e::TopicSamples<T>::differences(*samples[0], *samples[1]), "");
    EXPECT_NE(lumo::e2e::TopicSamples<T>::differences(*samples[1], *samples[2]), "");
}

TEST(EndToEndTest, ComparisonTellsTheSamplesOfEveryTopicApart) {
    ASSERT_NO_THROW(plugin());
#define LUMO_E2E_APART(Name) expectSamplesTellApart<lumotypes::Name>();
    LUMOTYPES_FOR_EACH_TOPIC(LUMO_E2E_APART)
#undef LUMO_E2E_APART
}

TEST(EndToEndTest, QueuedSubscribersReceiveEveryTopicFromAnotherProcessFieldByFieldInOrder) {
    ASSERT_NO_THROW(plugin());
    const std::string port = std::to_string(lumo::test::freePort());
    auto dabo = lumotypes::host::createRuntime({});
#define LUMO_E2E_SUBSCRIBE(Name) auto subscriber##Name = subscriberOf<lumotypes::Name>(port, dabo);
    LUMOTYPES_FOR_EACH_TOPIC(LUMO_E2E_SUBSCRIBE)
#undef LUMO_E2E_SUBSCRIBE

    PublisherProcess publisher(port, 1);
    ASSERT_EQ(publisher.readLine(60s), "published");
#define LUMO_E2E_EXPECT(Name)                          \
    ASSERT_NE(subscriber##Name, nullptr);              \
    expectQueuedArrival<lumotypes::Name>(*subscriber##Name);
    LUMOTYPES_FOR_EACH_TOPIC(LUMO_E2E_EXPECT)
#undef LUMO_E2E_EXPECT
    EXPECT_EQ(publisher.quit(), 0);
}

TEST(EndToEndTest, MostRecentValueSubscribersStoreEveryTopicFromAnotherProcessFieldByField) {
    ASSERT_NO_THROW(plugin());
    const std::string port = std::to_string(lumo::test::freePort());
    auto dabo = lumotypes::host::createRuntime({});
#define LUMO_E2E_SUBSCRIBE(Name) auto subscriber##Name = mrvSubscriberOf<lumotypes::Name>(port, dabo);
    LUMOTYPES_FOR_EACH_TOPIC(LUMO_E2E_SUBSCRIBE)
#undef LUMO_E2E_SUBSCRIBE

    PublisherProcess publisher(port, 1);
    ASSERT_EQ(publisher.readLine(60s), "published");
#define LUMO_E2E_EXPECT(Name)                                   \
    ASSERT_NE(subscriber##Name, nullptr);                       \
    expectStored<lumotypes::Name>(*subscriber##Name, nullptr);  \
    subscriber##Name->close();
    LUMOTYPES_FOR_EACH_TOPIC(LUMO_E2E_EXPECT)
#undef LUMO_E2E_EXPECT
    EXPECT_EQ(publisher.quit(), 0);
}

}  // namespace

// A publishing host and a subscribing host, each a network namespace of its
// own, joined by a veth pair: the samples cross a real link between two
// network stacks, and the subscriber finds the publisher by its host name
// through its own hosts file. krin-pub publishes through the plug-in's
// publisher, krin-tap subscribes and prints each sample with its sequence.

#include <gtest/gtest.h>
#include <unistd.h>
#include <zmq.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "ToolProcess.h"

namespace {

using lumo::test::linesOf;
using lumo::test::ToolProcess;
using namespace std::chrono_literals;

// A range set aside for tests between devices of one's own: nothing outside
// the two namespaces ever sees these addresses.
constexpr const char* publisherAddress = "198.18.7.1";
constexpr const char* subscriberAddress = "198.18.7.2";
constexpr const char* publisherHostName = "lumo-publishing-host";
constexpr int samplesSent = 40;
const std::string lumoModeJson = R"({"controlMode":"TEL_DRIVEN_WITH_HOKU_TT","activeCameraFs":"IMG_PDS"})";

std::string ipProgram() {
    for (const char* candidate : {"/usr/sbin/ip", "/sbin/ip", "/usr/bin/ip", "/bin/ip"}) {
        if (::access(candidate, X_OK) == 0) {
            return candidate;
        }
    }
    return {};
}

bool run(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

/// Two namespaces, a veth pair between them, an address on each end, and a
/// hosts file for the subscriber's namespace that names the publisher. All of
/// it goes away with this object, also when a test fails half-way.
class TwoHosts {
public:
    TwoHosts()
        : ip(ipProgram()),
          suffix(std::to_string(::getpid())),
          publisherNamespace("lumo-pub-" + suffix),
          subscriberNamespace("lumo-sub-" + suffix),
          hostsDirectory("/etc/netns/" + subscriberNamespace) {}

    TwoHosts(const TwoHosts&) = delete;
    TwoHosts& operator=(const TwoHosts&) = delete;

    ~TwoHosts() {
        // Deleting a namespace deletes its end of the veth pair, and so the pair.
        for (const auto& name : created) {
            run(ip + " netns delete " + name);
        }
        std::error_code ignored;
        std::filesystem::remove_all(hostsDirectory, ignored);
    }

    /// Empty when the hosts are up; otherwise why this machine cannot make them.
    std::string setUp() {
        if (::geteuid() != 0) {
            return "network namespaces need root; this test runs as uid " + std::to_string(::geteuid());
        }
        if (ip.empty()) {
            return "iproute2's ip is not installed";
        }
        for (const auto& name : {publisherNamespace, subscriberNamespace}) {
            if (!run(ip + " netns add " + name)) {
                return "'ip netns add " + name + "' failed: this machine forbids network namespaces";
            }
            created.push_back(name);
        }
        const std::string publisherLink = "lp" + suffix;
        const std::string subscriberLink = "ls" + suffix;
        const std::string inPublisher = ip + " -n " + publisherNamespace;
        const std::string inSubscriber = ip + " -n " + subscriberNamespace;
        const std::vector<std::string> steps = {
            inPublisher + " link add " + publisherLink + " type veth peer name " + subscriberLink + " netns " +
                subscriberNamespace,
            inPublisher + " addr add " + publisherAddress + "/30 dev " + publisherLink,
            inSubscriber + " addr add " + subscriberAddress + "/30 dev " + subscriberLink,
            inPublisher + " link set lo up",
            inSubscriber + " link set lo up",
            inPublisher + " link set " + publisherLink + " up",
            inSubscriber + " link set " + subscriberLink + " up",
        };
        for (const auto& step : steps) {
            if (!run(step)) {
                return "'" + step + "' failed: this machine does not allow a veth pair between namespaces";
            }
        }
        // `ip netns exec` mounts this file over /etc/hosts for the subscriber's namespace only.
        std::filesystem::create_directories(hostsDirectory);
        std::ofstream hosts(hostsDirectory + "/hosts");
        hosts << "127.0.0.1 localhost\n" << publisherAddress << " " << publisherHostName << "\n";
        return hosts.good() ? std::string() : "cannot write " + hostsDirectory + "/hosts";
    }

    /// `program arguments...` run inside `namespaceName`.
    std::vector<std::string> inside(const std::string& namespaceName, const std::string& program,
                                    std::vector<std::string> arguments) const {
        std::vector<std::string> command = {"netns", "exec", namespaceName, program};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return command;
    }

    const std::string ip;
    const std::string suffix;
    const std::string publisherNamespace;
    const std::string subscriberNamespace;

private:
    const std::string hostsDirectory;
    std::vector<std::string> created;
};

std::vector<std::string> with(std::vector<std::string> first, const std::vector<std::string>& rest) {
    first.insert(first.end(), rest.begin(), rest.end());
    return first;
}

struct CurveKeys {
    CurveKeys() {
        EXPECT_EQ(zmq_curve_keypair(serverPublic, serverSecret), 0);
        EXPECT_EQ(zmq_curve_keypair(clientPublic, clientSecret), 0);
    }
    char serverPublic[41] = {};
    char serverSecret[41] = {};
    char clientPublic[41] = {};
    char clientSecret[41] = {};
};

class TwoHostsTest : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string reason = hosts.setUp();
        if (!reason.empty()) {
            GTEST_SKIP() << reason;
        }
    }

    /// The tap joins first, on the subscriber's host, through the publisher's
    /// host name; then the publisher sends `samplesSent` samples of LumoMode
    /// and ends. Every one of them must reach the tap, in order.
    void expectEverySampleArrives(const std::vector<std::string>& pubOptions,
                                  const std::vector<std::string>& tapOptions) {
        const std::string port = std::to_string(31000 + ::getpid() % 2000);
        const std::string bindUri = std::string("krin.ps://") + publisherAddress + ":" + port + "/two/hosts";
        const std::string connectUri = std::string("krin.ps://") + publisherHostName + ":" + port + "/two/hosts";
        ToolProcess tap(hosts.ip,
                        hosts.inside(hosts.subscriberNamespace, LUMO_TAP_PATH,
                                     with(tapOptions, {"--format", "text", "--count", std::to_string(samplesSent),
                                                       "--duration", "60", connectUri, "LumoMode"})));
        // The publisher waits after registering, long enough for the tap,
        // which keeps reconnecting until the endpoint exists, to have joined.
        ToolProcess pub(hosts.ip,
                        hosts.inside(hosts.publisherNamespace, LUMO_PUB_PATH,
                                     with(pubOptions, {"-p", "krin.ps.slowJoinerDelayMs=2000", "--rate", "50",
                                                       "--count", std::to_string(samplesSent), bindUri, "LumoMode",
                                                       lumoModeJson})));
        ASSERT_EQ(pub.wait(90s), 0) << pub.err();
        ASSERT_EQ(tap.wait(90s), 0) << "the tap did not get all " << samplesSent << " samples:\n"
                                    << tap.out() << tap.err();
        const auto lines = linesOf(tap.out());
        ASSERT_EQ(lines.size(), 3u * samplesSent) << tap.out();
        std::set<unsigned long> sequences;
        for (int sample = 0; sample < samplesSent; ++sample) {
            const std::string& heading = lines[sample * 3];
            const std::string prefix = "--- LumoMode sampleSequence: ";
            ASSERT_EQ(heading.rfind(prefix, 0), 0u) << heading;
            EXPECT_EQ(std::stoul(heading.substr(prefix.size())), static_cast<unsigned long>(sample)) << heading;
            sequences.insert(std::stoul(heading.substr(prefix.size())));
            EXPECT_EQ(lines[sample * 3 + 1], "controlMode: TEL_DRIVEN_WITH_HOKU_TT");
            EXPECT_EQ(lines[sample * 3 + 2], "activeCameraFs: IMG_PDS");
        }
        EXPECT_EQ(sequences.size(), static_cast<std::size_t>(samplesSent));
    }

    TwoHosts hosts;
};

TEST_F(TwoHostsTest, EverySampleCrossesTheLinkToASubscriberNamingThePublisherByHostName) {
    expectEverySampleArrives({}, {});
}

TEST_F(TwoHostsTest, EverySampleCrossesTheLinkAuthenticatedAndEncryptedWithCurve) {
    CurveKeys keys;
    expectEverySampleArrives({"--curve-server-secret", keys.serverSecret, "--curve-authorized", keys.clientPublic},
                             {"--curve-server-public", keys.serverPublic, "--curve-public", keys.clientPublic,
                              "--curve-secret", keys.clientSecret});
}

}  // namespace

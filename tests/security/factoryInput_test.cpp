// Malformed URIs and property values at every transport factory of every
// topic, and at the runtime's own properties: each is refused with an
// exception of the DaboException family and a text that names the problem,
// and the runtime that was given goes on serving.

#include <gtest/gtest.h>
#include <zmq.h>

#include <chrono>
#include <string>
#include <zmq.hpp>
#include <vector>

#include "FreePort.h"
#include "HostFactories.h"
#include "dabo/DaboException.h"

namespace {

using lumo::security::Runtime;
using orlo::dabo::DaboException;

struct BadUri {
    std::string uri;
    std::string reason;
};

/// Not of the transport's profile at all: refused before anything else looks.
const std::vector<std::string> foreignUris = {"", "krin.ps://host:5000/bad topic", "tcp://127.0.0.1:5000/topic",
                                              "krin.ps//host:5000/topic"};

/// Of the profile, but unusable: refused with the reason.
const std::vector<BadUri> badUris = {
    {"krin.ps:/topic", "missing host"},
    {"krin.ps://127.0.0.1/topic", "missing port"},
    {"krin.ps://127.0.0.1:0/topic", "port 0 is out of range 1..65535"},
    {"krin.ps://127.0.0.1:99999999999999999999/topic", "port 99999999999999999999 is out of range 1..65535"},
    {"krin.ps://127.0.0.1:5000/", "empty topic path"},
    {"krin.ps://127.0.0.1:5000", "empty topic path"},
};

/// Runs `make` and returns the text it was refused with, "" if it was not.
template <typename Make>
std::string refusal(Make make) {
    try {
        make();
    } catch (const DaboException& e) {
        return e.what();
    }
    return "";
}

template <typename T>
void expectEveryFactoryRefusesBadUris(const std::string& topic, const Runtime& dabo) {
    for (const std::string& uri : foreignUris) {
        const std::string expected = "Uri " + uri + " is not Krin PubSub profile";
        EXPECT_EQ(refusal([&] { lumo::security::publisherOf<T>(topic, uri, {}, dabo); }), expected) << topic;
        EXPECT_EQ(refusal([&] { lumo::security::subscriberOf<T>(topic, uri, {}, dabo); }), expected) << topic;
        EXPECT_EQ(refusal([&] { lumo::security::mrvSubscriberOf<T>(topic, uri, {}, dabo); }), expected) << topic;
    }
    for (const BadUri& bad : badUris) {
        const std::string expected = "Invalid Krin URI '" + bad.uri + "': " + bad.reason;
        EXPECT_EQ(refusal([&] { lumo::security::publisherOf<T>(topic, bad.uri, {}, dabo); }), expected) << topic;
        EXPECT_EQ(refusal([&] { lumo::security::subscriberOf<T>(topic, bad.uri, {}, dabo); }), expected) << topic;
        EXPECT_EQ(refusal([&] { lumo::security::mrvSubscriberOf<T>(topic, bad.uri, {}, dabo); }), expected) << topic;
    }
    // The subscribing side connects, so "all interfaces" names no peer.
    const std::string everywhere = "krin.ps://*:5000/topic";
    const std::string connectOnly = "Invalid Krin URI '" + everywhere + "': host * can only be bound, not connected to";
    EXPECT_EQ(refusal([&] { lumo::security::subscriberOf<T>(topic, everywhere, {}, dabo); }), connectOnly);
    EXPECT_EQ(refusal([&] { lumo::security::mrvSubscriberOf<T>(topic, everywhere, {}, dabo); }), connectOnly);
}

template <typename T>
void expectEveryFactoryRefusesBadProperties(const std::string& topic, const Runtime& dabo, int port) {
    // A port per topic: a refused publisher's endpoint is being released
    // while the next topic's publisher binds.
    const std::string uri = "krin.ps://127.0.0.1:" + std::to_string(port) + "/security/" + topic;
    EXPECT_EQ(refusal([&] {
                  lumo::security::publisherOf<T>(topic, uri, {{"krin.ps.slowJoinerDelayMs", "soon"}}, dabo);
              }),
              "Property krin.ps.slowJoinerDelayMs has value 'soon', which is not an integer")
        << topic;
    const orlo::dabo::Dabo::Properties notBoolean{{"krin.ps.disableTypeHashCheck", "perhaps"}};
    const std::string notBooleanText =
        "Property krin.ps.disableTypeHashCheck has value 'perhaps', which is not a boolean (true or false)";
    EXPECT_EQ(refusal([&] { lumo::security::subscriberOf<T>(topic, uri, notBoolean, dabo); }), notBooleanText)
        << topic;
    EXPECT_EQ(refusal([&] { lumo::security::mrvSubscriberOf<T>(topic, uri, notBoolean, dabo); }), notBooleanText)
        << topic;
}

TEST(FactoryInputTest, EveryFactoryOfEveryTopicRefusesMalformedUrisWithTheReasonAndTheRuntimeGoesOn) {
    const Runtime dabo = lumotypes::host::createRuntime({});
#define LUMO_BAD_URIS(Name) expectEveryFactoryRefusesBadUris<lumotypes::Name>(#Name, dabo);
    LUMOTYPES_FOR_EACH_TOPIC(LUMO_BAD_URIS)
#undef LUMO_BAD_URIS
    // Nothing was disturbed: the same runtime still makes a working pair.
    auto publisher = lumo::security::publisherOf<lumotypes::Dummy>("Dummy", "krin.ps://*:28772/security/after", {}, dabo);
    auto subscriber =
        lumo::security::subscriberOf<lumotypes::Dummy>("Dummy", "krin.ps://127.0.0.1:28772/security/after", {}, dabo);
    publisher->close();
    subscriber->close();
}

TEST(FactoryInputTest, EveryFactoryOfEveryTopicRefusesPropertyValuesOfTheWrongKind) {
    const Runtime dabo = lumotypes::host::createRuntime({});
    int port = 28800;
#define LUMO_BAD_PROPERTIES(Name) expectEveryFactoryRefusesBadProperties<lumotypes::Name>(#Name, dabo, port++);
    LUMOTYPES_FOR_EACH_TOPIC(LUMO_BAD_PROPERTIES)
#undef LUMO_BAD_PROPERTIES
}

TEST(FactoryInputTest, RuntimeRefusesPropertyValuesOfTheWrongKindWithoutRepeatingSecrets) {
    EXPECT_EQ(refusal([] { lumotypes::host::createRuntime({{"krin.runtime.highWaterMark", "lots"}}); }),
              "Property krin.runtime.highWaterMark has value 'lots', which is not an integer");
    EXPECT_EQ(refusal([] { lumotypes::host::createRuntime({{"krin.runtime.highWaterMark", "-1"}}); }),
              "Property krin.runtime.highWaterMark has value '-1', which is not a message count");
    EXPECT_EQ(refusal([] { lumotypes::host::createRuntime({{"krin.runtime.maxMessageSize", "0"}}); }),
              "Property krin.runtime.maxMessageSize has value '0', which is not a message size (bytes above 0, or -1 "
              "for no limit)");
    EXPECT_EQ(refusal([] { lumotypes::host::createRuntime({{"krin.runtime.maxMessageSize", "big"}}); }),
              "Property krin.runtime.maxMessageSize has value 'big', which is not an integer");
    EXPECT_EQ(refusal([] { lumotypes::host::createRuntime({{"krin.runtime.maxPeersPerEndpoint", "0"}}); }),
              "Property krin.runtime.maxPeersPerEndpoint has value '0', which is not a number of connections (above "
              "0, or -1 for no limit)");
    EXPECT_EQ(refusal([] { lumotypes::host::createRuntime({{"krin.runtime.maxPeersPerEndpoint", "many"}}); }),
              "Property krin.runtime.maxPeersPerEndpoint has value 'many', which is not an integer");
    const std::string secret = "not-a-key-but-secret";
    const std::string text = refusal([&] { lumotypes::host::createRuntime({{"krin.runtime.curve.serverSecretKey", secret}}); });
    EXPECT_EQ(text,
              "Property krin.runtime.curve.serverSecretKey is not a CURVE key: expected 40 characters of Z85 text");
    EXPECT_EQ(text.find(secret), std::string::npos);
    // Forty characters, but not Z85 ('"' is outside its alphabet).
    EXPECT_EQ(refusal([] {
                  lumotypes::host::createRuntime({{"krin.runtime.curve.serverPublicKey", std::string(40, '"')}});
              }),
              "Property krin.runtime.curve.serverPublicKey is not a CURVE key: expected 40 characters of Z85 text");
}

TEST(FactoryInputTest, RuntimeRefusesAClientKeyPairThatIsIncompleteOrHasNoServerKey) {
    char publicKey[41];
    char secretKey[41];
    ASSERT_EQ(zmq_curve_keypair(publicKey, secretKey), 0);
    EXPECT_EQ(refusal([&] { lumotypes::host::createRuntime({{"krin.runtime.curve.publicKey", publicKey}}); }),
              "Properties krin.runtime.curve.publicKey and krin.runtime.curve.secretKey must be given together");
    EXPECT_EQ(refusal([&] {
                  lumotypes::host::createRuntime(
                      {{"krin.runtime.curve.publicKey", publicKey}, {"krin.runtime.curve.secretKey", secretKey}});
              }),
              "Property krin.runtime.curve.publicKey needs krin.runtime.curve.serverPublicKey, the key of the "
              "publishers' runtime");
}

TEST(FactoryInputTest, RuntimeRefusesAnAuthorizedKeyListWithAnEntryThatIsNotAKeyNamingOnlyItsPlace) {
    char serverPublic[41];
    char serverSecret[41];
    char clientPublic[41];
    char clientSecret[41];
    ASSERT_EQ(zmq_curve_keypair(serverPublic, serverSecret), 0);
    ASSERT_EQ(zmq_curve_keypair(clientPublic, clientSecret), 0);
    const auto withList = [&](const std::string& list) {
        return refusal([&] {
            lumotypes::host::createRuntime(
                {{"krin.runtime.curve.serverSecretKey", serverSecret}, {"krin.runtime.curve.authorizedKeys", list}});
        });
    };
    const std::string notAKey = "not-a-key-but-secret";
    const std::string text = withList(notAKey);
    EXPECT_EQ(text,
              "Property krin.runtime.curve.authorizedKeys is not a list of CURVE keys: entry 1 is not 40 characters "
              "of Z85 text");
    EXPECT_EQ(text.find(notAKey), std::string::npos);
    // The second entry: a key with one character too many.
    EXPECT_EQ(withList(std::string(clientPublic) + ", " + clientSecret + "x"),
              "Property krin.runtime.curve.authorizedKeys is not a list of CURVE keys: entry 2 is not 40 characters "
              "of Z85 text");
    // Forty characters, but not Z85 ('"' is outside its alphabet).
    EXPECT_EQ(withList(std::string(clientPublic) + "\n" + std::string(40, '"')),
              "Property krin.runtime.curve.authorizedKeys is not a list of CURVE keys: entry 2 is not 40 characters "
              "of Z85 text");
    // Keys run together without a separator.
    EXPECT_EQ(withList(std::string(clientPublic) + serverPublic),
              "Property krin.runtime.curve.authorizedKeys is not a list of CURVE keys: entry 1 is not 40 characters "
              "of Z85 text");
}

TEST(FactoryInputTest, RuntimeRefusesAnAuthorizedKeyListWithoutKeys) {
    char serverPublic[41];
    char serverSecret[41];
    ASSERT_EQ(zmq_curve_keypair(serverPublic, serverSecret), 0);
    for (const std::string list : {"", " ", ", ,\n"}) {
        EXPECT_EQ(refusal([&] {
                      lumotypes::host::createRuntime({{"krin.runtime.curve.serverSecretKey", serverSecret},
                                        {"krin.runtime.curve.authorizedKeys", list}});
                  }),
                  "Property krin.runtime.curve.authorizedKeys lists no CURVE key")
            << "'" << list << "'";
    }
}

TEST(FactoryInputTest, RuntimeRefusesAnAuthorizedKeyListWithoutAServerSecretKey) {
    char clientPublic[41];
    char clientSecret[41];
    ASSERT_EQ(zmq_curve_keypair(clientPublic, clientSecret), 0);
    EXPECT_EQ(refusal([&] { lumotypes::host::createRuntime({{"krin.runtime.curve.authorizedKeys", clientPublic}}); }),
              "Property krin.runtime.curve.authorizedKeys requires krin.runtime.curve.serverSecretKey");
    // A subscribing runtime's keys are no server key.
    char serverPublic[41];
    char serverSecret[41];
    ASSERT_EQ(zmq_curve_keypair(serverPublic, serverSecret), 0);
    EXPECT_EQ(refusal([&] {
                  lumotypes::host::createRuntime({{"krin.runtime.curve.serverPublicKey", serverPublic},
                                    {"krin.runtime.curve.authorizedKeys", clientPublic}});
              }),
              "Property krin.runtime.curve.authorizedKeys requires krin.runtime.curve.serverSecretKey");
}

TEST(FactoryInputTest, RuntimeAcceptsAuthorizedKeysSeparatedByCommasAndWhiteSpace) {
    char serverPublic[41];
    char serverSecret[41];
    char first[41];
    char second[41];
    char third[41];
    char secret[41];
    ASSERT_EQ(zmq_curve_keypair(serverPublic, serverSecret), 0);
    ASSERT_EQ(zmq_curve_keypair(first, secret), 0);
    ASSERT_EQ(zmq_curve_keypair(second, secret), 0);
    ASSERT_EQ(zmq_curve_keypair(third, secret), 0);
    const std::string list = std::string("\t") + first + "," + second + " ,\n " + third + ",";
    EXPECT_EQ(refusal([&] {
                  lumotypes::host::createRuntime(
                      {{"krin.runtime.curve.serverSecretKey", serverSecret}, {"krin.runtime.curve.authorizedKeys", list}});
              }),
              "");
}

TEST(FactoryInputTest, PublisherFactoryOnAPortHeldByAnotherProgramFailsAtOnceSayingWhy) {
    const std::string port = std::to_string(lumo::test::freePort());
    zmq::context_t context(1);
    zmq::socket_t squatter(context, zmq::socket_type::pub);
    squatter.set(zmq::sockopt::linger, 0);
    squatter.bind("tcp://127.0.0.1:" + port);
    const Runtime dabo = lumotypes::host::createRuntime({});

    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(refusal([&] {
                  lumo::security::publisherOf<lumotypes::Dummy>("Dummy", "krin.ps://127.0.0.1:" + port + "/held", {},
                                                                dabo);
              }),
              "Failed to bind endpoint tcp://127.0.0.1:" + port +
                  ": Address already in use (another program, or another runtime, holds that port)");
    // Not after the 5000 ms that a publisher waits for a confirmation.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4000));
}

TEST(FactoryInputTest, PublisherFactoryOnAHostNameFailsAtOnceSayingAPublisherBindsAnAddress) {
    const Runtime dabo = lumotypes::host::createRuntime({});
    const std::string port = std::to_string(lumo::test::freePort());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(refusal([&] {
                  lumo::security::publisherOf<lumotypes::Dummy>("Dummy", "krin.ps://no-such-host.invalid:" + port + "/x",
                                                                {}, dabo);
              }),
              "Failed to bind endpoint tcp://no-such-host.invalid:" + port +
                  ": No such device ('no-such-host.invalid' is neither an IP address nor a network interface of this "
                  "machine; a publisher binds, so give one of its addresses, an interface name, or * for all)");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4000));
}

}  // namespace

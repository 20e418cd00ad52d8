// A host's view of the plug-in: it loads the shared library at run time,
// finds the publisher factories by their plain names and uses what they
// return only through the public interfaces. Nothing of the plug-in is linked
// into this program. Only the last test reaches into the runtime, for its
// test hooks.

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "FreePort.h"
#include "dabo/DaboException.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/ps/Publisher.h"
#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Runtime.h"

namespace {

using namespace std::chrono_literals;
using orlo::dabo::krin::detail::EventDelivery;
using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::KrinDaboTestHooks;

using lumotypes::host::createRuntime;

/// The plug-in, loaded once for the whole program as a host would.
const lumotypes::host::Plugin& plugin() {
    static const lumotypes::host::Plugin loaded;
    return loaded;
}

template <typename T>
lumotypes::host::PublisherFactory<T>* publisherFactory(const std::string&) {
    return plugin().factory<lumotypes::host::PublisherFactory<T>>(lumotypes::host::TopicTraits<T>::publisherFactory);
}

std::string topicUri(const std::string& topic) {
    return "krin.ps://127.0.0.1:" + std::to_string(lumo::test::freePort()) + "/host/" + topic;
}

TEST(PublisherFactoryHostTest, PluginExportsEveryPublisherFactoryUndecorated) {
#define LUMOTYPES_KRIN_EXPECT_EXPORTED(Name) \
    EXPECT_NE(publisherFactory<lumotypes::Name>(#Name), nullptr);
    LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_KRIN_EXPECT_EXPORTED)
#undef LUMOTYPES_KRIN_EXPECT_EXPORTED
}

TEST(PublisherFactoryHostTest, EveryTopicsFactoryGivesAPublisherThatPublishesAndCloses) {
    auto dabo = createRuntime({});
    std::vector<std::string> published;
#define LUMOTYPES_KRIN_PUBLISH_ONE(Name)                                                                  \
    {                                                                                                      \
        auto factory = publisherFactory<lumotypes::Name>(#Name);                                          \
        ASSERT_NE(factory, nullptr);                                                                       \
        std::unique_ptr<orlo::dabo::ps::Publisher<lumotypes::Name>> publisher(                             \
            factory(topicUri(#Name), {}, {}, dabo));                                                       \
        ASSERT_NE(publisher, nullptr);                                                                     \
        auto sample = publisher->createDataEntity();                                                       \
        ASSERT_NE(sample, nullptr);                                                                        \
        publisher->publish(*sample, 100ms);                                                                \
        publisher->publish(1.5, *sample, 100ms);                                                           \
        auto instancePublisher = publisher->createInstancePublisher(*sample);                              \
        instancePublisher->publish(*instancePublisher->createDataEntity(), 100ms);                         \
        EXPECT_EQ(publisher->getDabo().get(), dabo.get());                                                 \
        publisher->close();                                                                                \
        published.push_back(#Name);                                                                        \
    }
    LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_KRIN_PUBLISH_ONE)
#undef LUMOTYPES_KRIN_PUBLISH_ONE
    EXPECT_EQ(published.size(), 11u);
}

TEST(PublisherFactoryHostTest, PublishAfterCloseThrowsIllegalStateExceptionCaughtByType) {
    auto dabo = createRuntime({});
    auto factory = publisherFactory<lumotypes::CentError>("CentError");
    ASSERT_NE(factory, nullptr);
    std::unique_ptr<orlo::dabo::ps::Publisher<lumotypes::CentError>> publisher(
        factory(topicUri("CentError"), {}, {}, dabo));
    auto sample = publisher->createDataEntity();
    publisher->close();
    try {
        publisher->publish(*sample, 100ms);
        FAIL() << "published after close";
    } catch (const orlo::dabo::IllegalStateException& e) {
        EXPECT_STREQ(e.what(), "Entity closed");
    }
    try {
        publisher->createInstancePublisher(*sample);
        FAIL() << "made an instance publisher after close";
    } catch (const orlo::dabo::IllegalStateException& e) {
        EXPECT_STREQ(e.what(), "Entity closed");
    }
}

TEST(PublisherFactoryHostTest, ClosedInstancePublisherThrowsIllegalStateExceptionCaughtByType) {
    auto dabo = createRuntime({});
    auto factory = publisherFactory<lumotypes::LumoMode>("LumoMode");
    ASSERT_NE(factory, nullptr);
    std::unique_ptr<orlo::dabo::ps::Publisher<lumotypes::LumoMode>> publisher(
        factory(topicUri("LumoMode"), {}, {}, dabo));
    auto instancePublisher = publisher->createInstancePublisher(*publisher->createDataEntity());
    publisher->close();
    try {
        instancePublisher->createDataEntity();
        FAIL() << "a closed instance publisher made an entity";
    } catch (const orlo::dabo::IllegalStateException& e) {
        EXPECT_STREQ(e.what(), "InstanceKrinPublisher closed");
    }
}

TEST(PublisherFactoryHostTest, RefusedUriThrowsDaboExceptionCaughtByType) {
    auto dabo = createRuntime({});
    auto factory = publisherFactory<lumotypes::RefPos>("RefPos");
    ASSERT_NE(factory, nullptr);
    try {
        factory("tcp://127.0.0.1:7001/host/RefPos", {}, {}, dabo);
        FAIL() << "a URI of another profile was accepted";
    } catch (const orlo::dabo::IllegalStateException&) {
        FAIL() << "refused as a state, not as a set-up failure";
    } catch (const orlo::dabo::DaboException& e) {
        EXPECT_STREQ(e.what(), "Uri tcp://127.0.0.1:7001/host/RefPos is not Krin PubSub profile");
    }
}

TEST(PublisherFactoryHostTest, RuntimeThatNeverRegistersMakesTheFactoryThrowAfterTheEventTimeout) {
    KrinDaboTestHooks hooks;
    hooks.registered = EventDelivery::withheld();
    auto dabo = KrinDabo::create({}, hooks);
    auto factory = publisherFactory<lumotypes::Dummy>("Dummy");
    ASSERT_NE(factory, nullptr);
    const auto start = std::chrono::steady_clock::now();
    try {
        factory(topicUri("Dummy"), {}, {}, dabo);
        FAIL() << "the factory returned without REGISTERED";
    } catch (const orlo::dabo::DaboException& e) {
        EXPECT_STREQ(e.what(), "KrinPublisher did not receive registered event");
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, 5000ms);
    EXPECT_EQ(dabo.use_count(), 1);
}

}  // namespace

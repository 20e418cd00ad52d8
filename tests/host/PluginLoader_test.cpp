// The plug-in as a host sees it: loaded at run time, entered only through
// its exported functions. This executable does not link the plug-in.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "dabo/krin/detail/ps/KrinDataEntity.h"
#include "lumotypes/Lumotypes.h"
#include "tools/loader/PluginLoader.h"

using lumo::tools::PluginLoadError;
using lumo::tools::PluginLoader;

namespace {

const PluginLoader& plugin() {
    static const PluginLoader loaded(PluginLoader::defaultPath());
    return loaded;
}

// Any one field per topic, so that an entity from the plug-in has something
// to carry; the round trip itself is generic.
void touch(lumotypes::InterfaceControlArgs& e) { e.setSystem(lumotypes::TEL_PFS); }
void touch(lumotypes::Dummy& e) { e.setDummy_param(lumotypes::TEL_INS); }
void touch(lumotypes::LumoMode& e) { e.setActiveCameraFs(lumotypes::IMG_GP3); }
void touch(lumotypes::RefPos& e) { e.setCentBoxWidth(5); }
void touch(lumotypes::CentOpt& e) { e.setThreshold(0.25f); }
void touch(lumotypes::CentError& e) { e.setFlux(8.0f); }
void touch(lumotypes::SimCentErrors& e) { e.getImg_gp2_err()->setFlux(8.0f); }
void touch(lumotypes::FieldStablizationTopicIn& e) { e.setSample_id(8); }
void touch(lumotypes::FieldStablizationTopicOut& e) { e.setSample_id(8); }
void touch(lumotypes::HokuTopicIn& e) { e.setSample_id(8); }
void touch(lumotypes::HokuTopicOut& e) { e.setSample_id(8); }

template <typename T>
void expectEntityRoundTrips(const std::string& topic) {
    std::unique_ptr<T> sent(static_cast<T*>(plugin().createDataEntity(topic)));
    std::unique_ptr<T> received(static_cast<T*>(plugin().createDataEntity(topic)));
    ASSERT_NE(sent, nullptr) << topic;
    ASSERT_NE(sent, received) << topic;
    EXPECT_FALSE(sent->hasKey()) << topic;
    touch(*sent);
    using Bytes = orlo::dabo::krin::detail::ps::KrinDataEntity<T>;
    auto* sentBytes = dynamic_cast<Bytes*>(sent.get());
    auto* receivedBytes = dynamic_cast<Bytes*>(received.get());
    ASSERT_NE(sentBytes, nullptr) << topic;
    ASSERT_NE(receivedBytes, nullptr) << topic;
    // Complete the sample through a clone, which sets every field.
    std::unique_ptr<T> complete = sent->clone();
    std::string bytes;
    ASSERT_TRUE(dynamic_cast<Bytes&>(*complete).toByteArray(bytes)) << topic;
    EXPECT_TRUE(receivedBytes->fromByteArray(bytes.data(), bytes.size())) << topic;
    std::string again;
    ASSERT_TRUE(receivedBytes->toByteArray(again)) << topic;
    EXPECT_EQ(again, bytes) << topic;
}

}  // namespace

TEST(PluginLoader, CreatesAnEntityOfEveryTopicThroughTheExportedFactoriesAndTakesItToBytesAndBack) {
#define LUMO_TEST_ROUND_TRIP(T) expectEntityRoundTrips<lumotypes::T>(#T);
    LUMOTYPES_FOR_EACH_TOPIC(LUMO_TEST_ROUND_TRIP)
#undef LUMO_TEST_ROUND_TRIP
}

TEST(PluginLoader, FactoryNamesFollowTheKindAndTopicRule) {
    EXPECT_EQ(PluginLoader::factoryName("DataEntity", "RefPos"), "generated_krin_DataEntity_lumotypes_RefPos");
    EXPECT_EQ(PluginLoader::factoryName("MrvSubscriber", "HokuTopicIn"),
              "generated_krin_MrvSubscriber_lumotypes_HokuTopicIn");
}

TEST(PluginLoader, MissingPluginIsReportedWithItsPath) {
    try {
        PluginLoader missing("/nonexistent/libdabo-krin-lumotypes.so.0.9");
        FAIL() << "a missing plug-in loaded";
    } catch (const PluginLoadError& error) {
        EXPECT_NE(std::string(error.what()).find("/nonexistent/libdabo-krin-lumotypes.so.0.9"), std::string::npos);
    }
}

TEST(PluginLoader, UnknownTopicIsReportedWithTheFactoryName) {
    try {
        plugin().createDataEntity("NoSuchTopic");
        FAIL() << "an unknown topic had a factory";
    } catch (const PluginLoadError& error) {
        EXPECT_NE(std::string(error.what()).find("generated_krin_DataEntity_lumotypes_NoSuchTopic"),
                  std::string::npos);
    }
}

TEST(PluginLoader, PluginExportsTheDescriptorTableAndItsGetterUndecorated) {
    void* table = plugin().symbol("descriptor_table_Lumotypes_2eproto");
    auto getter = reinterpret_cast<const void* (*)()>(plugin().symbol("descriptor_table_Lumotypes_2eproto_getter"));
    EXPECT_EQ(getter(), table);
}

TEST(PluginLoader, PluginExportsTheFourKindsOfFactoryForEveryTopic) {
    std::vector<std::string> topics;
#define LUMO_TEST_TOPIC(T) topics.push_back(#T);
    LUMOTYPES_FOR_EACH_TOPIC(LUMO_TEST_TOPIC)
#undef LUMO_TEST_TOPIC
    for (const char* kind : {"DataEntity", "Publisher", "Subscriber", "MrvSubscriber"}) {
        for (const std::string& topic : topics) {
            EXPECT_NO_THROW(plugin().symbol(PluginLoader::factoryName(kind, topic))) << kind << " " << topic;
        }
    }
}

TEST(PluginLoader, LoadingTheSamePluginAgainGivesTheSameFactories) {
    PluginLoader again(PluginLoader::defaultPath());
    EXPECT_EQ(again.symbol("generated_krin_DataEntity_lumotypes_Dummy"),
              plugin().symbol("generated_krin_DataEntity_lumotypes_Dummy"));
}

// The plug-in as a host sees it through the host component: loaded at run
// time, entered only through its exported functions. This executable does not
// link the plug-in.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <google/protobuf/descriptor.h>

#include <memory>
#include <set>
#include <string>

#include "lumotypes/host/Payload.h"
#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Topics.h"

using lumotypes::host::Plugin;
using lumotypes::host::PluginLoadError;
using lumotypes::host::TopicTraits;

namespace {

const Plugin& plugin() {
    static const Plugin loaded;
    return loaded;
}

std::string messageOf(const std::string& path) {
    try {
        Plugin failed(path);
    } catch (const PluginLoadError& error) {
        return error.what();
    }
    return "";
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
void expectEntityRoundTrips() {
    SCOPED_TRACE(TopicTraits<T>::name);
    std::unique_ptr<T> sent = plugin().createDataEntity<T>();
    std::unique_ptr<T> received = plugin().createDataEntity<T>();
    ASSERT_NE(sent, nullptr);
    ASSERT_NE(sent, received);
    EXPECT_FALSE(sent->hasKey());
    touch(*sent);
    // Complete the sample through a clone, which sets every field.
    const std::unique_ptr<T> complete = sent->clone();
    const std::string bytes = lumotypes::host::toBytes(*complete);
    EXPECT_TRUE(lumotypes::host::fromBytes(*received, bytes));
    EXPECT_EQ(lumotypes::host::toBytes(*received), bytes);
    EXPECT_FALSE(lumotypes::host::fromBytes(*received, std::string("\xff\xff\xff", 3)));
}

}  // namespace

TEST(Plugin, CreatesAnEntityOfEveryTopicAndTakesItToBytesAndBack) {
    lumotypes::host::forEachTopic([](auto tag) { expectEntityRoundTrips<typename decltype(tag)::type>(); });
}

TEST(Plugin, MissingPluginIsReportedWithItsPath) {
    EXPECT_NE(messageOf("/nonexistent/libdabo-krin-lumotypes.so.0.9").find("/nonexistent/libdabo-krin-lumotypes.so.0.9"),
              std::string::npos);
}

TEST(Plugin, LibraryWithoutTheFactoriesIsRefusedNamingTheFirstMissingFactoryAndTheFile) {
    const std::string message = messageOf(LUMO_TEST_LIBRARY_WITHOUT_FACTORIES);
    EXPECT_NE(message.find("does not export generated_krin_Publisher_lumotypes_InterfaceControlArgs"),
              std::string::npos)
        << message;
    EXPECT_NE(message.find(LUMO_TEST_LIBRARY_WITHOUT_FACTORIES), std::string::npos) << message;
}

TEST(Plugin, FunctionOutsideTheCheckedSetIsRefusedWithItsName) {
    try {
        plugin().factory<void*()>("generated_krin_DataEntity_lumotypes_NoSuchTopic");
        FAIL() << "an unknown topic had a factory";
    } catch (const PluginLoadError& error) {
        EXPECT_NE(std::string(error.what()).find("generated_krin_DataEntity_lumotypes_NoSuchTopic"), std::string::npos);
    }
}

TEST(Plugin, SchemaIsTheOneTheTopicListWasGeneratedFrom) {
    EXPECT_EQ(plugin().schema().name(), lumotypes::host::schemaFile);
    std::set<std::string> messages;
    for (int i = 0; i < plugin().schema().message_type_count(); ++i) {
        messages.insert(plugin().schema().message_type(i)->name());
    }
    const auto names = lumotypes::host::topicNames();
    EXPECT_EQ(messages, std::set<std::string>(names.begin(), names.end()));
    lumotypes::host::forEachTopic([](auto tag) {
        using Traits = TopicTraits<typename decltype(tag)::type>;
        EXPECT_EQ(plugin().messageType(Traits::name).full_name(), Traits::wireType);
    });
}

TEST(Plugin, UnknownTopicHasNoMessageType) {
    EXPECT_THROW(plugin().messageType("NoSuchTopic"), std::invalid_argument);
}

TEST(Plugin, PluginExportsTheDescriptorTableAndItsGetterUndecorated) {
    void* handle = dlopen(plugin().path().c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    ASSERT_NE(handle, nullptr);
    void* table = dlsym(handle, "descriptor_table_Lumotypes_2eproto");
    auto getter = reinterpret_cast<const void* (*)()>(dlsym(handle, lumotypes::host::descriptorTableGetter));
    ASSERT_NE(getter, nullptr);
    EXPECT_EQ(getter(), table);
}

TEST(Plugin, LoadingTheSamePluginAgainGivesTheSameFactories) {
    const Plugin again(plugin().path());
    const char* name = TopicTraits<lumotypes::Dummy>::dataEntityFactory;
    EXPECT_EQ(again.factory<void*()>(name), plugin().factory<void*()>(name));
}

TEST(Plugin, DefaultPathInTheBuildTreeIsThePluginOfThatTree) {
    EXPECT_EQ(Plugin::defaultPath(), LUMOTYPES_KRIN_PLUGIN_PATH);
}

TEST(TopicTraits, CarryTheTypeHashesOfTheTable) {
    EXPECT_EQ(TopicTraits<lumotypes::LumoMode>::typeHash, 0xA2794C0Eu);
    EXPECT_EQ(TopicTraits<lumotypes::HokuTopicOut>::typeHash, 0x72C23DD8u);
    EXPECT_STREQ(TopicTraits<lumotypes::LumoMode>::wireType, "generated.krin.lumotypes.LumoMode");
}

TEST(TopicTraits, WithTopicFindsEveryListedTopicAndNoOther) {
    for (const std::string& name : lumotypes::host::topicNames()) {
        std::string found;
        EXPECT_TRUE(lumotypes::host::withTopic(name, [&](auto tag) {
            found = TopicTraits<typename decltype(tag)::type>::name;
        }));
        EXPECT_EQ(found, name);
    }
    EXPECT_FALSE(lumotypes::host::withTopic("NoSuchTopic", [](auto) {}));
    EXPECT_EQ(lumotypes::host::topicNames().size(), 11u);
}

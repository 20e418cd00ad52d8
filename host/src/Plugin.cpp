#include "lumotypes/host/Plugin.h"

#include <dlfcn.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/generated_message_reflection.h>

#include <climits>
#include <cstdlib>

namespace lumotypes::host {

namespace {

std::string lastError() {
    const char* reason = dlerror();
    return reason != nullptr ? reason : "unknown reason";
}

void* open(const std::string& path) {
    // RTLD_NODELETE: the plug-in's schema stays registered with the message
    // library for the life of the process, so its code must stay too.
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (handle == nullptr) {
        throw PluginLoadError("cannot load plug-in " + path + ": " + lastError());
    }
    return handle;
}

void* find(void* handle, const std::string& path, const std::string& name) {
    dlerror();
    void* address = dlsym(handle, name.c_str());
    if (address == nullptr) {
        throw PluginLoadError("plug-in " + path + " does not export " + name + ": " + lastError());
    }
    return address;
}

using DescriptorTableGetter = const google::protobuf::internal::DescriptorTable* (*)();

// The descriptor table is what the schema compiler generated into the
// plug-in; its file name is the key under which the plug-in's code registered
// the schema with the pool when it was loaded.
const google::protobuf::FileDescriptor* schemaOf(void* getterAddress, const std::string& path) {
    const auto* table = reinterpret_cast<DescriptorTableGetter>(getterAddress)();
    const auto* file = google::protobuf::DescriptorPool::generated_pool()->FindFileByName(table->filename);
    if (file == nullptr) {
        throw PluginLoadError("plug-in " + path + " exports the schema " + table->filename +
                              ", which is not in the message library's pool");
    }
    return file;
}

}  // namespace

PluginLoadError::~PluginLoadError() = default;

Plugin::Plugin(const std::string& path) : libraryPath(path) {
    void* handle = open(path);
    forEachTopic([&](auto tag) {
        using Traits = TopicTraits<typename decltype(tag)::type>;
        for (const char* name : {Traits::publisherFactory, Traits::subscriberFactory, Traits::mrvSubscriberFactory,
                                 Traits::dataEntityFactory}) {
            symbols[name] = find(handle, path, name);
        }
    });
    symbols[descriptorTableGetter] = find(handle, path, descriptorTableGetter);
    file = schemaOf(symbols[descriptorTableGetter], path);
}

std::string Plugin::defaultPath() {
    // An installed library finds the plug-in installed beside it; one in the
    // build tree, the plug-in of that tree.
    Dl_info self{};
    if (dladdr(reinterpret_cast<void*>(&Plugin::defaultPath), &self) != 0 && self.dli_fname != nullptr) {
        std::string beside = self.dli_fname;
        beside.erase(beside.rfind('/') + 1);
        beside += LUMOTYPES_HOST_PLUGIN_FILE_NAME;
        char resolved[PATH_MAX];
        if (beside.size() > std::string(LUMOTYPES_HOST_PLUGIN_FILE_NAME).size() &&
            ::realpath(beside.c_str(), resolved) != nullptr) {
            return resolved;
        }
    }
    return LUMOTYPES_HOST_BUILD_TREE_PLUGIN;
}

void* Plugin::symbol(const std::string& name) const {
    const auto found = symbols.find(name);
    if (found == symbols.end()) {
        throw PluginLoadError("plug-in " + libraryPath + " has no function " + name + " that a host may call");
    }
    return found->second;
}

const google::protobuf::FileDescriptor& Plugin::schema() const {
    return *file;
}

const google::protobuf::Descriptor& Plugin::messageType(const std::string& topic) const {
    const auto* type = file->FindMessageTypeByName(topic);
    if (type == nullptr) {
        throw std::invalid_argument("the schema " + file->name() + " has no topic " + topic);
    }
    return *type;
}

}  // namespace lumotypes::host

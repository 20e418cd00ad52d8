#include "tools/loader/PluginLoader.h"

#include <dlfcn.h>

namespace lumo::tools {

namespace {

std::string lastError() {
    const char* reason = dlerror();
    return reason != nullptr ? reason : "unknown reason";
}

}  // namespace

PluginLoader::PluginLoader(const std::string& path) : libraryPath(path), handle(nullptr) {
    // RTLD_NODELETE: the plug-in's schema stays registered with the message
    // library for the life of the process, so its code must stay too.
    handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (handle == nullptr) {
        throw PluginLoadError("cannot load plug-in " + path + ": " + lastError());
    }
}

std::string PluginLoader::defaultPath() { return LUMO_DEFAULT_PLUGIN_PATH; }

std::string PluginLoader::factoryName(const std::string& kind, const std::string& topic) {
    return "generated_krin_" + kind + "_lumotypes_" + topic;
}

void* PluginLoader::symbol(const std::string& name) const {
    dlerror();
    void* address = dlsym(handle, name.c_str());
    if (address == nullptr) {
        throw PluginLoadError("plug-in " + libraryPath + " does not export " + name + ": " + lastError());
    }
    return address;
}

void* PluginLoader::createDataEntity(const std::string& topic) const {
    return factory<void*()>("DataEntity", topic)();
}

}  // namespace lumo::tools

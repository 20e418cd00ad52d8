#include "tools/loader/PluginLoader.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

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

std::string PluginLoader::defaultPath() {
    // An installed program finds the plug-in installed beside it; one in the
    // build tree, the plug-in of that tree.
    char self[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", self, sizeof self - 1);
    if (length > 0) {
        std::string directory(self, static_cast<std::size_t>(length));
        directory.erase(directory.rfind('/') + 1);
        const std::string installed = directory + LUMO_INSTALLED_PLUGIN_RELATIVE_PATH;
        char resolved[PATH_MAX];
        if (::realpath(installed.c_str(), resolved) != nullptr) {
            return resolved;
        }
    }
    return LUMO_DEFAULT_PLUGIN_PATH;
}

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

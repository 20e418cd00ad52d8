#include "HostAccess.h"

#include <mutex>
#include <stdexcept>

namespace lumotypes::python {

const host::Plugin& plugin(const std::string& path) {
    static std::mutex mutex;
    // Never destroyed: entities the plug-in made may outlive every Python object.
    static host::Plugin* loaded = nullptr;
    std::lock_guard<std::mutex> lock(mutex);
    if (loaded == nullptr) {
        loaded = new host::Plugin(path.empty() ? host::Plugin::defaultPath() : path);
    } else if (!path.empty() && path != loaded->path()) {
        throw std::invalid_argument("the plug-in " + loaded->path() + " is loaded already; cannot load " + path);
    }
    return *loaded;
}

}  // namespace lumotypes::python

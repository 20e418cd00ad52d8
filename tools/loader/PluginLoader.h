#pragma once

#include <stdexcept>
#include <string>

namespace lumo::tools {

/// A plug-in that could not be loaded, or a factory it does not export.
class PluginLoadError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Loads the type-support plug-in into the host process and finds its
/// exported factories, `generated_krin_<Kind>_lumotypes_<Topic>`, by kind and
/// topic name.
///
/// The plug-in stays loaded until the process ends, whatever happens to this
/// object: its schema registers with the message library's descriptor pool
/// when it is loaded, and entities it made may outlive the loader.
class PluginLoader {
public:
    /// Loads the plug-in at `path`; throws `PluginLoadError` with the system's
    /// reason if it can't.
    explicit PluginLoader(const std::string& path);

    PluginLoader(const PluginLoader&) = delete;
    PluginLoader& operator=(const PluginLoader&) = delete;

    /// The plug-in installed with the running program if there is one
    /// (`../lib/libdabo-krin-lumotypes.so.0.9` from the program's directory),
    /// otherwise the plug-in of the build tree the program was built in.
    static std::string defaultPath();

    /// `generated_krin_<kind>_lumotypes_<topic>`.
    static std::string factoryName(const std::string& kind, const std::string& topic);

    /// The address of the exported symbol `name`; throws `PluginLoadError` if
    /// the plug-in does not export it.
    void* symbol(const std::string& name) const;

    /// The factory of `kind` for `topic`, as a function pointer of type `F`.
    template <typename F>
    F* factory(const std::string& kind, const std::string& topic) const {
        return reinterpret_cast<F*>(symbol(factoryName(kind, topic)));
    }

    /// A new entity of `topic` from its exported data entity factory. The
    /// object lies at the address of its topic type; the caller owns it.
    void* createDataEntity(const std::string& topic) const;

    const std::string& path() const { return libraryPath; }

private:
    std::string libraryPath;
    void* handle;
};

}  // namespace lumo::tools

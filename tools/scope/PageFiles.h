#pragma once

#include <cstddef>
#include <string>

namespace lumo::scope {

/// A file of the page, built into the program so that running it needs
/// neither the files nor the tools that made them.
struct PageFile {
    const char* name;
    const unsigned char* data;
    std::size_t size;
};

/// The file served at "/`name`", or null.
const PageFile* findPageFile(const std::string& name);

/// The Content-Type to serve `name` with, from its extension.
const char* contentTypeOf(const std::string& name);

}  // namespace lumo::scope

#pragma once

// Scratch files for the format's tests, removed when the test ends.

#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

namespace lumo::test {

class ScratchFile {
public:
    explicit ScratchFile(const std::string& name)
        : filePath("/tmp/lumo-mcap-" + std::to_string(::getpid()) + "-" + name + ".mcap") {}
    ~ScratchFile() { ::unlink(filePath.c_str()); }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    const std::string& path() const { return filePath; }

    std::string bytes() const {
        std::ifstream in(filePath, std::ios::binary);
        std::stringstream content;
        content << in.rdbuf();
        return content.str();
    }

    void overwrite(const std::string& bytes) const {
        std::ofstream out(filePath, std::ios::binary | std::ios::trunc);
        out << bytes;
    }

private:
    std::string filePath;
};

}  // namespace lumo::test

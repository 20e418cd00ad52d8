#include "tools/mcap/Compression.h"

#include <lz4frame.h>
#include <zstd.h>

namespace lumo::mcap {

bool knownCompression(const std::string& compression) {
    return compression.empty() || compression == "zstd" || compression == "lz4";
}

namespace {

std::string zstdCompress(const std::string& records) {
    std::string out(ZSTD_compressBound(records.size()), '\0');
    const std::size_t size = ZSTD_compress(out.data(), out.size(), records.data(), records.size(), 3);
    if (ZSTD_isError(size) != 0) {
        throw CompressionError(std::string("zstd refused the chunk: ") + ZSTD_getErrorName(size));
    }
    out.resize(size);
    return out;
}

std::string lz4Compress(const std::string& records) {
    LZ4F_preferences_t preferences{};
    preferences.frameInfo.contentSize = records.size();
    std::string out(LZ4F_compressFrameBound(records.size(), &preferences), '\0');
    const std::size_t size = LZ4F_compressFrame(out.data(), out.size(), records.data(), records.size(), &preferences);
    if (LZ4F_isError(size) != 0) {
        throw CompressionError(std::string("lz4 refused the chunk: ") + LZ4F_getErrorName(size));
    }
    out.resize(size);
    return out;
}

/// The size a zstd frame says it holds, checked before anything is allocated.
void checkZstdFrameSize(const std::string& compressed, std::uint64_t declared) {
    const unsigned long long size = ZSTD_getFrameContentSize(compressed.data(), compressed.size());
    if (size == ZSTD_CONTENTSIZE_ERROR) {
        throw CompressionError("its zstd data does not begin with a zstd frame");
    }
    if (size != ZSTD_CONTENTSIZE_UNKNOWN && size != declared) {
        throw CompressionError("its zstd frame holds " + std::to_string(size) + " bytes, not the " +
                               std::to_string(declared) + " it declares");
    }
}

std::string zstdDecompress(const std::string& compressed, std::string out) {
    const std::size_t size = ZSTD_decompress(out.data(), out.size(), compressed.data(), compressed.size());
    if (ZSTD_isError(size) != 0) {
        throw CompressionError(std::string("its zstd data does not decompress: ") + ZSTD_getErrorName(size));
    }
    if (size != out.size()) {
        throw CompressionError("its zstd data decompresses to " + std::to_string(size) + " bytes, not the " +
                               std::to_string(out.size()) + " it declares");
    }
    return out;
}

std::string lz4Decompress(const std::string& compressed, std::string out) {
    LZ4F_dctx* context = nullptr;
    if (LZ4F_isError(LZ4F_createDecompressionContext(&context, LZ4F_VERSION)) != 0) {
        throw CompressionError("no lz4 decompression context");
    }
    std::size_t written = 0;
    std::size_t read = 0;
    std::size_t hint = 1;
    while (hint != 0 && read < compressed.size()) {
        std::size_t outSize = out.size() - written;
        std::size_t inSize = compressed.size() - read;
        hint = LZ4F_decompress(context, out.data() + written, &outSize, compressed.data() + read, &inSize, nullptr);
        if (LZ4F_isError(hint) != 0) {
            LZ4F_freeDecompressionContext(context);
            throw CompressionError(std::string("its lz4 data does not decompress: ") + LZ4F_getErrorName(hint));
        }
        written += outSize;
        read += inSize;
        if (outSize == 0 && inSize == 0) {
            break;  // the frame wants more room than the declared size leaves
        }
    }
    LZ4F_freeDecompressionContext(context);
    if (hint != 0 || written != out.size()) {
        throw CompressionError("its lz4 data decompresses to " + std::to_string(written) + " bytes" +
                               (hint != 0 ? " of an unfinished frame" : "") + ", not the " +
                               std::to_string(out.size()) + " it declares");
    }
    return out;
}

}  // namespace

std::string compress(const std::string& compression, const std::string& records) {
    if (compression == "zstd") {
        return zstdCompress(records);
    }
    if (compression == "lz4") {
        return lz4Compress(records);
    }
    if (compression.empty()) {
        return records;
    }
    throw CompressionError("unknown compression '" + compression + "'");
}

std::string decompress(const std::string& compression, const std::string& compressed,
                       std::uint64_t uncompressedSize) {
    if (compression.empty()) {
        if (compressed.size() != uncompressedSize) {
            throw CompressionError("it holds " + std::to_string(compressed.size()) + " bytes, not the " +
                                   std::to_string(uncompressedSize) + " it declares");
        }
        return compressed;
    }
    if (!knownCompression(compression)) {
        throw CompressionError("its compression '" + compression + "' is not zstd, lz4 or none");
    }
    // The declared size bounds what is allocated; a chunk is a unit of
    // streaming, and one larger than this is taken for a corrupt length.
    constexpr std::uint64_t largestChunk = std::uint64_t{1} << 30;
    if (uncompressedSize > largestChunk) {
        throw CompressionError("it declares " + std::to_string(uncompressedSize) +
                               " bytes uncompressed, more than the 1 GiB a chunk may hold");
    }
    if (compression == "zstd") {
        checkZstdFrameSize(compressed, uncompressedSize);
    }
    std::string out(static_cast<std::size_t>(uncompressedSize), '\0');
    return compression == "zstd" ? zstdDecompress(compressed, std::move(out)) : lz4Decompress(compressed, std::move(out));
}

}  // namespace lumo::mcap

/* Where bytes come from, as they stand in a file or as a compressed one holds them. */
#ifndef TOOLS_COMMON_BYTESOURCE_H
#define TOOLS_COMMON_BYTESOURCE_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

class ByteSource {
  public:
    virtual ~ByteSource() = default;
    /* Up to so many bytes, and how many; 0: no more for now. Throws WorkFailed. */
    virtual size_t read(char *block, size_t size) = 0;
    /* Nothing more will come: throws WorkFailed where something should have. */
    virtual void end() {}
};

enum class Compression { UNTOLD, NONE, GZIP, ZSTD };

/* By the first bytes of a file; untold while they may still become either. */
Compression compressionOf(std::string_view first);
constexpr size_t COMPRESSION_MARK_BYTES = 4;

/* What the compressed bytes of the source hold, of all the parts that were put one behind another;
   the name is for reports. Throws WorkFailed where the tools were built without the library. */
std::unique_ptr<ByteSource> decompressed(Compression compression, ByteSource &source,
                                         const std::string &name);

#endif

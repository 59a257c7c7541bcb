/* What the readers of gzip and zstd have in common. For them alone; users include byteSource.h. */
#ifndef TOOLS_COMMON_COMPRESSION_H
#define TOOLS_COMMON_COMPRESSION_H

#include "byteSource.h"

/* The compressed bytes, a block at a time. */
class CompressedInput {
  public:
    explicit CompressedInput(ByteSource &source) : source_(source) {}
    /* How many bytes there are to take, after a read where there were none; 0: none for now. */
    size_t fetch();
    char *bytes() { return block_.data() + at_; }
    void take(size_t count) { at_ += count; }

  private:
    static constexpr size_t BLOCK_BYTES = 1 << 16;
    ByteSource &source_;
    std::string block_;
    size_t at_ = 0;
};

/* Null where the tools were built without the library. */
std::unique_ptr<ByteSource> fromGzip(ByteSource &source, const std::string &name);
std::unique_ptr<ByteSource> fromZstd(ByteSource &source, const std::string &name);

#endif

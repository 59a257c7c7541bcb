#include "compression.h"

#include "report.h"

#ifdef QN_HAVE_ZLIB
#define ZLIB_CONST
#include <zlib.h>

namespace {

constexpr int GZIP_ALONE = 16 + MAX_WBITS;

class GzipSource : public ByteSource {
  public:
    GzipSource(ByteSource &source, const std::string &name) : name_(name), input_(source) {
        if (inflateInit2(&stream_, GZIP_ALONE) != Z_OK)
            throw WorkFailed(name + ": no memory to decompress it");
    }
    ~GzipSource() override { inflateEnd(&stream_); }
    GzipSource(const GzipSource &) = delete;
    GzipSource &operator=(const GzipSource &) = delete;

    size_t read(char *block, size_t size) override {
        stream_.next_out = reinterpret_cast<Bytef *>(block);
        stream_.avail_out = static_cast<uInt>(size);
        while (stream_.avail_out == size && failure_.empty()) {
            const size_t count = input_.fetch();
            if (count == 0)
                break;
            if (ended_)
                beginNext();
            else if (!inflateSome(count))
                break;
        }
        // What came before the damage goes out first.
        if (stream_.avail_out == size && !failure_.empty())
            throw WorkFailed(name_ + ": damaged gzip data: " + failure_);
        return size - stream_.avail_out;
    }

    void end() override {
        if (!ended_)
            throw WorkFailed(name_ + ": the gzip data end too early");
    }

  private:
    // Another part may follow, or zeros that fill up a tape's block.
    void beginNext() {
        if (*input_.bytes() == '\0') {
            input_.take(1);
            return;
        }
        inflateReset(&stream_);
        ended_ = false;
    }

    // False: nothing can come of what there is. Where the block is filled, bytes are left to take:
    // a part ends with its sums.
    bool inflateSome(size_t count) {
        stream_.next_in = reinterpret_cast<const Bytef *>(input_.bytes());
        stream_.avail_in = static_cast<uInt>(count);
        const int result = inflate(&stream_, Z_NO_FLUSH);
        input_.take(count - stream_.avail_in);
        ended_ = result == Z_STREAM_END;
        if (result != Z_OK && !ended_ && result != Z_BUF_ERROR)
            failure_ = stream_.msg == nullptr ? "no memory" : stream_.msg;
        return result != Z_BUF_ERROR;
    }

    std::string name_;
    CompressedInput input_;
    z_stream stream_ = {};
    std::string failure_;
    bool ended_ = false; // a part, and no other one has begun
};

} // namespace

std::unique_ptr<ByteSource> fromGzip(ByteSource &source, const std::string &name) {
    return std::make_unique<GzipSource>(source, name);
}
#else
std::unique_ptr<ByteSource> fromGzip(ByteSource &, const std::string &) {
    return nullptr;
}
#endif

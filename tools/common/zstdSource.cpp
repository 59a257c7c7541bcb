#include "compression.h"

#include "report.h"

#ifdef QN_HAVE_ZSTD
#include <zstd.h>

namespace {

class ZstdSource : public ByteSource {
  public:
    ZstdSource(ByteSource &source, const std::string &name) : name_(name), input_(source) {
        if (stream_ == nullptr)
            throw WorkFailed(name + ": no memory to decompress it");
    }

    size_t read(char *block, size_t size) override {
        ZSTD_outBuffer out = {block, size, 0};
        while (out.pos == 0 && failure_.empty()) {
            const size_t count = input_.fetch();
            if (count == 0)
                break;
            decompressSome(out, count);
        }
        // What came before the damage goes out first.
        if (out.pos == 0 && !failure_.empty())
            throw WorkFailed(name_ + ": damaged zstd data: " + failure_);
        return out.pos;
    }

    void end() override {
        if (expected_ != 0)
            throw WorkFailed(name_ + ": the zstd data end too early");
    }

  private:
    // Where the block is filled, the library leaves a byte to take until all is out.
    void decompressSome(ZSTD_outBuffer &out, size_t count) {
        ZSTD_inBuffer in = {input_.bytes(), count, 0};
        expected_ = ZSTD_decompressStream(stream_.get(), &out, &in);
        input_.take(in.pos);
        if (ZSTD_isError(expected_) != 0)
            failure_ = ZSTD_getErrorName(expected_);
    }

    struct Free {
        void operator()(ZSTD_DStream *stream) const { ZSTD_freeDStream(stream); }
    };
    std::string name_;
    CompressedInput input_;
    std::unique_ptr<ZSTD_DStream, Free> stream_{ZSTD_createDStream()};
    std::string failure_;
    size_t expected_ = 1; // of the present frame; 0: it has ended
};

} // namespace

std::unique_ptr<ByteSource> fromZstd(ByteSource &source, const std::string &name) {
    return std::make_unique<ZstdSource>(source, name);
}
#else
std::unique_ptr<ByteSource> fromZstd(ByteSource &, const std::string &) {
    return nullptr;
}
#endif

/* Visible rendering: a binary copy and a text copy of the same bytes agree, and nothing that needs
   a rendering is left as it was unless the flags or the mode keep it. */
#include "buffers/charBuffer.h"
#include "buffers/clearCopy.h"
#include "core/mkcopy.h"
#include "support/scratch.h"

#include <cstring>

// What these modes leave as it is: bytes that print, and white space that the flags do not name.
static bool rendersAll(int32_t flags) {
    const int32_t mode = flags & CLEAR_MODE_MASK;
    return mode <= CLEAR_UPPER && mode != CLEAR_CARET &&
           (flags & (CLEAR_KEEP_BS | CLEAR_KEEP_WHITE)) == 0;
}

static bool mayRemain(unsigned char byte) {
    return (byte >= ' ' && byte < 0x7F) || strchr("\t\n\f\r\v\b", byte) != nullptr;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces pieces(data, size);
    const auto flags = static_cast<int32_t>(pieces.number(0x1000));
    const std::string source = pieces.rest();
    char *binary = clearCopyBinary(source.data(), static_cast<uint32_t>(source.size()), flags);
    FUZZ_CHECK(binary != nullptr);
    if (rendersAll(flags)) {
        for (const char *at = binary; *at != '\0'; ++at)
            FUZZ_CHECK(mayRemain(static_cast<unsigned char>(*at)));
    }
    freecopy(binary);

    char *whole = clearCopy(source.c_str(), flags);
    char *sameBytes =
        clearCopyBinary(source.data(), static_cast<uint32_t>(strlen(source.c_str())), flags);
    FUZZ_CHECK(whole != nullptr && sameBytes != nullptr && strcmp(whole, sameBytes) == 0);
    freecopy(whole);
    freecopy(sameBytes);
    return 0;
}

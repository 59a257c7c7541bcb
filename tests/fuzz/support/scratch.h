/* What fuzz targets share: cutting an input into pieces, a folder to write files in, and checks
   that hold in every build. */
#ifndef FUZZ_SUPPORT_SCRATCH_H
#define FUZZ_SUPPORT_SCRATCH_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// What libFuzzer and the replaying program call for each input. Always returns 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// Ends the process with the text of the claim when it does not hold.
#define FUZZ_CHECK(claim) ((claim) ? (void)0 : fuzzFailed(#claim, __FILE__, __LINE__))
[[noreturn]] void fuzzFailed(const char *claim, const char *file, int line);

// Takes an input apart from its front. Past its end every number is 0 and every text empty.
class Pieces {
  public:
    Pieces(const uint8_t *data, size_t size);
    uint8_t byte();
    uint32_t number(uint32_t below); // 0 to below - 1, from two bytes; below is at least 1
    std::string text();              // up to the next zero byte
    std::string rest();              // what is left, zero bytes included

  private:
    std::string_view left;
};

// A folder of this process's own, made at the first call and removed when the process exits.
const std::string &scratchFolder();

// Writes a file in the scratch folder, whole; returns its path.
std::string scratchFile(const char *name, std::string_view contents);

#endif

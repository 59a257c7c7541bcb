/* A text in a block of just its size, so that a sanitizer sees the first byte read past its zero.
 */
#ifndef FUZZ_SUPPORT_EXACTTEXT_H
#define FUZZ_SUPPORT_EXACTTEXT_H

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

class ExactText {
  public:
    // What stands before the first zero byte.
    explicit ExactText(const std::string &source)
        : size(strlen(source.c_str())), block(std::make_unique<char[]>(size + 1)) {
        std::copy(source.c_str(), source.c_str() + size, block.get());
    }
    char *get() const { return block.get(); }
    size_t length() const { return size; }

  private:
    size_t size;
    std::unique_ptr<char[]> block;
};

#endif

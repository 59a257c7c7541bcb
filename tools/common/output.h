/* Standard output through one large buffer, and through a pager where a person sits in front. */
#ifndef TOOLS_COMMON_OUTPUT_H
#define TOOLS_COMMON_OUTPUT_H

#include <functional>
#include <string>

class Output {
  public:
    /* What is to be done before the first bytes go out: start a pager, end what was shown. */
    explicit Output(std::function<void()> first = {});
    /* Text to be written is appended to it. */
    std::string &text() { return text_; }
    /* Writes the text where there is enough of it. Throws WorkFailed, as flush does. */
    void pass() {
        if (text_.size() >= enough_)
            flush();
    }
    /* Writes all there is. */
    void flush();

  private:
    std::string text_;
    size_t enough_; // bytes
    std::function<void()> first_;
};

#endif

/* A log root with as many messages as wanted, each with its symbol, text and field, for measuring
   what a catalogue's size costs. */
#ifndef BENCH_SUPPORT_LARGEROOT_H
#define BENCH_SUPPORT_LARGEROOT_H

#include <string>

class LargeRoot {
  public:
    static constexpr int TEXT = 10; // a message of one text; so are all that are not counted
    static constexpr int MOST_ARGUMENTS = 64;
    // A message of so many arguments, all but the first decimal: 1 to MOST_ARGUMENTS.
    static constexpr int counted(int arguments) { return TEXT + arguments; }

    explicit LargeRoot(int messages); // at least 100
    ~LargeRoot();
    LargeRoot(const LargeRoot &) = delete;
    LargeRoot &operator=(const LargeRoot &) = delete;
    const char *path() const { return path_.c_str(); }

  private:
    std::string file(const char *name) const { return path_ + "/" + name; }
    void writeFormats(int messages) const;
    void writeTexts(int messages) const;
    void writeSymbols(int messages) const;
    void writeFields(int messages) const;
    std::string path_ = "/tmp/qnbench.XXXXXX";
};

#endif

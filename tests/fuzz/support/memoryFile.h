/* A file in memory that can be opened by its path, and whose contents are replaced at little cost:
   what a target that feeds the library files writes for each input. */
#ifndef FUZZ_SUPPORT_MEMORYFILE_H
#define FUZZ_SUPPORT_MEMORYFILE_H

#include <cstdio>
#include <string>
#include <string_view>

class MemoryFile {
  public:
    MemoryFile();
    ~MemoryFile();
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    const std::string &path() const { return itsPath; }
    void write(std::string_view contents); // in place of what there was

  private:
    int fd;
    std::string itsPath;
};

// What the library says on standard error meanwhile goes nowhere: damaged input is reported once an
// input. Sanitizers and the fuzzer write to the descriptor, and are heard.
class QuietErrors {
  public:
    QuietErrors();
    ~QuietErrors();
    QuietErrors(const QuietErrors &) = delete;
    QuietErrors &operator=(const QuietErrors &) = delete;

  private:
    FILE *heard;
};

#endif

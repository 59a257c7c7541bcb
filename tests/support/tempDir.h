/* A folder of a test's own, removed with all that is in it. */
#ifndef TESTS_SUPPORT_TEMPDIR_H
#define TESTS_SUPPORT_TEMPDIR_H

#include <string>

class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }
    // Writes the bytes whole and returns the file's path.
    std::string write(const std::string &name, const std::string &bytes) const;
    std::string read(const std::string &name) const;

  private:
    std::string path_;
    int owner_; // the process that removes it: a forked child must not
};

#endif

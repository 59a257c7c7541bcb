/* A log root for the benchmarks: one message, a pipe, and a table of destinations under a key of
 * its own. */
#ifndef BENCH_SUPPORT_LOGROOT_H
#define BENCH_SUPPORT_LOGROOT_H

#include <string>

class BenchRoot {
  public:
    static constexpr int NUMBER = 101;
    BenchRoot();
    ~BenchRoot();
    BenchRoot(const BenchRoot &) = delete;
    BenchRoot &operator=(const BenchRoot &) = delete;
    const char *path() const { return path_.c_str(); }
    const char *pipe() const { return pipe_.c_str(); }
    std::string file(const std::string &name) const { return path_ + "/" + name; }
    void makeTable() const; // removed with the root

  private:
    std::string path_ = "/tmp/qnbench.XXXXXX";
    std::string pipe_;
    mutable int segment_ = -1;
};

#endif

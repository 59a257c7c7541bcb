/* Files that others read while they are replaced: a reader finds the old bytes or the new ones,
 * never a part. Each file is written beside its place under a name of its own, flushed to the disk,
 * and renamed there. */
#ifndef TOOLS_COMMON_WHOLEFILES_H
#define TOOLS_COMMON_WHOLEFILES_H

#include <string>
#include <vector>

struct NamedBytes {
    std::string path;
    std::string bytes;
};

/* Replaces the files in the order given, creating folders that are missing. None is renamed before
   all are written, so that a full disk changes nothing. A file that already holds its bytes is left
   alone (its date is what builds go by). Answers how many were replaced; throws WorkFailed. */
size_t writeWholeFiles(const std::vector<NamedBytes> &files);

/* All bytes of a file; throws WorkFailed when it cannot be read. */
std::string readWholeFile(const std::string &path);

#endif

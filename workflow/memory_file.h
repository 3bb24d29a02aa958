// A file held in memory, with a path (/proc/self/fd/N of a memfd) through
// which the library's loaders and savers, which take paths, can read and
// write it.  The tool uses it to hand the library exactly the bytes it has
// checked, and to check what the library's savers wrote (they report only
// whether the file opened) before it goes to disk through an AtomicFile.
// No folder sees it.  Its errors are a reason without a file name ("write
// failed: File too large"); the caller names the file it was for.
#ifndef VRNCAL_WORKFLOW_MEMORY_FILE_H
#define VRNCAL_WORKFLOW_MEMORY_FILE_H

#include <string>
#include <string_view>

namespace vrncal::workflow {

class MemoryFile {
public:
    explicit MemoryFile(std::string_view bytes = {});
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    const std::string& path() const { return path_; }
    void assign(std::string_view bytes);
    std::string bytes() const;

private:
    int fd_ = -1;
    std::string path_;
};

}  // namespace vrncal::workflow

#endif

// Output files that appear whole or not at all: everything is written to a
// temporary file beside the target and renamed over it on commit().  A file
// that is destroyed without commit() removes its temporary file, so a failed
// command leaves the previous file (or none) in place.
#ifndef VRNCAL_WORKFLOW_ATOMIC_FILE_H
#define VRNCAL_WORKFLOW_ATOMIC_FILE_H

#include <cstdio>
#include <string>

namespace vrncal::workflow {

class AtomicFile {
public:
    // Creates the temporary file; throws Error when the directory is not
    // writable.
    explicit AtomicFile(std::string target);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    // The temporary path, for writers that want a path rather than a stream
    // (the library's savers).  Valid until commit() or destruction.
    const std::string& temp_path() const { return temp_; }
    // An open stream on the temporary file; nullptr after close_stream().
    std::FILE* stream() const { return file_; }
    // Closes the stream (for writers that reopen the path themselves).
    void close_stream();
    // Flushes, closes and renames over the target; throws Error on any
    // write error.
    void commit();

private:
    std::string target_;
    std::string temp_;
    std::FILE* file_ = nullptr;
    bool committed_ = false;
};

// Throws Error naming the file unless it is a readable regular file.
void require_readable(const std::string& path);

// Reads a whole file; throws Error naming the file when it cannot.
std::string read_file(const std::string& path);

// True when the file starts with the data file's magic "VRNCLDT".
bool is_data_file(const std::string& path);

}  // namespace vrncal::workflow

#endif

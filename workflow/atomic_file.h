// Output files that are either the old file or the complete new one.
//
// AtomicFile is the one way the tool writes a file.  Writing to a regular
// file (new or existing) goes to a temporary file in the target's folder,
// unnamed while it is written where the file system allows; commit() checks
// every write, flushes, calls fsync, closes and renames it over the target.
// A file destroyed without commit() leaves no trace and the target as it
// was.  Besides:
//   - a symbolic link is followed: its target is replaced, the link kept;
//   - a replaced file keeps its permission bits (and, for root, its owner); a
//     new file gets 0666 less the umask;
//   - a FIFO or character device is written into directly; a FIFO that
//     nothing reads is refused rather than waited for;
//   - a directory, block device or socket is refused, and so is a read-only
//     file (no write permission for anyone), even for root;
//   - the output may not be one of the command's inputs.
// Every failure throws Error with one line naming the target and the reason,
// "cannot create a temporary file in DIR: ..." when that is what failed.
#ifndef VRNCAL_WORKFLOW_ATOMIC_FILE_H
#define VRNCAL_WORKFLOW_ATOMIC_FILE_H

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace vrncal::workflow {

class AtomicFile {
public:
    // Opens the output; throws Error when it cannot be written, or when it is
    // the same file as one of inputs.
    explicit AtomicFile(std::string target, const std::vector<std::string>& inputs = {});
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    const std::string& target() const { return target_; }
    // Writes all the bytes; throws Error on failure.
    void write(std::string_view bytes);
    // The stream behind write(), for writers that want one; a failed write
    // on it is caught by commit() at the latest.
    std::FILE* stream() const { return file_; }
    // Checks, flushes, syncs, closes and renames over the target (or closes
    // the FIFO or device written into); throws Error on any failure, and
    // the target is then as it was.
    void commit();

private:
    [[noreturn]] void fail(const std::string& what, int err);
    void discard();
    std::string target_;    // as the user named it
    std::string resolved_;  // after following symbolic links
    std::string folder_;    // of resolved_
    std::string temp_;      // the temporary file's name, once it has one
    std::FILE* file_ = nullptr;
    bool direct_ = false;   // writing into a FIFO or device
    bool committed_ = false;
};

// Writes a whole file through an AtomicFile.
void write_file(const std::string& path, std::string_view bytes, const std::vector<std::string>& inputs = {});

// True when both paths name the same existing file.
bool same_file(const std::string& a, const std::string& b);

// Removes the named temporary files of uncommitted outputs when the process
// gets SIGINT, SIGTERM or SIGHUP, then ends it by that signal.  For programs
// (the tool); a host with signal handlers of its own does not call it.
void remove_temporary_files_on_signals();

}  // namespace vrncal::workflow

#endif

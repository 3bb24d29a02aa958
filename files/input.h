// Internal: one opened input file, read through one descriptor.
//
// A regular file is read in place through stdio.  Anything else (a FIFO, a
// character device, a socket) cannot be sought and may be readable only
// once, so it is read to its end into memory when opened and then read from
// there: a loader that looks at the magic and then reads the rest as text
// reads the same bytes a regular file would give, and never opens the path a
// second time.
#ifndef VRNCAL_FILES_INPUT_H
#define VRNCAL_FILES_INPUT_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace vrncal_detail {

class Input {
public:
    Input() = default;
    ~Input();
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;
    Input(Input&& other) noexcept;
    Input& operator=(Input&& other) noexcept;

    // Opens path for reading.  Closed (!isOpen()) when it cannot be opened or
    // path is null.  A path that is not a regular file is read whole here,
    // without a bound: an endless device such as /dev/zero grows the buffer
    // until allocation fails (std::bad_alloc).
    static Input open(const char* path);

    // Opens path for reading in place, whatever kind of file it is: a stream
    // then reads only as far as it goes and cannot be sought.
    static Input openInPlace(const char* path);

    // An input over bytes already in memory; they are taken over.
    static Input fromBytes(std::string bytes);

    bool isOpen() const { return file_ != nullptr || inMemory_; }

    // Reads up to n bytes at the current position; returns how many were
    // read (fewer only at the end of the input or on a read error).
    std::size_t read(void* dst, std::size_t n);

    // Moves to an absolute offset; false when that is not possible.  An
    // offset past the end is allowed, later reads then return nothing.
    bool seek(std::int64_t offset);

    // Length in bytes, or -1 when it cannot be told.  Keeps the position.
    std::int64_t length();

    // The whole input when it is held in memory, else an empty view with
    // inMemory() false.
    bool inMemory() const { return inMemory_; }
    std::string_view bytes() const { return std::string_view(data_); }
    std::int64_t position() const { return pos_; }

private:
    std::FILE* file_ = nullptr;
    bool inMemory_ = false;
    std::string data_;
    std::int64_t pos_ = 0;
};

// Splits an input into lines at '\n' only (a CR before it stays in the
// line), as std::getline does: a last line without '\n' counts when it is not
// empty.  Counts lines from 1.  A read error ends the input, as it ends a
// stream read.
class LineReader {
public:
    explicit LineReader(Input& in) : in_(in) {}

    // The next line, valid until the next call; false at the end.
    bool next(std::string_view& line);
    // Number of the line next() returned last.
    std::uint64_t lineNumber() const { return number_; }

private:
    bool refill();

    Input& in_;
    std::string line_;   // a line read from a file, grown to the longest line
    std::string chunk_;  // read-ahead from a file
    std::size_t chunkPos_ = 0;
    std::size_t memPos_ = 0;
    bool started_ = false;
    bool eof_ = false;
    std::uint64_t number_ = 0;
};

}  // namespace vrncal_detail

#endif

// Where a command writes its result: a file, or standard output. Every
// write, the sync and the close are checked, and a failure names the file
// and the reason.
#pragma once

#include <memory>
#include <ostream>
#include <string>

namespace arbolin::cli {

class OutputFile {
public:
    // "" is standard output. A regular file, or one that does not exist
    // yet, is written to a temporary file beside it that commit() renames
    // over it, so that a failure leaves the old file, or none, and never a
    // truncated one. Anything else (a device, a pipe, a link to nothing) is
    // written in place: a rename would replace it with a plain file.
    explicit OutputFile(const std::string& path);
    ~OutputFile();  // without commit(): closes, and removes the temporary file
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    std::ostream& stream() noexcept;
    // Writes out what is buffered and puts the file in place. Throws
    // UserError "cannot write PATH: REASON" at the first failure.
    void commit();

private:
    class Buffer;
    std::string path_;       // as given; "" for standard output
    std::string target_;     // where the data ends up (a link resolved)
    std::string temporary_;  // "" when writing in place
    bool standard_ = false;
    int fd_ = -1;
    std::unique_ptr<Buffer> buffer_;
    std::unique_ptr<std::ostream> stream_;

    [[noreturn]] void fail(int error);
    void closeAndRemove() noexcept;
};

}  // namespace arbolin::cli

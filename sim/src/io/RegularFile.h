#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace tracker {
namespace sim {

// Reads a whole file that the simulator takes as input (a scenario, a capture). Only a regular
// file of at most `limit` bytes is read: a FIFO or a terminal would block the reader, a device
// such as /dev/zero never end, a directory fail in the middle of the read. False, with
// "path: why" in *error (when not null), otherwise.
inline bool readRegularFile(const std::string& path, std::uintmax_t limit, std::string* content,
                            std::string* error) {
    const auto refuse = [&](const std::string& why) {
        if (error != nullptr) {
            *error = path + ": " + why;
        }
        return false;
    };
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return refuse(std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        return refuse("not a regular file");
    }
    if (static_cast<std::uintmax_t>(status.st_size) > limit) {
        return refuse("larger than " + std::to_string(limit) + " bytes");
    }
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        return refuse(std::strerror(errno));
    }
    content->assign(static_cast<std::size_t>(status.st_size), '\0');
    const std::size_t read = std::fread(&(*content)[0], 1, content->size(), file);
    const bool failed = std::ferror(file) != 0;
    std::fclose(file);
    if (failed) {
        return refuse("cannot be read");
    }
    content->resize(read);  // the file may have shrunk since stat()
    return true;
}

}  // namespace sim
}  // namespace tracker

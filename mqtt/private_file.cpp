#include "mqtt/private_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <vector>

namespace corvanis::monitoring_modules::mqtt {

namespace {

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void write_all(int fd, std::string_view content) {
    while (!content.empty()) {
        const auto written = ::write(fd, content.data(), content.size());
        if (written < 0) {
            if (errno == EINTR) continue;
            fail("write");
        }
        content.remove_prefix(static_cast<std::size_t>(written));
    }
}

std::string temp_root() {
    const char* tmp = std::getenv("TMPDIR");
    return tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
}

}  // namespace

private_file::private_file(std::string_view content) {
    // The library reads TLS material by path only. An anonymous memory file keeps a private key
    // off every disk; its path needs /proc, else a 0700 directory of our own stands in.
    fd_ = ::memfd_create("mqtt-tls", MFD_CLOEXEC);
    if (fd_ >= 0 && ::access("/proc/self/fd", F_OK) == 0) {
        try {
            write_all(fd_, content);
        } catch (...) {
            ::close(fd_);
            throw;
        }
        path_ = "/proc/self/fd/" + std::to_string(fd_);
        return;
    }
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
    std::string dir_template = temp_root() + "/mqtt-tls-XXXXXX";
    std::vector<char> dir(dir_template.begin(), dir_template.end());
    dir.push_back('\0');
    if (::mkdtemp(dir.data()) == nullptr) fail("mkdtemp");  // mode 0700
    directory_ = dir.data();
    path_ = directory_ + "/pem";
    const int fd = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    try {
        if (fd < 0) fail("open");
        write_all(fd, content);
        ::close(fd);
    } catch (...) {
        if (fd >= 0) ::close(fd);
        ::unlink(path_.c_str());
        ::rmdir(directory_.c_str());
        throw;
    }
}

private_file::~private_file() {
    if (fd_ >= 0) {
        ::close(fd_);
    } else {
        ::unlink(path_.c_str());
        ::rmdir(directory_.c_str());
    }
}

}  // namespace corvanis::monitoring_modules::mqtt

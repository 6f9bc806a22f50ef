#pragma once

#include <string>
#include <string_view>

namespace corvanis::monitoring_modules::mqtt {

// Secret text that a library only accepts as a file name (PEM certificates and keys). Held in
// an anonymous memory file reached as /proc/self/fd/N, or, where that is unavailable, in a
// 0600 file inside a 0700 directory of its own. Either is gone when this object is.
// Throws std::system_error when neither can be made.
class private_file {
  public:
    explicit private_file(std::string_view content);
    ~private_file();
    private_file(const private_file&) = delete;
    private_file& operator=(const private_file&) = delete;

    // Valid for this object's life.
    const std::string& path() const noexcept { return path_; }

  private:
    int fd_ = -1;            // the memory file, or -1
    std::string directory_;  // the fallback directory, or empty
    std::string path_;
};

}  // namespace corvanis::monitoring_modules::mqtt

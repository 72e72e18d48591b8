#include "files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

namespace vetext_tool {
namespace {

std::string Reason(int err) {
  return std::strerror(err);
}

std::string Megabytes(uint64_t bytes) {
  return std::to_string((bytes + (1 << 20) - 1) >> 20) + " MiB";
}

}  // namespace

bool ReadInputFile(const std::string& path, uint64_t limit, std::vector<uint8_t>* bytes,
                   std::string* error) {
  const bool std_in = path.empty() || path == "-";
  const std::string name = std_in ? "standard input" : "'" + path + "'";
  const int fd = std_in ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    *error = "cannot open " + name + ": " + Reason(errno);
    return false;
  }
  struct stat st {};
  bool ok = ::fstat(fd, &st) == 0;
  if (!ok) {
    *error = "cannot read " + name + ": " + Reason(errno);
  } else if (S_ISDIR(st.st_mode)) {
    *error = name + " is a folder, not a file";
    ok = false;
  } else if (S_ISREG(st.st_mode) && uint64_t(st.st_size) > limit) {
    *error = name + " is " + Megabytes(uint64_t(st.st_size)) + ", more than the " +
             Megabytes(limit) + " a file of this kind may have";
    ok = false;
  }
  bytes->clear();
  // Chunks up to one byte past the limit, so that an endless stream is caught as too long.
  while (ok) {
    const size_t chunk = 1 << 16, at = bytes->size();
    bytes->resize(at + chunk);
    const ssize_t n = ::read(fd, bytes->data() + at, chunk);
    if (n < 0 && errno == EINTR) {
      bytes->resize(at);
      continue;
    }
    if (n < 0) {
      *error = "cannot read " + name + ": " + Reason(errno);
      ok = false;
      bytes->resize(at);
      break;
    }
    bytes->resize(at + size_t(n));
    if (n == 0) break;
    if (bytes->size() > limit) {
      *error =
          name + " goes on past " + Megabytes(limit) + ", more than a file of this kind may have";
      ok = false;
    }
  }
  if (!std_in) ::close(fd);
  if (!ok) bytes->clear();
  return ok;
}

bool SameFile(const std::string& a, const std::string& b) {
  struct stat sa {
  }, sb{};
  return ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
         sa.st_ino == sb.st_ino;
}

OutputFile::~OutputFile() {
  Discard();
}

bool OutputFile::Create(const std::string& path, std::string* error) {
  Discard();
  path_ = path;
  const size_t slash = path.find_last_of('/');
  const std::string dir = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  if (name.empty()) {
    *error = "cannot write '" + path + "': no file name";
    return false;
  }
  struct stat st {};
  if (::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
    *error = "cannot write '" + path + "': it is a folder";
    return false;
  }
  std::random_device rd;
  for (int attempt = 0; attempt < 16; ++attempt) {
    char tag[8];
    std::snprintf(tag, sizeof tag, "%06x", unsigned(rd() & 0xFFFFFF));
    const std::string temp = dir + "." + name + "." + tag + ".part";
    const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0) {
      ::close(fd);
      temp_ = temp;
      return true;
    }
    if (errno != EEXIST) {
      *error = "cannot write '" + path + "': " + Reason(errno);
      return false;
    }
  }
  *error = "cannot write '" + path + "': no free temporary name beside it";
  return false;
}

bool OutputFile::Commit(std::string* error) {
  if (temp_.empty()) {
    *error = "cannot write '" + path_ + "': nothing was written";
    return false;
  }
  if (::rename(temp_.c_str(), path_.c_str()) != 0) {
    *error = "cannot write '" + path_ + "': " + Reason(errno);
    Discard();
    return false;
  }
  temp_.clear();
  return true;
}

void OutputFile::Discard() {
  if (!temp_.empty()) ::unlink(temp_.c_str());
  temp_.clear();
}

bool WriteOutputFile(const std::string& path, const void* data, size_t size, std::string* error) {
  OutputFile out;
  if (!out.Create(path, error)) return false;
  const int fd = ::open(out.temp_path().c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  if (fd < 0) {
    *error = "cannot write '" + path + "': " + Reason(errno);
    return false;
  }
  const auto* p = static_cast<const uint8_t*>(data);
  int err = 0;
  for (size_t done = 0; done < size && err == 0;) {
    const ssize_t n = ::write(fd, p + done, size - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0)
      err = n < 0 ? errno : ENOSPC;
    else
      done += size_t(n);
  }
  if (::close(fd) != 0 && err == 0) err = errno;
  if (err != 0) {
    *error = "cannot write '" + path + "': " + Reason(err);
    return false;
  }
  return out.Commit(error);
}

}  // namespace vetext_tool

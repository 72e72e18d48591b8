// Files the tool reads and writes, so that no input can hang or exhaust it and no failure costs
// the user a file: inputs are checked before they are read and read with a limit; outputs are
// written beside their destination and renamed into place only when complete.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vetext_tool {

// Projects, documents and dictionaries: far above any real one (a long document is kilobytes).
constexpr uint64_t kMaxDocumentFileBytes = uint64_t(64) << 20;

// Reads a whole file of at most `limit` bytes; "" or "-" is standard input. A folder, a file
// over the limit or a stream that goes past it (a device, a pipe) is refused with a message
// naming the path, before more than `limit` + 1 bytes are read.
bool ReadInputFile(const std::string& path, uint64_t limit, std::vector<uint8_t>* bytes,
                   std::string* error);

// True when both paths name one existing file (the same device and inode).
bool SameFile(const std::string& a, const std::string& b);

// A temporary file beside a destination: `.NAME.XXXXXX.part` in the same folder, so that Commit
// replaces the destination in one step and a reader never sees a partial file. Removed on
// destruction unless committed, so a failure or an interrupt leaves the destination as it was.
// Not thread-safe; one writer at a time.
class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Creates the empty temporary file (mode 0666 less the umask, as a new file would get). False
  // with a message naming `path` when its folder cannot take it.
  bool Create(const std::string& path, std::string* error);
  const std::string& path() const { return path_; }
  const std::string& temp_path() const { return temp_; }
  // Renames the temporary file over the destination. False with a message; the temporary file
  // is removed then.
  bool Commit(std::string* error);
  // Removes the temporary file now.
  void Discard();

 private:
  std::string path_, temp_;
};

// Writes `size` bytes to `path` through an OutputFile, checking every write and the close (a
// full disk is reported, never written as a short file).
bool WriteOutputFile(const std::string& path, const void* data, size_t size, std::string* error);
inline bool WriteOutputFile(const std::string& path, const std::string& bytes, std::string* error) {
  return WriteOutputFile(path, bytes.data(), bytes.size(), error);
}

}  // namespace vetext_tool

// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <sys/types.h>
#include <time.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/URL.h"

/// The file manager: every operation takes file URLs and throws `FileError` unless it says otherwise.
namespace tidewell::files {

// --- Questions -------------------------------------------------------------------------------------------

/// Follows links; false on any failure.
bool exists(const URL& url);
/// A regular file that this user may execute; false on any failure.
bool isExecutableFile(const URL& url);

struct ResourceValues {
  bool isRegularFile = false;
  bool isSymbolicLink = false;
  bool isDirectory = false;
  std::int64_t bytes = 0;
  std::int64_t modifiedAt = 0;  ///< nanoseconds since 1970
  std::int64_t changedAt = 0;   ///< the same; nobody can set it
  std::uint64_t device = 0, inode = 0;
  uid_t owner = 0;

  bool operator==(const ResourceValues&) const = default;
};
/// Of the entry itself: a link is not followed.
ResourceValues resourceValues(const URL& url);

/// Whether the entry lies below the directory, by whatever way its path leads there: links, "..", other
/// mounts of one tree. Never below one that is not there.
bool liesBelow(const URL& url, const URL& directory);

/// When a file's content was last read and changed.
struct Times {
  timespec accessed{}, modified{};
};
/// Of the entry itself.
Times times(const URL& url);

/// A process holds the regular file open for writing. False where the kernel does not tell: it refuses a read
/// lease, which is asked for and given back, on files of other users and on some file systems.
bool isOpenForWriting(const URL& url);

/// Entries in the order the kernel lists them, "." and ".." left out.
std::vector<std::string> namesInDirectory(const URL& directory);
/// Of an open directory; `directory` is for messages.
std::vector<std::string> namesInDirectory(Descriptor descriptor, const URL& directory);
std::vector<URL> contentsOfDirectory(const URL& directory);
using DirectoryVisitor = std::function<void(std::string_view name, bool isDirectory)>;
/// Calls `visit` for each of them, with whether the entry itself is a directory.
void visitDirectory(const URL& directory, const DirectoryVisitor& visit);

// --- Reading and writing ---------------------------------------------------------------------------------

/// Where we may ask that, reading does not count as a use of the file: its time of access stays.
Descriptor openForReading(const URL& url);
/// Up to `size` bytes at the descriptor's position; fewer only at the end of the file.
std::size_t readFully(int descriptor, void* buffer, std::size_t size, const URL& url);
void writeFully(int descriptor, const void* data, std::size_t size, const URL& url);

/// The file's head, at most `maximumBytes`.
std::string read(const URL& url, std::size_t maximumBytes = std::numeric_limits<std::size_t>::max());

enum class Durability {
  cached,   ///< complete or absent for every reader, but a power loss may take it
  flushed,  ///< on the disk, with its name, when the call returns
};
/// Complete or absent: the data goes to a temporary file beside `url` that is renamed over it. Keeps the
/// mode of a file that is replaced; a new one gets `mode` as the umask leaves it.
void writeAtomically(const URL& url, std::string_view data, Durability durability = Durability::flushed,
                     mode_t mode = 0666);

/// Waits until the file's data, or the directory's entries, are on the disk. A file system that cannot
/// flush a directory (EINVAL) is not an error.
void flush(const URL& url);

// --- The tree --------------------------------------------------------------------------------------------

/// One directory; its parent must exist and it must not.
void createDirectory(const URL& url, mode_t mode = 0777);
/// With missing parents; an existing directory is no error. Flushed, what had to be made is on the disk when
/// the call returns: whoever finds it later relies on that.
void createDirectories(const URL& url, mode_t mode = 0777, Durability durability = Durability::flushed);
/// A file, a link or a whole tree, however deep; links inside are removed, not followed. Stops at the first
/// failure; nothing there is one.
void removeItem(const URL& url);
/// `removeItem` with every failure ignored.
void removeItemIfPossible(const URL& url) noexcept;

/// A byte copy of a regular file: data by reflink, `copy_file_range` or plain reads, then owner and group
/// where permitted, mode, extended attributes (access control lists among them) and times. The destination
/// must not exist. Data and metadata are flushed; the caller flushes the directory. Nothing is left at the
/// destination after a failure.
void copyItem(const URL& from, const URL& to);
using DataVisitor = std::function<void(std::string_view data)>;
/// The same by reflink, then false, or by plain reads, all of which `visit` sees.
bool copyItem(const URL& from, const URL& to, const DataVisitor& visit);

/// Gives `to` the owner, group (where permitted), mode and extended attributes of `from`; times stay. An
/// owner, a user's own attribute or an access control list that cannot be carried over is an error. A group
/// that cannot be kept does not pass its rights on to another.
void copyAttributes(const URL& from, const URL& to);

void setTimes(const URL& url, const Times& times);

/// Removes a directory tree at the end of a scope; failures are ignored.
class TemporaryTree {
 public:
  explicit TemporaryTree(URL url) : url_(std::move(url)) {}
  TemporaryTree(const TemporaryTree&) = delete;
  TemporaryTree& operator=(const TemporaryTree&) = delete;
  ~TemporaryTree() { removeItemIfPossible(url_); }
  const URL& url() const { return url_; }

 private:
  URL url_;
};

}  // namespace tidewell::files

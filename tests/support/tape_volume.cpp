// A model of a mounted tape volume: shows a directory as the file system of a tape drive would.
//
//     tape_volume DIRECTORY MOUNTPOINT LAYOUT ACCOUNT
//
// LAYOUT tells where files lie on tape, a line each: PARTITION BLOCK PATH-BELOW-DIRECTORY. ACCOUNT gets a
// line with such a path for every stretch of a file that was read in one go.
//
// Stays in the foreground until it gets SIGTERM. Prints "mounted" once it is; ends with 3 when mounting is
// refused.
//
// Files and directories have the volume's virtual attributes: listed, readable, not to be set. Attributes of
// the directory's own files are passed through.
#define FUSE_USE_VERSION 31
#include <dirent.h>
#include <fcntl.h>
#include <fuse.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace {

constexpr int kMountRefused = 3;

using Attributes = std::map<std::string, std::string>;

bool isVirtual(std::string_view attribute) { return attribute.starts_with("user.ltfs."); }

// As the file system interface wants results: not negative, or a negated errno.
template <class Result>
int outcome(Result result) {
  return result < 0 ? -errno : static_cast<int>(result);
}

// Gives an attribute's value or a list of names as getxattr(2) does.
int give(const std::string& value, char* to, std::size_t size) {
  if (size != 0 && size < value.size()) return -ERANGE;
  if (size != 0) value.copy(to, value.size());
  return static_cast<int>(value.size());
}

// All paths are those on the volume, "/" is its root. One thread.
class Volume {
 public:
  Volume(std::string directory, const char* layoutFile, const char* accountFile)
      : directory_(std::move(directory)), account_(accountFile) {
    std::ifstream layout(layoutFile);
    std::string partition;
    std::string block;
    for (std::string path; layout >> partition >> block && std::getline(layout >> std::ws, path);) {
      positions_["/" + path] = {{"user.ltfs.partition", partition}, {"user.ltfs.startblock", block}};
    }
  }

  std::string backing(const char* path) const { return directory_ + path; }

  int open(const char* path, int flags, mode_t mode, fuse_file_info* info) const {
    const int fd = ::open(backing(path).c_str(), (flags & ~O_NOFOLLOW) | O_CLOEXEC, mode);
    if (fd < 0) return -errno;
    info->fh = static_cast<std::uint64_t>(fd);
    return 0;
  }

  int read(const char* path, int fd, char* to, std::size_t size, off_t offset) {
    const ssize_t n = pread(fd, to, size, offset);
    if (n <= 0) return outcome(n);
    if (path != readPath_ || offset != readTo_) account_ << path + 1 << '\n';
    readPath_ = path;
    readTo_ = offset + n;
    return static_cast<int>(n);
  }

  int getAttribute(const char* path, const char* name, char* to, std::size_t size) const {
    if (!isVirtual(name)) return outcome(lgetxattr(backing(path).c_str(), name, to, size));
    const Attributes all = virtualAttributes(path);
    const auto found = all.find(name);
    return found == all.end() ? -ENODATA : give(found->second, to, size);
  }

  int listAttributes(const char* path, char* to, std::size_t size) const {
    std::string names(XATTR_LIST_MAX, '\0');
    const ssize_t n = llistxattr(backing(path).c_str(), names.data(), names.size());
    if (n < 0) return -errno;
    names.resize(static_cast<std::size_t>(n));
    for (const auto& [name, value] : virtualAttributes(path)) names += name + '\0';
    return give(names, to, size);
  }

 private:
  Attributes virtualAttributes(const char* path) const {
    Attributes all = {{"user.ltfs.softwareVendor", "VOQ"},
                      {"user.ltfs.volumeUUID", "30a91a08-daae-48d1-ae75-69804e61d2ea"},
                      {"user.ltfs.volumeBlocksize", "524288"}};
    if (const auto found = positions_.find(path); found != positions_.end()) {
      all.insert(found->second.begin(), found->second.end());
    }
    return all;
  }

  const std::string directory_;
  std::map<std::string, Attributes> positions_;
  std::ofstream account_;
  std::string readPath_;  // of the file read last
  off_t readTo_ = 0;      // where that ended
};

Volume& volume() { return *static_cast<Volume*>(fuse_get_context()->private_data); }
std::string backing(const char* path) { return volume().backing(path); }

// The descriptor of an open file; 0: there is none.
int descriptor(const fuse_file_info* info) { return info == nullptr ? 0 : static_cast<int>(info->fh); }

void addFileOperations(fuse_operations& ops) {
  ops.open = [](const char* path, fuse_file_info* info) { return volume().open(path, info->flags, 0, info); };
  ops.create = [](const char* path, mode_t mode, fuse_file_info* info) {
    return volume().open(path, info->flags | O_CREAT, mode, info);
  };
  ops.read = [](const char* path, char* to, std::size_t size, off_t offset, fuse_file_info* info) {
    return volume().read(path, descriptor(info), to, size, offset);
  };
  ops.write = [](const char*, const char* from, std::size_t size, off_t offset, fuse_file_info* info) {
    return outcome(pwrite(descriptor(info), from, size, offset));
  };
  ops.release = [](const char*, fuse_file_info* info) { return outcome(close(descriptor(info))); };
  ops.getattr = [](const char* path, struct stat* status, fuse_file_info* info) {
    const int fd = descriptor(info);
    return outcome(fd > 0 ? fstat(fd, status) : lstat(backing(path).c_str(), status));
  };
  ops.truncate = [](const char* path, off_t size, fuse_file_info* /*info*/) {
    return outcome(truncate(backing(path).c_str(), size));
  };
  ops.utimens = [](const char* path, const timespec times[2], fuse_file_info* /*info*/) {
    return outcome(utimensat(AT_FDCWD, backing(path).c_str(), times, AT_SYMLINK_NOFOLLOW));
  };
}

void addDirectoryOperations(fuse_operations& ops) {
  ops.mkdir = [](const char* path, mode_t mode) { return outcome(mkdir(backing(path).c_str(), mode)); };
  ops.readdir = [](const char* path, void* to, fuse_fill_dir_t fill, off_t, fuse_file_info*,
                   fuse_readdir_flags) {
    dirent** entries = nullptr;
    const int count = scandir(backing(path).c_str(), &entries, nullptr, alphasort);
    if (count < 0) return -errno;
    for (int i = 0; i < count; ++i) {
      fill(to, entries[i]->d_name, nullptr, 0, fuse_fill_dir_flags{});
      std::free(entries[i]);
    }
    std::free(entries);
    return 0;
  };
}

fuse_operations operations() {
  fuse_operations ops{};
  ops.init = [](fuse_conn_info*, fuse_config* config) -> void* {
    config->use_ino = 1;    // a file stays itself however often it is looked up
    config->direct_io = 1;  // each read of a program comes to the drive
    return &volume();
  };
  addFileOperations(ops);
  addDirectoryOperations(ops);
  ops.getxattr = [](const char* path, const char* name, char* to, std::size_t size) {
    return volume().getAttribute(path, name, to, size);
  };
  ops.listxattr = [](const char* path, char* to, std::size_t size) {
    return volume().listAttributes(path, to, size);
  };
  ops.setxattr = [](const char* path, const char* name, const char* value, std::size_t size, int flags) {
    return isVirtual(name) ? -EACCES : outcome(lsetxattr(backing(path).c_str(), name, value, size, flags));
  };
  return ops;
}

// Serves until it is told to end. Returns the program's exit status.
int serve(Volume& served, const char* program, const char* mountPoint) {
  const fuse_operations ops = operations();
  fuse_args args = FUSE_ARGS_INIT(0, nullptr);
  for (const char* arg : {program, "-o", "default_permissions,fsname=tape_volume"})
    fuse_opt_add_arg(&args, arg);
  fuse* const made = fuse_new(&args, &ops, sizeof(ops), &served);
  fuse_opt_free_args(&args);
  if (made == nullptr) return 1;
  int status = kMountRefused;
  if (fuse_mount(made, mountPoint) == 0) {
    fuse_set_signal_handlers(fuse_get_session(made));
    std::printf("mounted\n");
    std::fflush(stdout);
    status = fuse_loop(made) < 0 ? 1 : 0;
    fuse_remove_signal_handlers(fuse_get_session(made));
    fuse_unmount(made);
  }
  fuse_destroy(made);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: %s DIRECTORY MOUNTPOINT LAYOUT ACCOUNT\n", argv[0]);
    return 2;
  }
  umask(0);
  Volume served(argv[1], argv[3], argv[4]);
  return serve(served, argv[0], argv[2]);
}

// A model of a mounted tape volume: shows a directory as the file system of a tape drive would.
//
//     tape_volume [OPTION...] DIRECTORY MOUNTPOINT        options: see tape_volume_settings.h
//
// Stays in the foreground until it is unmounted (or gets SIGTERM). Prints "mounted" once it is; ends with 3
// when mounting is refused.
//
// Files and directories have the volume's virtual attributes: listed, readable, not to be set. Attributes of
// the directory's own files are passed through but for those with the prefix of virtual ones.
#define FUSE_USE_VERSION 31
#include <dirent.h>
#include <fcntl.h>
#include <fuse.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "model/tape_account.h"
#include "model/tape_volume_settings.h"

namespace {

using tamrix::model::Account;
using tamrix::model::takeOption;
using Position = Account::Position;
using Settings = tamrix::model::TapeVolumeSettings;

constexpr int kMountRefused = 3;
constexpr std::string_view kVirtualPrefix = "user.ltfs.";

struct OpenFile {
  int fd;
  std::string path;          // on the volume
  const Position* position;  // none: not on tape
};

// Whether an operation comes with an open file: there may be none, or an open directory.
bool isOpen(const fuse_file_info* info) { return info != nullptr && info->fh != 0; }

// As the file system interface wants results: not negative, or a negated errno.
template <class Result>
int outcome(Result result) {
  return result < 0 ? -errno : static_cast<int>(result);
}

// All paths are those on the volume, "/" is its root. One thread.
class Volume {
 public:
  Volume(Settings settings, std::string directory)
      : settings_(std::move(settings)), directory_(std::move(directory)) {
    std::ifstream layout(settings_.layoutFile);
    Position position;
    for (std::string path;
         layout >> position.partition >> position.block && std::getline(layout >> std::ws, path);) {
      layout_["/" + path] = position;
    }
  }

  std::string backing(const char* path) const { return directory_ + path; }

  int open(const char* path, int flags, mode_t mode, fuse_file_info* info) {
    const int fd = ::open(backing(path).c_str(), (flags & ~O_NOFOLLOW) | O_CLOEXEC, mode);
    if (fd < 0) return -errno;
    const auto found = layout_.find(path);
    info->fh = ++lastHandle_;
    open_[info->fh] = {fd, path + 1, found == layout_.end() ? nullptr : &found->second};
    return 0;
  }

  // REQUIRES: isOpen
  OpenFile& openFile(const fuse_file_info* info) { return open_.at(info->fh); }

  int release(const fuse_file_info* info) {
    const int fd = openFile(info).fd;
    open_.erase(info->fh);
    return outcome(close(fd));
  }

  int read(const OpenFile& file, char* to, std::size_t size, std::int64_t offset) {
    const ssize_t n = pread(file.fd, to, size, offset);
    if (n <= 0 || file.position == nullptr) return outcome(n);
    account_.locate(file.path, *file.position, offset);
    const std::int64_t good = std::min<std::int64_t>(n, goodBytes(*file.position, offset));
    account_.read(good);
    return good > 0 ? static_cast<int>(good) : -EIO;
  }

  int getAttribute(const char* path, const std::string& name, char* to, std::size_t size) const {
    if (!name.starts_with(kVirtualPrefix)) {
      const int got = outcome(lgetxattr(backing(path).c_str(), name.c_str(), to, size));
      return got >= 0 && name == settings_.badAttribute ? -EIO : got;
    }
    const std::map<std::string, std::string> all = virtualAttributes(path);
    const auto found = all.find(name);
    if (found == all.end()) return -ENODATA;
    if (name == settings_.badAttribute) return -EIO;
    return give(found->second, to, size);
  }

  int listAttributes(const char* path, char* to, std::size_t size) const {
    std::string own(XATTR_LIST_MAX, '\0');
    const ssize_t n = llistxattr(backing(path).c_str(), own.data(), own.size());
    if (n < 0) return -errno;
    std::string names;
    for (const char* name = own.data(); name < own.data() + n; name += std::strlen(name) + 1) {
      if (!std::string_view(name).starts_with(kVirtualPrefix)) names.append(name, std::strlen(name) + 1);
    }
    for (const auto& [name, value] : virtualAttributes(path)) names += name + '\0';
    return give(names, to, size);
  }

  Account& account() { return account_; }

 private:
  static int give(const std::string& value, char* to, std::size_t size) {
    if (size != 0 && size < value.size()) return -ERANGE;
    if (size != 0) value.copy(to, value.size());
    return static_cast<int>(value.size());
  }

  // How much can be read behind `offset` of the file at `position` before a bad block comes.
  std::int64_t goodBytes(const Position& position, std::int64_t offset) const {
    const auto bad =
        settings_.badBlocks.lower_bound({position.partition, position.block + offset / settings_.blockSize});
    if (bad == settings_.badBlocks.end() || bad->partition != position.partition) return INT64_MAX;
    return std::max<std::int64_t>(0, (bad->block - position.block) * settings_.blockSize - offset);
  }

  std::map<std::string, std::string> virtualAttributes(const char* path) const {
    std::map<std::string, std::string> all = {
        {"user.ltfs.softwareVendor", settings_.vendor},
        {"user.ltfs.volumeUUID", settings_.uuid},
        {"user.ltfs.volumeBlocksize", std::to_string(settings_.blockSize)}};
    if (const auto found = layout_.find(path); found != layout_.end()) {
      all["user.ltfs.partition"] = found->second.partition;
      all["user.ltfs.startblock"] = std::to_string(found->second.block);
    }
    return all;
  }

  const Settings settings_;
  const std::string directory_;
  std::map<std::string, Position> layout_;
  std::unordered_map<std::uint64_t, OpenFile> open_;  // by handle; the kernel may unmount before it releases
  std::uint64_t lastHandle_ = 0;
  Account account_{*settings_.generation, settings_.blockSize, settings_.delay};
};

Volume& volume() { return *static_cast<Volume*>(fuse_get_context()->private_data); }
std::string backing(const char* path) { return volume().backing(path); }
OpenFile& openFile(const fuse_file_info* info) { return volume().openFile(info); }
bool isVirtual(const char* attribute) { return std::string_view(attribute).starts_with(kVirtualPrefix); }

void addFileOperations(fuse_operations& ops) {
  ops.open = [](const char* path, fuse_file_info* info) { return volume().open(path, info->flags, 0, info); };
  ops.create = [](const char* path, mode_t mode, fuse_file_info* info) {
    return volume().open(path, info->flags | O_CREAT, mode, info);
  };
  ops.read = [](const char*, char* to, std::size_t size, off_t offset, fuse_file_info* info) {
    return volume().read(openFile(info), to, size, offset);
  };
  ops.write = [](const char*, const char* from, std::size_t size, off_t offset, fuse_file_info* info) {
    return outcome(pwrite(openFile(info).fd, from, size, offset));
  };
  ops.release = [](const char*, fuse_file_info* info) { return volume().release(info); };
  ops.getattr = [](const char* path, struct stat* status, fuse_file_info* info) {
    return outcome(isOpen(info) ? fstat(openFile(info).fd, status) : lstat(backing(path).c_str(), status));
  };
  ops.truncate = [](const char* path, off_t size, fuse_file_info* info) {
    return outcome(isOpen(info) ? ftruncate(openFile(info).fd, size) : truncate(backing(path).c_str(), size));
  };
  ops.chmod = [](const char* path, mode_t mode, fuse_file_info* info) {
    return outcome(isOpen(info) ? fchmod(openFile(info).fd, mode) : chmod(backing(path).c_str(), mode));
  };
  ops.utimens = [](const char* path, const timespec times[2], fuse_file_info* info) {
    return outcome(isOpen(info) ? futimens(openFile(info).fd, times)
                                : utimensat(AT_FDCWD, backing(path).c_str(), times, AT_SYMLINK_NOFOLLOW));
  };
  ops.unlink = [](const char* path) { return outcome(unlink(backing(path).c_str())); };
}

void addDirectoryOperations(fuse_operations& ops) {
  ops.mkdir = [](const char* path, mode_t mode) { return outcome(mkdir(backing(path).c_str(), mode)); };
  ops.rmdir = [](const char* path) { return outcome(rmdir(backing(path).c_str())); };
  ops.statfs = [](const char* path, struct statvfs* to) {
    return outcome(statvfs(backing(path).c_str(), to));
  };
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

void addAttributeOperations(fuse_operations& ops) {
  ops.getxattr = [](const char* path, const char* name, char* to, std::size_t size) {
    return volume().getAttribute(path, name, to, size);
  };
  ops.listxattr = [](const char* path, char* to, std::size_t size) {
    return volume().listAttributes(path, to, size);
  };
  ops.setxattr = [](const char* path, const char* name, const char* value, std::size_t size, int flags) {
    return isVirtual(name) ? -EACCES : outcome(lsetxattr(backing(path).c_str(), name, value, size, flags));
  };
  ops.removexattr = [](const char* path, const char* name) {
    return isVirtual(name) ? -EACCES : outcome(lremovexattr(backing(path).c_str(), name));
  };
}

fuse_operations operations() {
  fuse_operations ops{};
  ops.init = [](fuse_conn_info*, fuse_config* config) -> void* {
    config->use_ino = 1;      // a file stays itself however often it is looked up
    config->direct_io = 1;    // each read of a program comes to the drive
    config->hard_remove = 1;  // no hidden copies of what is removed while open
    return &volume();
  };
  addFileOperations(ops);
  addDirectoryOperations(ops);
  addAttributeOperations(ops);
  return ops;
}

// Serves until unmounted. Returns the program's exit status.
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
    std::printf("mounted\n");
    std::fflush(stdout);
    fuse_set_signal_handlers(fuse_get_session(made));
    status = fuse_loop(made) < 0 ? 1 : 0;
    fuse_remove_signal_handlers(fuse_get_session(made));
    fuse_unmount(made);
  }
  fuse_destroy(made);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  Settings settings;
  int next = 1;
  while (next < argc && takeOption(argv[next], settings)) ++next;
  if (argc - next != 2) {
    std::fprintf(stderr, "usage: %s [OPTION...] DIRECTORY MOUNTPOINT\n", argv[0]);
    return 2;
  }
  umask(0);
  Volume served(settings, argv[next]);
  const int status = serve(served, argv[0], argv[next + 1]);
  if (!settings.accountFile.empty()) std::ofstream(settings.accountFile) << served.account().finish();
  return status;
}

// A model of a mounted tape volume: shows a directory as the file system of a tape drive would.
//
//     tape_volume [OPTION...] DIRECTORY MOUNTPOINT        options: see tape_volume_settings.h
//
// Stays in the foreground until it is unmounted (or gets SIGTERM). Prints "mounted" once it is; ends with 3
// when mounting is refused.
//
// Files and directories have the volume's virtual attributes: listed, readable, not to be set. Attributes of
// the directory's own files are passed through but for those with the prefix of virtual ones.
//
// With -stream, files are full of zeros that take no room, and reading and writing them take the time of a
// tape that is read or written from its beginning on, or of a disk; see model/stream.h.
#define FUSE_USE_VERSION 31
#include <dirent.h>
#include <fcntl.h>
#include <fuse.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "model/volume_files.h"

namespace {

using tamrix::model::outcome;
using tamrix::model::takeOption;
using tamrix::model::VolumeFiles;
using Settings = tamrix::model::TapeVolumeSettings;

constexpr int kMountRefused = 3;

// Whether an operation comes with an open file: there may be none, or an open directory.
bool isOpen(const fuse_file_info* info) { return info != nullptr && info->fh != 0; }

VolumeFiles& volume() { return *static_cast<VolumeFiles*>(fuse_get_context()->private_data); }
std::string backing(const char* path) { return volume().backing(path); }
VolumeFiles::OpenFile& openFile(const fuse_file_info* info) { return volume().openFile(info->fh); }

void addFileOperations(fuse_operations& ops) {
  ops.open = [](const char* path, fuse_file_info* info) {
    return volume().open(path, info->flags, 0, info->fh);
  };
  ops.create = [](const char* path, mode_t mode, fuse_file_info* info) {
    return volume().open(path, info->flags | O_CREAT, mode, info->fh);
  };
  ops.read = [](const char*, char* to, std::size_t size, off_t offset, fuse_file_info* info) {
    return volume().read(openFile(info), to, size, offset);
  };
  ops.write = [](const char*, const char* from, std::size_t size, off_t offset, fuse_file_info* info) {
    return volume().write(openFile(info), from, size, offset);
  };
  ops.release = [](const char*, fuse_file_info* info) { return volume().release(info->fh); };
  ops.getattr = [](const char* path, struct stat* status, fuse_file_info* info) {
    const int result = isOpen(info) ? fstat(openFile(info).fd, status) : lstat(backing(path).c_str(), status);
    if (result == 0) volume().correctBlocks(status);
    return outcome(result);
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
  ops.chown = [](const char* path, uid_t owner, gid_t group, fuse_file_info*) {
    return outcome(lchown(backing(path).c_str(), owner, group));
  };
  ops.rename = [](const char* from, const char* to, unsigned flags) {
    return outcome(renameat2(AT_FDCWD, backing(from).c_str(), AT_FDCWD, backing(to).c_str(), flags));
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
    return volume().isVirtual(name) ? -EACCES
                                    : outcome(lsetxattr(backing(path).c_str(), name, value, size, flags));
  };
  ops.removexattr = [](const char* path, const char* name) {
    return volume().isVirtual(name) ? -EACCES : outcome(lremovexattr(backing(path).c_str(), name));
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
int serve(VolumeFiles& served, const char* program, const char* mountPoint) {
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
  VolumeFiles served(settings, argv[next]);
  const int status = serve(served, argv[0], argv[next + 1]);
  if (!settings.accountFile.empty()) std::ofstream(settings.accountFile) << served.finish();
  return status;
}

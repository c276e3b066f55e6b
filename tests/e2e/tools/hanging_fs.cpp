// A file system for tests that stops answering on demand, like a network
// mount whose server went away. The root holds one folder, "slow", with
// fifty files. While the gate file (a path outside the mount, given on the
// command line) exists, every look into "slow" (stat, open, listing) waits
// until the gate is removed.
//
// Usage: hanging_fs GATE MOUNTPOINT [fuse options...]   (run as root, -f)

#define FUSE_USE_VERSION 31

#include <fuse.h>

#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

enum { kFiles = 50 };

static const char* gate;

static int insideSlow(const char* path) { return strncmp(path, "/slow", 5) == 0 && (path[5] == 0 || path[5] == '/'); }

static void waitForTheGate(const char* path) {
    if (!insideSlow(path)) return;
    const struct timespec pause = {0, 20 * 1000 * 1000};
    while (access(gate, F_OK) == 0) nanosleep(&pause, nullptr);
}

// "/slow/fileNN" -> NN in 1..kFiles, else 0.
static int fileNumber(const char* path) {
    int number = 0;
    char rest = 0;
    if (sscanf(path, "/slow/file%02d%c", &number, &rest) != 1) return 0;
    return number >= 1 && number <= kFiles ? number : 0;
}

static int getattrOf(const char* path, struct stat* status, struct fuse_file_info*) {
    waitForTheGate(path);
    memset(status, 0, sizeof *status);
    if (strcmp(path, "/") == 0 || strcmp(path, "/slow") == 0) {
        status->st_mode = S_IFDIR | 0755;
        status->st_nlink = 2;
        return 0;
    }
    if (fileNumber(path)) {
        status->st_mode = S_IFREG | 0644;
        status->st_nlink = 1;
        return 0;
    }
    return -ENOENT;
}

static int openFolder(const char* path, struct fuse_file_info*) {
    waitForTheGate(path);
    return strcmp(path, "/") == 0 || strcmp(path, "/slow") == 0 ? 0 : -ENOTDIR;
}

static int list(const char* path, void* buffer, fuse_fill_dir_t fill, off_t, struct fuse_file_info*,
                enum fuse_readdir_flags) {
    waitForTheGate(path);
    fill(buffer, ".", nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
    fill(buffer, "..", nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
    if (strcmp(path, "/") == 0) {
        fill(buffer, "slow", nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
        return 0;
    }
    if (strcmp(path, "/slow") != 0) return -ENOENT;
    for (int i = 1; i <= kFiles; ++i) {
        char name[16];
        snprintf(name, sizeof name, "file%02d", i);
        fill(buffer, name, nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
    }
    return 0;
}

static int openFile(const char* path, struct fuse_file_info*) {
    waitForTheGate(path);
    return fileNumber(path) ? 0 : -ENOENT;
}

static int readFile(const char*, char*, size_t, off_t, struct fuse_file_info*) { return 0; }

// Nothing is cached in the kernel: a cached "slow" (from a listing of the
// root a moment before) would answer a stat while the gate is closed, as a
// folder that still answers.
static void* start(struct fuse_conn_info* connection, struct fuse_config* config) {
    connection->want &= ~FUSE_CAP_READDIRPLUS;
    config->entry_timeout = 0;
    config->attr_timeout = 0;
    config->negative_timeout = 0;
    return NULL;
}

static const struct fuse_operations operations = {
    .getattr = getattrOf,
    .open = openFile,
    .read = readFile,
    .opendir = openFolder,
    .readdir = list,
    .init = start,
};

int main(int argc, char* argv[]) {
    if (argc < 3) {
        fprintf(stderr, "usage: hanging_fs GATE MOUNTPOINT [fuse options...]\n");
        return 2;
    }
    gate = argv[1];
    argv[1] = argv[0];
    return fuse_main(argc - 1, argv + 1, &operations, NULL);
}

// Preloaded, makes calls of the agent fail: of those of one kind the calls from one place to another in their order.
//
//   FAILING="HOW KIND FIRST LAST"   HOW is "fail", or "kill": the process dies in the place of the call
//   FAILING_COUNTS=FILE             8 bytes a kind, in the order of the table below: its calls so far; 8 more: those that failed
//   FAILING_LIBRARY=NAME            the agent is the library whose path ends so
//
// What is a call of the agent: in a program that has the agent in it, what a thread does while the program says that the agent is
// at work on it (it is asked through failingCallsAsk); with FAILING_LIBRARY, what is called from the code of that library, and
// what libstdc++ calls for it. Nobody else's calls are counted, so that the same run gives the same places. Programs that the
// agent starts are left alone.
#define _GNU_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <execinfo.h>
#include <fcntl.h>
#include <link.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <unistd.h>

enum Kind { OPEN, LOG, OPENDIR, READ, READDIR, WRITE, SYNC, CLOSE, TRUNCATE, RENAME, UNLINK, MKDIR, STAT, CHMOD, REALPATH, SEEK,
            SPAWN, PIPE, WAIT, MEMORY, RANDOM, DUPLICATE, FLAGS, POLL, SOCKET, SEND, KINDS };

static const struct {
    const char* name;
    int error;
} kinds[KINDS] = {
    {"open", EMFILE},    {"log", ENOSPC},    {"opendir", EMFILE}, {"read", EIO},     {"readdir", EIO},
    {"write", ENOSPC},   {"sync", EIO},      {"close", EIO},      {"truncate", EIO}, {"rename", ENOSPC},
    {"unlink", EACCES},  {"mkdir", ENOSPC},  {"stat", EIO},       {"chmod", EPERM},  {"realpath", EACCES},
    {"seek", EIO},       {"spawn", EAGAIN},  {"pipe", EMFILE},    {"wait", ECHILD},  {"memory", ENOMEM},
    {"random", EAGAIN},  {"dup", EMFILE},    {"flags", EINVAL},   {"poll", ENOMEM},  {"socket", EMFILE},
    {"send", ENOBUFS},
};

static atomic_llong* counts; // null: nothing is counted, and nothing fails
static enum Kind chosen = KINDS;
static long long first, last;
static bool kills;
static int (*isAtWork)(void);
static const char* library;
static uintptr_t libraryBegin, libraryEnd, helperBegin, helperEnd;
static const char logName[] = "/LumetraAgent.log";
static atomic_int logDescriptor = -1;
static __thread int inside __attribute__((tls_model("initial-exec")));

// The program's answer to whether the calling thread does the agent's work.
__attribute__((visibility("default"))) void failingCallsAsk(int (*ask)(void)) { isAtWork = ask; }

static int noteObject(struct dl_phdr_info* info, size_t size, void* unused) {
    (void)size;
    (void)unused;
    size_t length = strlen(info->dlpi_name), wanted = strlen(library);
    bool isLibrary = length >= wanted && strcmp(info->dlpi_name + length - wanted, library) == 0;
    bool isHelper = strstr(info->dlpi_name, "/libstdc++.so") != NULL;
    for (int i = 0; (isLibrary || isHelper) && i < info->dlpi_phnum; i++) {
        const ElfW(Phdr)* header = &info->dlpi_phdr[i];
        if (header->p_type != PT_LOAD || !(header->p_flags & PF_X))
            continue;
        uintptr_t begin = info->dlpi_addr + header->p_vaddr;
        *(isLibrary ? &libraryBegin : &helperBegin) = begin;
        *(isLibrary ? &libraryEnd : &helperEnd) = begin + header->p_memsz;
    }
    return 0;
}

static bool isIn(uintptr_t begin, uintptr_t end, const void* address) {
    return (uintptr_t)address >= begin && (uintptr_t)address < end;
}

static bool isLibrarysCall(const void* caller) {
    if (libraryEnd == 0 || isIn(libraryBegin, libraryEnd, caller))
        return libraryEnd != 0;
    if (!isIn(helperBegin, helperEnd, caller))
        return false;
    void* frames[12];
    int depth = backtrace(frames, 12), i = 0;
    while (i < depth && frames[i] != caller)
        i++;
    while (i < depth && isIn(helperBegin, helperEnd, frames[i]))
        i++;
    return i < depth && isIn(libraryBegin, libraryEnd, frames[i]);
}

static bool isAgentsCall(const void* caller) {
    if (counts == NULL || inside != 0)
        return false;
    inside = 1;
    bool is = library != NULL ? isLibrarysCall(caller) : isAtWork != NULL && isAtWork();
    inside = 0;
    return is;
}

// Counts a call of the agent. Whether it has to fail; errno is set then.
static bool fails(enum Kind kind, const void* caller) {
    if (!isAgentsCall(caller))
        return false;
    long long place = atomic_fetch_add(&counts[kind], 1) + 1;
    if (kind != chosen || place < first || place > last)
        return false;
    atomic_fetch_add(&counts[KINDS], 1);
    errno = kinds[kind].error;
    return true;
}

static void die(void) {
    kill(getpid(), SIGKILL);
    for (;;)
        pause();
}

// The same of a call that leaves nothing half done.
static bool failsWhole(enum Kind kind, const void* caller) {
    bool is = fails(kind, caller);
    if (is && kills)
        die();
    return is;
}

__attribute__((constructor)) static void begin(void) {
    void* frames[2];
    backtrace(frames, 2); // loads what it needs, once
    unsetenv("LD_PRELOAD");
    library = getenv("FAILING_LIBRARY");
    if (library != NULL)
        dl_iterate_phdr(noteObject, NULL);
    const char* path = getenv("FAILING_COUNTS");
    int file = path == NULL ? -1 : open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    size_t size = (KINDS + 1) * sizeof *counts;
    if (file < 0 || ftruncate(file, (off_t)size) != 0)
        return;
    void* memory = mmap(NULL, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    char how[8], kind[16];
    const char* text = getenv("FAILING");
    if (text != NULL && sscanf(text, "%7s %15s %lld %lld", how, kind, &first, &last) == 4) {
        kills = strcmp(how, "kill") == 0;
        for (chosen = OPEN; chosen < KINDS && strcmp(kinds[chosen].name, kind) != 0;)
            chosen++;
    }
    counts = memory == MAP_FAILED ? NULL : memory;
}

#define REAL(name)                                                                                                               \
    static __typeof__(&name) real;                                                                                               \
    if (real == NULL)                                                                                                            \
    *(void**)&real = dlsym(RTLD_NEXT, #name)
#define CALLER __builtin_return_address(0)

// A call that fails by its result, with nothing to be done then.
#define FAILING(kind, failure, type, name, parameters, arguments)                                                                \
    type name parameters {                                                                                                       \
        REAL(name);                                                                                                              \
        return failsWhole(kind, CALLER) ? (failure) : real arguments;                                                            \
    }
// One whose result is the error itself.
#define TELLING(kind, error, name, parameters, arguments)                                                                        \
    int name parameters {                                                                                                        \
        REAL(name);                                                                                                              \
        return failsWhole(kind, CALLER) ? (error) : real arguments;                                                              \
    }

static mode_t modeIn(int flags, va_list more) { return flags & (O_CREAT | O_TMPFILE) ? va_arg(more, mode_t) : 0; }

int open64(const char* path, int flags, ...) {
    REAL(open64);
    va_list more;
    va_start(more, flags);
    mode_t mode = modeIn(flags, more);
    va_end(more);
    size_t length = strlen(path), end = strlen(logName);
    if (length < end || strcmp(path + length - end, logName) != 0)
        return failsWhole(OPEN, CALLER) ? -1 : real(path, flags, mode);
    bool isAgents = isAgentsCall(CALLER);
    int file = failsWhole(LOG, CALLER) ? -1 : real(path, flags, mode);
    if (isAgents)
        logDescriptor = file;
    return file;
}

int openat64(int directory, const char* path, int flags, ...) {
    REAL(openat64);
    va_list more;
    va_start(more, flags);
    mode_t mode = modeIn(flags, more);
    va_end(more);
    return failsWhole(OPEN, CALLER) ? -1 : real(directory, path, flags, mode);
}

ssize_t write(int file, const void* bytes, size_t size) {
    REAL(write);
    enum Kind kind = file == logDescriptor ? LOG : WRITE;
    if (!fails(kind, CALLER))
        return real(file, bytes, size);
    // A disk that fills takes a part of what comes, and then nothing; a death leaves a part.
    bool isPart = kills || (last > first && atomic_load(&counts[kind]) == first);
    ssize_t part = isPart && size > 1 ? real(file, bytes, size / 2) : -1;
    if (kills)
        die();
    if (part < 0)
        errno = kinds[kind].error;
    return part;
}

int close(int file) {
    REAL(close);
    bool isFailing = failsWhole(CLOSE, CALLER);
    int result = real(file);
    if (isFailing)
        errno = kinds[CLOSE].error;
    return isFailing ? -1 : result;
}

int fcntl64(int file, int command, ...) {
    REAL(fcntl64);
    va_list more;
    va_start(more, command);
    void* argument = va_arg(more, void*); // the widest that there is
    va_end(more);
    bool isDuplicate = command == F_DUPFD || command == F_DUPFD_CLOEXEC;
    bool isFailing = (isDuplicate || command == F_SETFL) && failsWhole(isDuplicate ? DUPLICATE : FLAGS, CALLER);
    return isFailing ? -1 : real(file, command, argument);
}

// Fails as it does where somebody ignores the end of children: once there is no child any more.
pid_t waitpid(pid_t child, int* status, int options) {
    REAL(waitpid);
    pid_t ended = real(child, status, options);
    return ended > 0 && failsWhole(WAIT, CALLER) ? -1 : ended;
}

FAILING(OPENDIR, NULL, DIR*, opendir, (const char* path), (path))
FAILING(OPENDIR, NULL, DIR*, fdopendir, (int file), (file))
FAILING(READDIR, NULL, struct dirent64*, readdir64, (DIR * directory), (directory))
FAILING(READ, -1, ssize_t, read, (int file, void* room, size_t size), (file, room, size))
FAILING(READ, -1, ssize_t, pread64, (int file, void* room, size_t size, off64_t at), (file, room, size, at))
FAILING(SYNC, -1, int, fsync, (int file), (file))
FAILING(SYNC, -1, int, fdatasync, (int file), (file))
FAILING(TRUNCATE, -1, int, ftruncate64, (int file, off64_t size), (file, size))
FAILING(RENAME, -1, int, rename, (const char* from, const char* to), (from, to))
FAILING(RENAME, -1, int, renameat2, (int a, const char* from, int b, const char* to, unsigned flags), (a, from, b, to, flags))
FAILING(UNLINK, -1, int, unlink, (const char* path), (path))
FAILING(UNLINK, -1, int, unlinkat, (int directory, const char* path, int flags), (directory, path, flags))
FAILING(UNLINK, -1, int, remove, (const char* path), (path))
FAILING(MKDIR, -1, int, mkdir, (const char* path, mode_t mode), (path, mode))
FAILING(STAT, -1, int, stat64, (const char* path, struct stat64* state), (path, state))
FAILING(STAT, -1, int, lstat64, (const char* path, struct stat64* state), (path, state))
FAILING(STAT, -1, int, fstat64, (int file, struct stat64* state), (file, state))
FAILING(STAT, -1, int, fstatat64, (int directory, const char* path, struct stat64* state, int flags), (directory, path, state, flags))
FAILING(STAT, -1, int, fstatfs64, (int file, struct statfs64* state), (file, state))
FAILING(STAT, -1, int, faccessat, (int directory, const char* path, int mode, int flags), (directory, path, mode, flags))
FAILING(CHMOD, -1, int, fchmod, (int file, mode_t mode), (file, mode))
FAILING(CHMOD, -1, int, fchown, (int file, uid_t user, gid_t group), (file, user, group))
FAILING(REALPATH, NULL, char*, realpath, (const char* path, char* room), (path, room))
FAILING(SEEK, -1, off64_t, lseek64, (int file, off64_t by, int from), (file, by, from))
FAILING(PIPE, -1, int, pipe2, (int ends[2], int flags), (ends, flags))
FAILING(RANDOM, -1, ssize_t, getrandom, (void* room, size_t size, unsigned flags), (room, size, flags))
FAILING(POLL, -1, int, poll, (struct pollfd * files, nfds_t count, int longest), (files, count, longest))
FAILING(SOCKET, -1, int, socket, (int domain, int type, int protocol), (domain, type, protocol))
FAILING(SEND, -1, ssize_t, sendmsg, (int file, const struct msghdr* message, int flags), (file, message, flags))
TELLING(SPAWN, EAGAIN, posix_spawnp,
        (pid_t * child, const char* program, const posix_spawn_file_actions_t* actions, const posix_spawnattr_t* attributes,
         char* const* words, char* const* variables),
        (child, program, actions, attributes, words, variables))
TELLING(SPAWN, ENOMEM, posix_spawn_file_actions_init, (posix_spawn_file_actions_t * actions), (actions))
TELLING(SPAWN, ENOMEM, posix_spawn_file_actions_adddup2, (posix_spawn_file_actions_t * actions, int from, int to),
        (actions, from, to))
TELLING(SPAWN, ENOMEM, posix_spawn_file_actions_addopen,
        (posix_spawn_file_actions_t * actions, int as, const char* path, int flags, mode_t mode), (actions, as, path, flags, mode))
TELLING(SPAWN, ENOMEM, posix_spawnattr_init, (posix_spawnattr_t * attributes), (attributes))

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);

void* malloc(size_t size) { return failsWhole(MEMORY, CALLER) ? NULL : __libc_malloc(size); }
void* calloc(size_t count, size_t size) { return failsWhole(MEMORY, CALLER) ? NULL : __libc_calloc(count, size); }
void* realloc(void* memory, size_t size) { return failsWhole(MEMORY, CALLER) ? NULL : __libc_realloc(memory, size); }

// A library that is loaded later is found by its first look.
void* dlopen(const char* path, int flags) {
    REAL(dlopen);
    void* handle = real(path, flags);
    if (library != NULL && counts != NULL && libraryEnd == 0)
        dl_iterate_phdr(noteObject, NULL);
    return handle;
}

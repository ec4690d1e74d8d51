#include "trendviewer/trendFiles.h"

#include "acquisition/textForms.h"
#include "agent/debugLog.h"
#include "agent/errorExit.h"
#include "agent/stopSync.h"
#include "support/clock.h"
#include "support/handles.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <pthread.h>
#include <span>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace obrin {
namespace {

pthread_mutex_t tvmut = PTHREAD_MUTEX_INITIALIZER;

/// Whether this thread holds tvmut: who did not get the lock unlocks it all the same, and must not free
/// another's.
[[gnu::tls_model("initial-exec")]] thread_local bool holdsLock = false;

constexpr int mostPauses = 2;
constexpr std::int32_t lockBusy = 5;

/// The attempts to take the lock; only the first when it does not wait. The result of trendViewerLockFiles().
std::int32_t takeLock(bool waits) {
    if (stopRequested())
        return 2;
    int tries = 0;
    int outcome = ::pthread_mutex_trylock(&tvmut);
    while (waits && outcome == EBUSY && tries++ <= mostPauses) {
        systemClock().pause(std::chrono::seconds(1));
        outcome = ::pthread_mutex_trylock(&tvmut);
    }
    holdsLock = holdsLock || outcome == 0;
    const bool busy = waits ? tries > mostPauses : outcome == EBUSY;
    return busy ? lockBusy : 0;
}

} // namespace

std::int32_t trendViewerLockFiles() {
    return takeLock(true);
}

std::int32_t trendViewerUnlockFiles() {
    if (!holdsLock)
        return 0;
    holdsLock = false;
    return ::pthread_mutex_unlock(&tvmut) == EINVAL ? 5 : 0;
}

TrendFileGuard::TrendFileGuard(Patience patience) {
    const bool heldBefore = holdsLock;
    refused_ = takeLock(patience == Patience::waits) == lockBusy;
    taken_ = holdsLock && !heldBefore;
}

TrendFileGuard::~TrendFileGuard() {
    if (taken_)
        trendViewerUnlockFiles();
}

namespace {

/// The run's own files, which a deletion never touches even when they lie in the data directory under a
/// matching name.
class OwnFiles {
public:
    explicit OwnFiles(const Clasp& clasp) {
        for (const std::string* path :
             {&clasp.IniFile, &clasp.ResourceText, &clasp.ScratchPad, &clasp.HardDriveArchive}) {
            struct stat state;
            if (::stat(path->c_str(), &state) == 0)
                files_.push_back(state);
            if (::lstat(path->c_str(), &state) ==
                0) // one may be a link, and the link is then the run's own too
                files_.push_back(state);
        }
    }

    bool contain(const std::string& path) const {
        struct stat state;
        if (::lstat(path.c_str(), &state) != 0)
            return false;
        for (const struct stat& own : files_)
            if (own.st_dev == state.st_dev && own.st_ino == state.st_ino)
                return true;
        return false;
    }

private:
    std::vector<struct stat> files_;
};

/// The names in a directory that `matches` wants. Nothing, with errno, when the agent lacks the means to
/// search it, or it cannot be read to its end; a directory that is not there or not ours to read holds
/// nothing to remove.
template <class Matches>
std::optional<std::vector<std::string>> namesIn(const std::string& path, Matches&& matches) {
    std::vector<std::string> names;
    const Directory directory(::opendir(path.c_str()));
    if (!directory && (errno == EMFILE || errno == ENFILE || errno == ENOMEM))
        return std::nullopt;
    if (!directory)
        return names;
    errno = 0; // all that tells an error from the end
    while (const dirent* entry = ::readdir(directory.get())) {
        if (matches(std::string_view(entry->d_name)))
            names.emplace_back(entry->d_name);
        errno = 0;
    }
    return errno == 0 ? std::optional(std::move(names)) : std::nullopt;
}

void remove(const std::string& directory, std::span<const std::string> names, const Clasp& clasp) {
    if (names.empty())
        return;
    const OwnFiles own(clasp);
    for (const std::string& name : names)
        if (const std::string path = directory + name; !own.contain(path))
            ::unlink(path.c_str());
}

/// Room for a command that names three paths, none longer than the kernel takes: longer ones hold no file.
constexpr std::size_t longestCommand = std::size_t{3} * (PATH_MAX + 16);

/// Tells the log and Java that a deletion could not be made. `function` and `command` are named in the texts.
/// Takes no memory: its want is a reason to come here.
void deletionFailed(const char* function, const char* command, int error) {
    char text[longestCommand + 128];
    std::snprintf(text, sizeof text, "%s(): system(\"%s\") failed.  errno=%d=0x%08x", function, command,
                  error, static_cast<unsigned>(error));
    DEBUGMSG("\n%s\n\n", text);
    error_exit("fatal", text);
}

} // namespace

std::int32_t deleteTrendFiles(Clasp* clasp) {
    const std::string& home = clasp->DataHomeDirectory;
    if (home.empty())
        return 1;
    const auto names = namesIn(home + "/", [](std::string_view name) {
        return !name.starts_with('.') &&
               (name.ends_with(".cul") || name.ends_with(".ini") || name.ends_with(".gnp"));
    });
    if (names) {
        remove(home + "/", *names, *clasp);
        return 1;
    }
    const std::int32_t status = errno;
    char command[longestCommand];
    std::snprintf(command, sizeof command, "rm -f %s/*.cul %s/*.ini %s/*.gnp", home.c_str(), home.c_str(),
                  home.c_str());
    deletionFailed("deleteTrendFiles", command, status);
    DEBUGMSG("trendFiles deleteTrendFiles(): before return(errno);\n");
    return status;
}

std::int32_t deleteResourceTrendFiles(Link* link, RemovalPass* pass) {
    const std::string& home = link->pClasp->DataHomeDirectory;
    // A display name with a "/" would lead out of the data directory; no trend file bears it.
    if (home.empty() || link->NameIs.view().find('/') != std::string_view::npos)
        return 1;
    const std::string stem =
        home + std::string(link->NameIs.view()) + cleanfilename(link->Descriptor1.view()) + "BM";
    const std::size_t slash = stem.rfind('/');
    const std::string directory = slash == std::string::npos ? "./" : stem.substr(0, slash + 1);
    const std::string prefix = slash == std::string::npos ? stem : stem.substr(slash + 1);
    RemovalPass ofItsOwn;
    auto& names = (pass == nullptr ? ofItsOwn : *pass).names;
    if (!names &&
        (names = namesIn(directory, [](std::string_view name) { return name.find("BM") != name.npos; })))
        std::ranges::sort(*names);
    if (names) {
        const auto first = std::ranges::lower_bound(*names, prefix);
        const auto last = std::find_if(first, names->end(),
                                       [&](const std::string& name) { return !name.starts_with(prefix); });
        remove(directory, {first, last}, *link->pClasp);
        return 1;
    }
    const std::int32_t status = errno;
    // The three that a forecast writes go all the same: that takes their names and no listing.
    const std::string written[] = {prefix + ".ini", prefix + "PRD.gnp", prefix + "SMP.gnp"};
    remove(directory, written, *link->pClasp);
    char command[longestCommand];
    std::snprintf(command, sizeof command, "rm -f %s*", stem.c_str());
    deletionFailed("trendFiles deleteResourceTrendFiles", command, status);
    DEBUGMSG("trendFiles deleteResourceTrendFiles(): before return(errno);\n");
    return status;
}

void deleteTrendFilesSynchronized(Clasp* clasp) {
    const TrendFileGuard lock;
    const std::int32_t status = deleteTrendFiles(clasp);
    DEBUGMSG("trendFiles: after deleteTrendFiles()  XStatus=%d=0x%08x\n", status,
             static_cast<unsigned>(status));
    if (status != 1) {
        DEBUGMSG("Failure of deleteTrendFiles. Error Code %d...exiting.\n", status);
        DEBUGMSG("trendFiles main(): before return;\n");
    }
}

void deleteResourceTrendFilesSynchronized(Link* link, RemovalPass* pass) {
    RemovalPass ofItsOwn;
    RemovalPass& removals = pass == nullptr ? ofItsOwn : *pass;
    const TrendFileGuard lock(removals.lockRefused ? TrendFileGuard::Patience::none
                                                   : TrendFileGuard::Patience::waits);
    removals.lockRefused = removals.lockRefused || lock.refused();
    const std::int32_t status = deleteResourceTrendFiles(link, &removals);
    if (status != 1)
        DEBUGMSG("Failure of deleteResourceTrendFiles. Error Code %d.\n", status);
}

} // namespace obrin

#include "agent/homePlaces.h"

#include "agent/agentConfig.h"
#include "agent/debugLog.h"
#include "support/wholeFile.h"

#include <cstdlib>
#include <memory>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace obrin {
namespace {

/// The directory of a file, as a path; "." without one.
std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

/// What the run with this configuration works in and with.
std::vector<std::string> placesOf(const std::string& bin, const std::string& configuration) {
    const auto inBin = [&bin](std::string_view path) {
        return path.starts_with('/') ? std::string(path) : bin + "/" + std::string(path);
    };
    std::vector<std::string> places = {
        inBin("."),       inBin(".."),          inBin("../config"), inBin("../log"),
        inBin("../data"), inBin("../tempdata"), configuration,      directoryOf(configuration)};
    places.push_back(inBin("../config/skip.conf"));
    const std::string text = readGivenFile(configuration).value_or("");
    const ConfigurationText read = readConfigurationText(text);
    const std::string home(read.items[0].text);
    const std::string declarations = inBin(read.items[4].text);
    places.push_back(inBin(home));
    places.push_back(directoryOf(inBin(home + std::string(read.items[1].text))));
    places.push_back(directoryOf(inBin(read.items[2].text)));
    places.push_back(directoryOf(declarations));
    places.push_back(declarations);
    return places;
}

/// Whether those for whom these bits stand may write a file, or make files in a directory.
bool isOpenTo(const struct stat& state, mode_t write, mode_t search) {
    return (state.st_mode & write) != 0 && (!S_ISDIR(state.st_mode) || (state.st_mode & search) != 0);
}

/// The group of a directory above is whoever runs the machine's choice, as that of /var/log may be.
bool isOpenToOthers(const struct stat& state, bool isAbove) {
    const bool toAll = isOpenTo(state, S_IWOTH, S_IXOTH);
    return isAbove ? toAll && (state.st_mode & S_ISVTX) == 0 : toAll || isOpenTo(state, S_IWGRP, S_IXGRP);
}

class Search {
public:
    explicit Search(uid_t user) : user_(user) {}

    void lookAt(const std::string& path, bool isAbove) {
        struct stat state;
        if (::stat(path.c_str(), &state) != 0)
            return;
        if (state.st_uid != 0 && state.st_uid != user_)
            add("place-of-another", path, state);
        else if (isOpenToOthers(state, isAbove))
            add("place-open-to-others", path, state);
    }

    std::vector<ForeignPlace> take() { return std::move(found_); }

private:
    void add(std::string_view kind, const std::string& path, const struct stat& state) {
        if (told_.insert(path).second)
            found_.push_back({kind, path, state.st_uid});
    }

    uid_t user_;
    std::set<std::string> told_;
    std::vector<ForeignPlace> found_;
};

} // namespace

std::vector<ForeignPlace> foreignPlaces(const std::string& bin, const std::string& configuration,
                                        uid_t user) {
    std::set<std::string> real;
    for (const std::string& place : placesOf(bin, configuration)) {
        const std::unique_ptr<char, decltype(&std::free)> found(::realpath(place.c_str(), nullptr),
                                                                &std::free);
        if (found)
            real.emplace(found.get());
    }
    Search search(user);
    for (const std::string& place : real)
        search.lookAt(place, false);
    for (const std::string& place : real)
        for (std::size_t slash = place.rfind('/'); slash != std::string::npos && slash > 0;
             slash = place.rfind('/', slash - 1))
            search.lookAt(place.substr(0, slash), true);
    return search.take();
}

void logForeignPlaces(const std::string& configuration) {
    for (const ForeignPlace& place : foreignPlaces(".", configuration, ::geteuid()))
        DEBUGMSG(
            place.kind == "place-of-another"
                ? "%s belongs to user %lld, who could change what the agent does\n"
                : "%s can be written by others than its owner, user %lld, who could change what the agent "
                  "does\n",
            place.path.c_str(), static_cast<long long>(place.owner));
}

} // namespace obrin

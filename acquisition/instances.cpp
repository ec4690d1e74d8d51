#include "acquisition/instances.h"

#include "acquisition/diskListing.h"
#include "acquisition/textForms.h"
#include "agent/debugLog.h"
#include "support/immortal.h"
#include "support/systemPaths.h"
#include "support/wholeFile.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace obrin {

namespace {

bool longNameLogged = false;
bool missingListingLogged = false;
Immortal<std::vector<LeftOutDisk>> leftOut;

void leaveOut(LeftOutDisk disk) {
    if (leftOut->size() < mostLeftOut)
        leftOut->push_back(std::move(disk));
}

void leaveOut(const std::string& text, const char* reason) {
    leaveOut({text, LeftOutKind::unreadable, "", reason});
}

/// Says once, until a listing comes, that there is none.
void noteListing(bool isThere) {
    if (!isThere && !missingListingLogged)
        DEBUGMSG("%s", noDiskListing);
    missingListingLogged = !isThere;
}

/// Without the blanks at both ends: df pads its columns with them.
std::string_view withoutOuterBlanks(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    text.remove_suffix(text.size() - (text.find_last_not_of(' ') + 1));
    return text;
}

/// The mount point of an instance: what follows the first blank before a "/"; of a name without one, what
/// follows the first blank. Empty when there is no blank.
std::string_view mountPointOf(std::string_view instance) {
    std::size_t blank = instance.find(" /");
    if (blank == std::string_view::npos)
        blank = instance.find(' ');
    return blank == std::string_view::npos ? std::string_view{} : instance.substr(blank + 1);
}

} // namespace

int GetNumberOfdisks() {
    const TakenListing taken = takeDiskListing(DiskCounter::space);
    DEBUGMSG(" before 10 fopen(../tempdata/LumetraDisks.txt) retval=%d\n", taken.status);
    DEBUGMSG(" after  10 fopen(../tempdata/LumetraDisks.txt)\n");
    noteListing(taken.listing && taken.listing->hasHeading());
    if (!taken.listing || !taken.listing->hasHeading())
        return 0;
    constexpr auto most = static_cast<std::size_t>(std::numeric_limits<int>::max());
    return static_cast<int>(std::min(taken.listing->lineFeeds(), most)) - 1;
}

int Retrievedisks(int count, std::vector<DiskName>* names) {
    names->clear();
    const TakenListing taken = takeDiskListing(DiskCounter::space);
    DEBUGMSG(" before 11 fopen(../tempdata/LumetraDisks.txt)\n");
    DEBUGMSG(" after  11 fopen(../tempdata/LumetraDisks.txt)\n");
    if (!taken.listing)
        return -1;
    leftOut->clear();
    for (const std::string& line : taken.listing->leftOut())
        leaveOut(line, "its line in the listing of disks cannot be read without doubt");
    int retrieved = 0;
    SelectionPass pass;
    for (const DiskLine& line : taken.listing->lines()) {
        if (retrieved >= count)
            break;
        const std::string name = line.device + " " + line.mountPoint;
        if (auto disk = pass.judge(line.device, line.mountPoint)) {
            leaveOut(std::move(*disk));
            continue;
        }
        if (name.size() <= DiskName::capacity()) {
            names->emplace_back(name);
            ++retrieved;
            continue;
        }
        leaveOut(name, "its name is too long");
        if (!longNameLogged)
            DEBUGMSG("Disks with a name longer than %zu characters are left out, the first is %.200s...\n",
                     DiskName::capacity(), name.c_str());
        longNameLogged = true;
    }
    return retrieved;
}

const std::vector<LeftOutDisk>& disksLeftOut() {
    return *leftOut;
}

bool awaitsDiskListing() {
    return missingListingLogged;
}

void beginInstanceRun() {
    leftOut->clear();
    longNameLogged = false;
    missingListingLogged = false;
    beginSelectionRun();
    beginListingCycle(std::chrono::milliseconds(0));
}

MountTable MountTable::read() {
    const auto text = readWholeFile(systemPaths().mounts);
    if (text && !text->empty())
        return parse(*text);
    MountTable unreadable;
    unreadable.readable_ = false;
    return unreadable;
}

MountTable MountTable::parse(std::string_view text) {
    MountTable table;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        table.add(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return table;
}

void MountTable::add(std::string_view entry) {
    // Blanks inside the fields are escaped, so the first two blanks are the ends of device and mount point.
    const std::size_t deviceEnd = entry.find(' ');
    if (deviceEnd == std::string_view::npos)
        return;
    const std::string device = decodeOctal(entry.substr(0, deviceEnd));
    const std::string_view rest = entry.substr(deviceEnd + 1);
    const std::string mountPoint = decodeOctal(rest.substr(0, rest.find(' ')));
    if (mountPoint.empty())
        return;
    for (bool asciiOnly : {false, true}) {
        mountPoints_.insert(asListed(mountPoint, asciiOnly));
        names_.insert(asListed(std::string(withoutOuterBlanks(device)) + " " + mountPoint, asciiOnly));
    }
}

bool MountTable::contains(std::string_view mountPoint) const {
    return !readable_ || mountPoints_.contains(asListed(mountPoint, false));
}

bool MountTable::containsName(std::string_view instance) const {
    return !readable_ || names_.contains(asListed(instance, false));
}

int driveExists(const MountTable& table, std::string_view instance) {
    if (instance == "_Total")
        return 1;
    const std::string_view mountPoint = mountPointOf(instance);
    // A device such as "server /export" hides where its mount point begins; device and mount point together
    // tell.
    return mountPoint.empty() || table.contains(mountPoint) || table.containsName(instance) ? 1 : 0;
}

int driveExists(std::string_view instance) {
    if (instance == "_Total")
        return 1;
    return driveExists(MountTable::read(), instance);
}

bool isGone(const MountTable& table, std::string_view instance) {
    return driveExists(table, instance) == 0 || isLeftOut(instance, mountPointOf(instance));
}

int GetNumberOfPIDsPerProcess(const char* /*object*/, const char* /*instance*/) {
    return 0;
}

int RetrievePIDsGivenProcess(const char* /*object*/, const char* /*instance*/, int /*count*/,
                             std::int32_t* /*pids*/) {
    return 0;
}

} // namespace obrin

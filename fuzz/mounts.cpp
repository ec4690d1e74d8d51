// The kernel's two tables of mounts.

#include "acquisition/instances.h"
#include "acquisition/textForms.h"
#include "fuzz/target.h"

#include <cstdio>

namespace obrin::fuzz::mounts {
namespace {

/// As the kernel writes a field.
std::string escaped(std::string_view text) {
    std::string field;
    for (const char byte : text) {
        char octal[8];
        std::snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        field +=
            std::string_view(" \t\n\\#").find(byte) == std::string_view::npos ? std::string(1, byte) : octal;
    }
    return field;
}

void checkNamed(const std::string& mountPoint) {
    const std::string field = escaped(mountPoint);
    require(decodeOctal(field) == mountPoint, "what the kernel escapes reads back the same");

    const MountInfo table = MountInfo::parse("36 35 98:0 / " + field + " ro shared:1 - ext4 /dev/x rw\n");
    require(table.mounts().size() == 1 && table.mounts()[0].mountPoint == mountPoint &&
                table.mounts()[0].type == "ext4" && table.mounts()[0].device == "98:0" &&
                table.mounts()[0].readOnly,
            "a mount is read as it is");

    const MountTable mounts = MountTable::parse("/dev/x " + field + " ext4 rw 0 0\n");
    for (const bool asciiOnly : {false, true}) {
        const std::string listed = asListed(mountPoint, asciiOnly);
        require(mountPoint.empty() || mounts.contains(listed), "what df prints of a mount is mounted");
        require(mountPoint.empty() || mounts.containsName("/dev/x " + listed), "so is its whole name");
        const auto found = table.find(listed);
        require(!found.ambiguous && found.mount == table.mounts().data(),
                "what df prints of a mount finds it");
    }
}

void checkTables(std::string_view input) {
    const MountInfo table = MountInfo::parse(input);
    for (const Mount& mount : table.mounts())
        for (const bool asciiOnly : {false, true}) {
            const auto [found, isAmbiguous] = table.find(asListed(mount.mountPoint, asciiOnly));
            require(isAmbiguous || found == &mount, "a mount is found by what df prints, or is ambiguous");
        }
    const MountTable mounts = MountTable::parse(input);
    require(driveExists(mounts, "_Total") == 1, "the total always exists");
    driveExists(mounts, input);
    if (!input.empty()) // an empty table is none
        require(!mounts.contains("/no such mount in any table, says its name\xFF"),
                "what is not mounted is not there");
}

void check(std::string_view input) {
    checkTables(input);
    checkNamed(std::string(input.substr(0, input.find('\n'))));
    checkNamed(std::string(input));
}

const Target target("mounts", check);

} // namespace
} // namespace obrin::fuzz::mounts

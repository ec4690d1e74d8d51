#pragma once

#include "resources/resourceRecords.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace obrin {

// The text of the scratch pad: its writer and its reader side by side. A record is
//
//     <line feed>Event: ResourceDefinition - Informational <line feed>
//     <type>   <RID>   (<Descriptor0>)   (<Descriptor1>)   (<Descriptor2>)   <Descriptor3>   <line feed>
//
// There is no escape. Object and counter names come from arguments of the declaration file and so hold no
// ")"; an instance name may, a mount point say. The reader therefore takes as Descriptor1 everything between
// the first ")" of the record and the last one before the counter's, so that two disks never look the same
// and each is the same at every start.

/// A complete record. RID is 1 or more.
struct ScratchPadRecord {
    std::string identity; ///< as linkIdentity() gives it
    std::int32_t rid = 0;
};

/// The bytes of a link's record; the header alone for a link that is not of type 1 or 2.
std::string scratchPadRecordText(const Link& link);

/// Puts what one section (a header and all up to the next) holds into type, RID and descriptors of `link`.
/// False when it is cut off, has a number out of
/// its range or a type other than 1 and 2. A record cut off behind its last field counts only once that field
/// is certainly whole, and appending a further record never turns one that did not count into one that does.
bool readScratchPadSection(std::string_view section, Link* link);

/// The same as a record. Nothing when it does not count.
std::optional<ScratchPadRecord> parseScratchPadSection(std::string_view section);

/// Cuts a scratch pad that arrives in blocks into its sections: each begins with "Event:" at the start of a
/// line. What stands before the first section is dropped, and so is the rest of a section that is longer than
/// any record.
class SectionSplitter {
public:
    explicit SectionSplitter(std::function<void(std::string_view)> take) : take_(std::move(take)) {}

    void feed(std::string_view block);
    /// Hands over the last section.
    void finish();

    /// Where the section that is being handed over begins in the file.
    std::int64_t sectionBegin() const { return sectionBegin_; }

private:
    std::function<void(std::string_view)> take_;
    std::int64_t bufferBegin_ = -1; ///< place in the file of what buffer_ begins with
    std::int64_t sectionBegin_ = 0;
    std::string buffer_ = "\n"; ///< begins with the line feed before a header, or holds no section yet
};

} // namespace obrin

#include "resources/scratchPadRecord.h"

#include "resources/resourceChain.h"
#include "support/textScanner.h"

#include <algorithm>
#include <limits>

namespace obrin {

namespace {

constexpr std::string_view header = "\nEvent: ResourceDefinition - Informational \n";
constexpr std::string_view sectionStart = "\nEvent:";
constexpr std::string_view fieldEnd = "   ";

/// Far above the longest record, which has four descriptors and two numbers.
constexpr std::size_t longestSection = 65536;

bool inInt32(std::int64_t value) {
    return value >= std::numeric_limits<std::int32_t>::min() &&
           value <= std::numeric_limits<std::int32_t>::max();
}

/// The identifier that ends a record, read from `tail`, which begins behind the counter's ")".
std::optional<std::int32_t> closingIdentifier(std::string_view tail) {
    TextScanner scanner(tail);
    const auto identifier = scanner.integer();
    if (!identifier || !inInt32(*identifier))
        return std::nullopt;
    const std::string_view rest = scanner.rest();
    const std::size_t blanks = std::min(rest.find_first_not_of(" \t\r"), rest.size());
    const bool lineEnds = blanks < rest.size() && rest[blanks] == '\n';
    // The blanks tell that no digit is missing; an editor may have stripped them, but then the line feed is
    // there.
    if (!lineEnds && (blanks == 0 || blanks < rest.size()))
        return std::nullopt;
    return static_cast<std::int32_t>(*identifier);
}

/// The positions of the six parentheses of a record and the identifier behind them.
struct RecordShape {
    std::size_t open[3] = {};
    std::size_t close[3] = {};
    std::int32_t identifier = 0;
};

std::optional<RecordShape> findShape(std::string_view text) {
    RecordShape shape;
    shape.open[0] = text.find('(');
    shape.close[0] = text.find(')', shape.open[0]);
    shape.open[1] = text.find('(', shape.close[0]);
    shape.close[1] = text.find(')', shape.open[1]);
    shape.open[2] = shape.open[1];
    // The counter is the argument with the end of the record behind it; what closed before belongs to the
    // instance name.
    while (shape.close[1] != text.npos) {
        if (shape.open[2] < shape.close[1])
            shape.open[2] = text.find('(', shape.close[1]);
        shape.close[2] = text.find(')', shape.close[1] + 1);
        if (shape.open[2] == text.npos || shape.close[2] == text.npos)
            return std::nullopt;
        if (shape.open[2] < shape.close[2])
            if (const auto identifier = closingIdentifier(text.substr(shape.close[2] + 1))) {
                shape.identifier = *identifier;
                return shape;
            }
        shape.close[1] = shape.close[2];
    }
    return std::nullopt;
}

/// Puts the four descriptors into a link; false when one does not fit its field.
bool readDescriptors(std::string_view text, Link& link) {
    const auto shape = findShape(text);
    if (!shape || text.substr(0, shape->close[2]).find('\0') != text.npos)
        return false;
    const auto argument = [&](int i) {
        return text.substr(shape->open[i] + 1, shape->close[i] - shape->open[i] - 1);
    };
    return link.Descriptor0.assign(argument(0)) && link.Descriptor1.assign(argument(1)) &&
           link.Descriptor2.assign(argument(2)) && link.Descriptor3.assign(std::to_string(shape->identifier));
}

} // namespace

std::string scratchPadRecordText(const Link& link) {
    std::string text(header);
    if (link.ResourceType != 1 && link.ResourceType != 2)
        return text;
    text.append(std::to_string(link.ResourceType)).append(fieldEnd);
    text.append(std::to_string(link.RID)).append(fieldEnd);
    for (std::string_view part : {link.Descriptor0.view(), link.Descriptor1.view(), link.Descriptor2.view()})
        text.append("(").append(part).append(")").append(fieldEnd);
    return text.append(link.Descriptor3.view()).append(fieldEnd).append("\n");
}

bool readScratchPadSection(std::string_view section, Link* link) {
    TextScanner scanner(section);
    if (scanner.word() != "Event:" || scanner.word() != "ResourceDefinition" || !scanner.word() ||
        !scanner.word())
        return false;
    const auto type = scanner.integer();
    const auto rid = scanner.integer();
    if (!type || !rid || (*type != 1 && *type != 2) || *rid < 1 || !inInt32(*rid))
        return false;
    link->ResourceType = static_cast<std::int32_t>(*type);
    link->RID = static_cast<std::int32_t>(*rid);
    return readDescriptors(scanner.rest(), *link);
}

std::optional<ScratchPadRecord> parseScratchPadSection(std::string_view section) {
    Link link; // which serves for nothing else
    if (!readScratchPadSection(section, &link))
        return std::nullopt;
    return ScratchPadRecord{linkIdentity(link), link.RID};
}

void SectionSplitter::feed(std::string_view block) {
    // A header may begin in what is buffered and end in the block.
    std::size_t from = buffer_.size() > sectionStart.size() ? buffer_.size() - sectionStart.size() : 1;
    buffer_.append(block);
    std::size_t done = 0;
    for (std::size_t next; (next = buffer_.find(sectionStart, from)) != std::string::npos; from = next + 1) {
        if (next >= done + sectionStart.size() &&
            buffer_.compare(done, sectionStart.size(), sectionStart) == 0) {
            sectionBegin_ = bufferBegin_ + static_cast<std::int64_t>(done) + 1;
            take_(std::string_view(buffer_).substr(done + 1, next - done - 1));
        }
        done = next;
    }
    buffer_.erase(0, done);
    bufferBegin_ += static_cast<std::int64_t>(done);
    if (buffer_.size() > longestSection) {
        finish();
        // Enough is kept for a header that the block cut in two; the first byte makes sure that it is no
        // section yet.
        bufferBegin_ += static_cast<std::int64_t>(buffer_.size() - sectionStart.size()) - 1;
        buffer_ = '\0' + buffer_.substr(buffer_.size() - sectionStart.size());
    }
}

void SectionSplitter::finish() {
    sectionBegin_ = bufferBegin_ + 1;
    if (buffer_.starts_with(sectionStart))
        take_(std::string_view(buffer_).substr(1));
}

} // namespace obrin

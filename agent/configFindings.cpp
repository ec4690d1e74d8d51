#include "agent/configFindings.h"

#include "support/textScanner.h"

#include <utility>

namespace obrin {
namespace {

bool looksLikeComment(std::string_view name) {
    return name.starts_with("#") || name.starts_with(";") || name.starts_with("/*") || name.starts_with("[");
}

bool isRead(const ConfigurationItem& item, std::size_t i) {
    return !item.missing && (i < ConfigurationText::names || item.number);
}

class ConfigChecker {
public:
    explicit ConfigChecker(std::string_view text) : text_(text), places_(text) {
        report_.read = readConfigurationText(text);
    }

    ConfigurationReport check() {
        findForeignBytes(text_, places_, report_.findings);
        const auto& items = report_.read.items;
        std::size_t i = 0;
        for (; i < items.size() && isRead(items[i], i); ++i) {
            report_.places[i] = places_.of(items[i].at);
            tellItem(i);
        }
        report_.accepted = i == items.size() || !items[i].missing || i >= ConfigurationText::required;
        if (!report_.accepted)
            add("item-missing", lastCharacter(), {}, i);
        else if (i == items.size())
            tellSurplus();
        else if (!items[i].missing)
            tellStuck(i);
        return std::move(report_);
    }

private:
    TextFinding& add(std::string_view kind, std::size_t at, std::string_view text, std::size_t item) {
        return report_.findings.emplace_back(TextFinding{.kind = kind,
                                                         .place = places_.of(at),
                                                         .text = text,
                                                         .item = static_cast<std::int32_t>(item) + 1});
    }

    void tellItem(std::size_t i) {
        const ConfigurationItem& item = report_.read.items[i];
        if (i < ConfigurationText::names && looksLikeComment(item.text))
            add("comment-in-configuration", item.at, item.text, i);
        if (item.number && clampToInt32(*item.number) != *item.number)
            add("number-out-of-range", item.at, item.text, i).number = clampToInt32(*item.number);
    }

    /// A word that is no number, alone or against the number before it, stays in the way of all later items.
    void tellStuck(std::size_t i) {
        const ConfigurationItem& stuck = report_.read.items[i];
        const ConfigurationItem& before = report_.read.items[i - 1];
        if (before.number && before.at + before.text.size() == stuck.at)
            add("number-with-rest", before.at, leadingWord(text_.substr(before.at)), i - 1).number =
                clampToInt32(*before.number);
        else
            add("number-malformed", stuck.at, leadingWord(text_.substr(stuck.at)), i);
    }

    void tellSurplus() {
        TextScanner behind(text_);
        behind.moveTo(report_.read.end);
        behind.skipWhiteSpace();
        if (!behind.atEnd())
            add("surplus-item", behind.position(), leadingWord(text_.substr(behind.position())),
                report_.read.items.size());
    }

    /// The last that a person sees.
    std::size_t lastCharacter() const {
        std::size_t end = text_.size();
        while (end > 0 && static_cast<unsigned char>(text_[end - 1]) <= ' ')
            --end;
        return end == 0 ? 0 : end - 1;
    }

    std::string_view text_;
    TextPlaces places_;
    ConfigurationReport report_{};
};

} // namespace

ConfigurationReport checkConfiguration(std::string_view text) {
    return ConfigChecker(text).check();
}

} // namespace obrin

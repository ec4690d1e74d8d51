#pragma once

#include "support/textFindings.h"

#include <gmock/gmock.h>
#include <string>
#include <vector>

namespace obrin::test {

/// A finding as "LINE:COLUMN KIND", followed by those of its parts that are not empty.
inline std::string told(const TextFinding& finding) {
    std::string text = std::to_string(finding.place.line) + ":" + std::to_string(finding.place.column) + " ";
    text += finding.kind;
    const auto part = [&text](const char* name, std::string_view value) {
        if (!value.empty())
            text.append(" ").append(name).append("=").append(value);
    };
    part("text", finding.text);
    part("keyword", finding.keyword);
    part("read", finding.read);
    part("item", finding.item == 0 ? "" : std::to_string(finding.item));
    part("number", finding.number == 0 ? "" : std::to_string(finding.number));
    return text;
}

inline std::vector<std::string> told(const TextFindings& findings) {
    std::vector<std::string> texts;
    for (const TextFinding& finding : findings)
        texts.push_back(told(finding));
    return texts;
}

/// A text, and what is told of it.
struct FindingRow {
    std::string text;
    std::vector<std::string> told;
    bool accepted = true;
};

template <class Check>
void expectFindings(const std::vector<FindingRow>& rows, Check check) {
    for (const FindingRow& row : rows) {
        const auto report = check(row.text);
        EXPECT_THAT(told(report.findings), testing::ElementsAreArray(row.told)) << row.text;
        EXPECT_EQ(report.accepted, row.accepted) << row.text;
    }
}

} // namespace obrin::test

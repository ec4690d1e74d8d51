// The rules that leave disks out.

#include "acquisition/diskSelection.h"
#include "fuzz/feedFindings.h"

namespace obrin::fuzz::skipRules {
namespace {

void checkWritten(const SkipRules& rules) {
    std::string text;
    for (const SkipRule& rule : rules)
        text += rule.text + "\n";
    TextFindings findings;
    const SkipRules again = parseSkipRules(text, findings);
    require(findings.empty() && again.size() == rules.size(), "rules that are written anew have no flaw");
    for (std::size_t i = 0; i < rules.size(); ++i)
        require(again[i].kind == rules[i].kind && again[i].argument == rules[i].argument,
                "rules that are written anew are the same");
}

void checkMatching(const SkipRule& rule) {
    speaksOf(rule,
             {"/var/lib/machines/aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa/aaaaaaaaaaaaaaaa/b", "ext4", "8:1"});
    const bool isPlain = rule.argument.find_first_of("*?[\\") == std::string::npos;
    if (rule.kind == LeftOutKind::type || isPlain)
        require(speaksOf(rule, {rule.argument, rule.argument, "8:1"}),
                "a rule without wildcards speaks of its own");
    if (isPlain)
        require(!speaksOf(rule, {rule.argument + "x", rule.argument + "x", "8:1"}), "and of nothing else");
}

void check(std::string_view input) {
    TextFindings findings;
    const SkipRules rules = parseSkipRules(input, findings);
    require(rules.size() + findings.size() <= static_cast<std::size_t>(std::ranges::count(input, '\n')) + 1,
            "a line is one rule or one finding");
    checkWritten(rules);
    for (const SkipRule& rule : rules)
        checkMatching(rule);
    const std::string feed = skipRulesFeed(input);
    BytesReader bytes(feed);
    passFindings(bytes);
    require(bytes.atEnd(), "the bytes for the host are whole");
}

const Target target("skipRules", check);

} // namespace
} // namespace obrin::fuzz::skipRules

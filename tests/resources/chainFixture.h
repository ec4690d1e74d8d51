#pragma once

#include "resources/resourceChain.h"
#include "tests/support/temporaryDirectory.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace obrin::test {

/// A control record with an empty chain, a scratch pad and a declaration file in a directory of its own, and
/// its own log.
class ChainTest : public ::testing::Test {
protected:
    ChainTest() {
        clasp.ScratchPad = directory.path("ScratchPad.txt");
        clasp.ResourceText = directory.path("resources.txt");
        clasp.MaxForecastHours = 48;
        clasp.MillisecondsPerSample = -1;
    }
    ~ChainTest() override { ScanUpChainDeletingAllLinks(&clasp); }

    Link makeLink(std::int32_t type, std::string_view object, std::string_view instance = "instance",
                  std::string_view counter = "counter", std::string_view identifier = "-2") {
        Link link;
        link.ResourceType = type;
        link.Descriptor0 = object;
        link.Descriptor1 = instance;
        link.Descriptor2 = counter;
        link.Descriptor3 = identifier;
        link.WindowSize = -1;
        link.pClasp = &clasp;
        return link;
    }

    int insert(std::int32_t rid, std::string_view object) {
        Link link = makeLink(1, object);
        link.RID = rid;
        return CreateLinkInChainAndCopyData(&link);
    }

    /// Objects and numbers down the chain; checks on the way that both directions and both ends agree.
    std::vector<std::string> chain() const {
        std::vector<std::string> found;
        const Link* before = nullptr;
        std::size_t indexed = 0;
        for (const Link* link = clasp.pFirstLink; link != nullptr; before = link, link = link->pNextLink) {
            EXPECT_EQ(link->pPrevLink, before);
            EXPECT_EQ(CheckForDuplicateLinkInChain(link), 2);
            found.push_back(std::string(link->Descriptor0.view()) + " " + std::to_string(link->RID));
            ++indexed;
        }
        EXPECT_EQ(clasp.pLastLink, before);
        EXPECT_EQ(clasp.linksByIdentity.size(), indexed);
        return found;
    }

    CapturedLog log;
    TemporaryDirectory directory;
    Clasp clasp;
};

inline std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

} // namespace obrin::test

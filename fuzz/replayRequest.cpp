// What the host asks of a replay, as bytes.

#include "fuzz/target.h"
#include "replay/replayFeed.h"
#include "tests/support/temporaryDirectory.h"

namespace obrin::fuzz::replayRequest {
namespace {

/// A replay of declarations, a scratch pad and an archive that are the same bytes.
std::string request(std::string_view input, const std::string& archive) {
    writeWorkFile(archive, input);
    Bytes bytes(1024);
    bytes.number(replayFeedVersion).number(60000).number(1).number(48).number(1).flag(true).flag(true);
    bytes.text(input).text(input).number(1).text(archive).number(1).longNumber(1732270000).flag(true);
    return bytes.take();
}

void run(std::string_view request) {
    const std::int32_t number = openReplay(request);
    require(number >= 0, "a request is understood, or is not");
    if (number == 0)
        return;
    for (int step = 0; step < 3; ++step)
        require(!stepReplay(number, 2).empty(), "a replay goes on");
    require(!summariseReplay(number).empty(), "it comes to something");
    closeReplay(number);
    require(stepReplay(number, 1).empty(), "it is over when it is closed");
}

void check(std::string_view input) {
    static const std::string archive = workFile("replayed.txt");
    run(input);
    run(request(input, archive));
}

const Target target("replayRequest", check);

} // namespace
} // namespace obrin::fuzz::replayRequest

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

void passEpisode(BytesReader& bytes) {
    bytes.number();
    for (int time = 0; time < 3; ++time)
        bytes.longNumber();
    bytes.number();
    for (int number = 0; number < 4; ++number)
        bytes.longNumber();
    for (std::int32_t left = bytes.number(); left > 0 && bytes.isWhole(); --left)
        bytes.longNumber();
}

/// What one step says is laid out as promised. Whether the replay is over.
bool checkStep(std::string_view step) {
    BytesReader bytes(step);
    require(bytes.number() == replayFeedVersion, "a step begins with its version");
    const std::int64_t read = bytes.longNumber();
    require(read >= 0 && bytes.longNumber() >= 0, "numbers of bytes are none below 0");
    for (int number = 0; number < 6; ++number)
        bytes.longNumber();
    const bool isOver = bytes.flag();
    for (std::int32_t left = bytes.number(); left > 0 && bytes.isWhole(); --left) {
        bytes.longNumber();
        bytes.number();
        require(bytes.number() <= 3, "what happens is one of four things");
        bytes.longNumber();
    }
    for (std::int32_t left = bytes.number(); left > 0 && bytes.isWhole(); --left) {
        bytes.number();
        passEpisode(bytes);
    }
    for (std::int32_t left = bytes.number(); left > 0 && bytes.isWhole(); --left) {
        bytes.text();
        require(bytes.longNumber() >= 0 && !bytes.text().empty(), "a damage has a line and a word");
    }
    for (std::int32_t left = bytes.number(); left > 0 && bytes.isWhole(); --left) {
        bytes.number();
        for (int number = 0; number < 3; ++number)
            bytes.longNumber();
    }
    require(bytes.isWhole() && bytes.atEnd(), "a step is whole");
    return isOver;
}

void run(std::string_view request) {
    const std::int32_t number = openReplay(request);
    require(number >= 0, "a request is understood, or is not");
    if (number == 0)
        return;
    bool isOver = false;
    for (int step = 0; step < 10 && !isOver; ++step)
        isOver = checkStep(stepReplay(number, 2));
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
